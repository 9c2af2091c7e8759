#!/usr/bin/env bash
# Builds the plug-in and the device's stand-ins, then runs the device on this
# PC on a private bus: broker, watchdog peer, a bus monitor, and the host with
# the plug-in. Stops by itself after DURATION seconds (default 25).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

duration=${DURATION:-25}
cmake -S . -B build -DAZ_BUILD_TESTS=ON >/dev/null
cmake --build build -j"$(nproc 2>/dev/null || echo 2)" \
  --target q7x-busd q7x-host AlertZelManage zel-watchdog zel-busmon

bin=build
plugin=$(find "$bin" -name libAlertZelManage.so -print -quit)
busd=$(find "$bin" -name q7x-busd -type f -print -quit)
host=$(find "$bin" -name q7x-host -type f -print -quit)
run=$(mktemp -d /tmp/zel-device.XXXXXX)
export Q7X_BUS_PATH=$run/bus.sock

pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
}
trap cleanup EXIT

echo "== device on bus $Q7X_BUS_PATH for ${duration}s (logs in $run)"
"$busd" 2>"$run/busd.log" & pids+=($!)
for _ in $(seq 50); do [ -S "$Q7X_BUS_PATH" ] && break; sleep 0.1; done
"$bin/peers/zel-watchdog" & pids+=($!)
"$bin/peers/zel-busmon" 1289 1071 1032 475 3215 & pids+=($!)
sleep 0.3

"$host" "$plugin" 2> >(tee "$run/service.log" >&2) &
host_pid=$!
sleep "$duration"
kill -TERM "$host_pid"
status=0
wait "$host_pid" || status=$?
sleep 0.3
echo "== host exited with status $status"
exit "$status"
