#!/usr/bin/env bash
# Runs the whole device on this PC under load for SECONDS (default 600, the
# record run; CI runs 60): broker, storage peer, platform peer, zelctl watch,
# the host with the plug-in, and zel-soak-load sending CAN frames at 8,000 a
# second and signal changes that raise and end two alerts every few seconds.
# Every 6 s the platform pushes the rules again (cover), every 24 s the
# storage peer is restarted: in a phase with no alert running, as a storage
# peer that is away during a size query makes the service take the log for
# empty and write its open frames again.
#
# Reports the host's resident memory at start and end, the alert records the
# service published (as zelctl watch saw them) and those the load received,
# and the frames in the log files against the alerts reported. Fails when
# anything was lost, an alert never ended, or memory grew.
#   ./scripts/soak.sh [SECONDS]
# SOAK_RESTART=PERIOD,OFFSET moves the storage restarts (default 24,1.5).
# Every process of the run is ended before the verdict, a storage peer in the
# middle of a restart included; one still running fails the soak.
# The run folder (logs, outputs) is named at the end; it is kept on failure.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

seconds=${1:-600}
bin=${BUILD_DIR:-build}
cmake -S . -B "$bin" -DAZ_BUILD_TESTS=ON >/dev/null
cmake --build "$bin" -j"$(nproc 2>/dev/null || echo 2)" --target q7x-busd q7x-host \
  AlertZelManage zel-storage zel-platform zelctl zel-logdump zel-soak-load >/dev/null
prog() { echo "$bin/bin/$1"; }
plugin=$(find "$bin" -name libAlertZelManage.so -print -quit)
platform=$(prog zel-platform)
storage=$(prog zel-storage)

run=$(mktemp -d /tmp/zel-soak.XXXXXX)
export Q7X_BUS_PATH=$run/bus.sock
pids=()
# True while pid runs: gone, or a zombie that its new parent has not reaped.
alive() { [ -e "/proc/$1" ] && [ "$(cut -d' ' -f3 "/proc/$1/stat" 2>/dev/null)" != Z ]; }
# Ends every process of the run. The storage peer is no child of this shell
# and may be in a restart: the lock waits for a restart under way, and the
# mark keeps a later one from starting a new peer.
cleanup() {
  touch "$run/stopping"
  (flock 9; pid=$(cat "$run/storage.pid" 2>/dev/null || true)
   if [ -n "$pid" ]; then
     kill "$pid" 2>/dev/null || true
     for _ in $(seq 500); do alive "$pid" || break; sleep 0.01; done
     ! alive "$pid" || kill -KILL "$pid" 2>/dev/null || true
   fi) 9>"$run/storage.lock"
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
}
# Processes still running that belong to the run: their command line or
# environment names its folder.
leftovers() {
  local p
  for p in /proc/[0-9]*; do
    [ "${p#/proc/}" = "$$" ] || [ "${p#/proc/}" = "$BASHPID" ] && continue
    alive "${p#/proc/}" || continue
    if grep -qs "$run" "$p/cmdline" "$p/environ"; then
      tr '\0' ' ' <"$p/cmdline" 2>/dev/null; echo " (pid ${p#/proc/})"
    fi
  done
}
trap cleanup EXIT

# Rule 1 on the speed, rule 2 on the J1939 value of table row 0; both
# without a minimum hold, so each edge of the load is an alert edge.
rules='{"ID": 1, "ATLEAST": 0, "SPEED": {"GT": 60.0}},
       {"ID": 2, "ATLEAST": 0, "J19390": {"GT": 50.0}}'
echo "{\"DUMMY100\": [$rules], \"CIRCLE100\": [], \"LINE100\": [], \"POLY100\": [],
      \"RECT100\": []}" >"$run/rules.json"
echo "{\"DUMMY\": [$rules]}" >"$run/cover.json"
# The storage peer starts from a shell that leaves at once, so that nobody
# needs to reap it. A restart: the old peer gone (it flushes on SIGTERM;
# gone is also a zombie nobody reaps), the new one started. A restart holds
# the lock (which the peer must not inherit) for its whole length.
cat >"$run/start-storage.sh" <<EOF
#!/bin/sh
"$storage" "$run/logs" >>"$run/storage.out" 2>&1 9>&- &
echo \$! >"$run/storage.pid"
EOF
cat >"$run/restart-storage.sh" <<EOF
#!/bin/sh
exec 9>"$run/storage.lock"
flock 9
[ -e "$run/stopping" ] && exit 0
old=\$(cat "$run/storage.pid")
kill "\$old"
while [ -e /proc/\$old ] && [ "\$(cut -d' ' -f3 /proc/\$old/stat 2>/dev/null)" != Z ]; do
  sleep 0.01
done
"$run/start-storage.sh"
echo restart >>"$run/restarts"
EOF
chmod +x "$run/start-storage.sh" "$run/restart-storage.sh"

"$(prog q7x-busd)" 2>"$run/busd.err" & pids+=($!)
for _ in $(seq 50); do [ -S "$Q7X_BUS_PATH" ] && break; sleep 0.1; done
"$run/start-storage.sh"
"$platform" serve "$run/rules.json" >"$run/platform.out" 2>&1 & pids+=($!)
"$(prog zelctl)" watch >"$run/watch.out" 2>&1 & pids+=($!)
# Level 2: the log writer's lines, without one line per CAN frame.
Q7X_DEBUG_LEVEL=2 "$(prog q7x-host)" "$plugin" 2>"$run/host.err" & host=$!; pids+=($host)
rss() { awk '/^VmRSS/ { print $2 }' /proc/"$host"/status; }
while kill -0 "$host" 2>/dev/null; do echo "$(date +%s) $(rss)" >>"$run/rss.log"; sleep 1; done &
pids+=($!)

echo "== soak for ${seconds}s on $Q7X_BUS_PATH"
status=0
"$(prog zel-soak-load)" run "$seconds" \
  --every "6,0.5,$platform push 5 $run/cover.json >>$run/push.out 2>&1" \
  --every "${SOAK_RESTART:-24,1.5},$run/restart-storage.sh" >"$run/load.out" || status=1
kill -TERM "$host"; wait "$host" || status=1

# Figures. RSS at start is taken 5 s in, once the service has its rules.
load=$(cat "$run/load.out")
field() { echo "$load" | awk -v k="$1" '{ for (i = 1; i < NF; i++) if ($i == k) print $(i + 1) }'; }
rss_start=$(awk 'NR == 6 { print $2 }' "$run/rss.log")
rss_end=$(awk 'NF == 2 && $2 != "" { v = $2 } END { print v }' "$run/rss.log")
w_began=$(grep -c ' began ' "$run/watch.out" || true)
w_ended=$(grep -c ' ended ' "$run/watch.out" || true)
frames=0 open=0
for f in "$run"/logs/*.log; do
  [ -f "$f" ] || continue
  dump=$("$(prog zel-logdump)" "$f") || status=1
  frames=$((frames + $(echo "$dump" | grep -c '^offset' || true)))
  open=$((open + $(echo "$dump" | grep -c 'end -' || true)))
done
restarts=$(wc -l <"$run/restarts" 2>/dev/null || echo 0)
pushes=$(grep -c . "$run/push.out" 2>/dev/null || echo 0)

echo "host RSS: ${rss_start} kB at start, ${rss_end} kB at end"
echo "CAN frames sent: $(field frames); rule pushes: $pushes; storage restarts: $restarts"
echo "3215 records published (zelctl watch): began $w_began, ended $w_ended"
echo "3215 records received (load): began $(field began), ended $(field ended)," \
  "still running $(field running), unmatched $(field unmatched)"
echo "log frames: $frames ($open never closed) for $(field began) alerts reported"
[ "$w_began" = "$(field began)" ] && [ "$w_ended" = "$(field ended)" ] || status=1
[ "$frames" = "$(field began)" ] && [ "$open" = 0 ] || status=1
# Flat: no more than 256 kB above the start.
[ -n "$rss_start" ] && [ "$((rss_end - rss_start))" -le 256 ] || status=1
# Nothing of the run may outlive it, a storage peer in a restart included.
cleanup
trap - EXIT
# A killed shell loop's last `sleep 1` may still be finishing on its own: what
# is gone within two seconds was no leftover.
left=$(leftovers)
for _ in $(seq 20); do [ -n "$left" ] || break; sleep 0.1; left=$(leftovers); done
if [ -n "$left" ]; then
  echo "soak: processes left running:"; echo "$left"
  status=1
fi
if [ "$status" = 0 ]; then
  echo "soak: PASS (run folder $run)"
  rm -rf "$run"
else
  echo "soak: FAIL (run folder $run)"
fi
exit "$status"
