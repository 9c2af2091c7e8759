#!/usr/bin/env bash
# Builds Release with the benchmarks, runs them all and prints every figure
# against its target (PASS / MISS / SKIP). Each figure is a ratio against a
# baseline measured in the same run, or a whole-process figure.
#   ./scripts/bench.sh
# Writes build-bench/bench-<program>.json (Google Benchmark's output),
# build-bench/process-figures.json and build-bench/bench-results.json (every
# figure with its baseline, target and verdict, and the machine).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

out=build-bench
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=Release -DAZ_BUILD_BENCH=ON -DAZ_BUILD_TESTS=OFF -DAZ_WERROR=ON \
  >/dev/null
if ! cmake --build "$out" -j"$jobs" >"$out/build.log" 2>&1; then
  cat "$out/build.log" >&2
  exit 1
fi
bin() { find "$out" -name "$1" -type f -perm -u+x -print -quit; }
plugin=$(find "$out" -name libAlertZelManage.so -print -quit)
busd=$(bin q7x-busd)
host=$(bin q7x-host)

run=$(mktemp -d /tmp/zel-bench.XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$run"
}
trap cleanup EXIT
export Q7X_DEBUG_LEVEL=1

# The two single-thread programs repeat each benchmark, interleaved, and their
# figures are medians of CPU time; the bus benchmarks pair their two buses
# themselves.
for b in alert_pass_bench can_frame_bench bus_relay_bench; do
  echo "== $b"
  args=()
  [ "$b" = bus_relay_bench ] || args=(--benchmark_repetitions=9 --benchmark_min_time=0.2
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true)
  "$(bin "$b")" "${args[@]}" --benchmark_out="$out/bench-$b.json" \
    --benchmark_out_format=json 2>"$run/$b.err" | grep -E '^BM_' | grep -v -E '_(mean|stddev|cv) ' \
    || true
done

wait_for_socket() { for _ in $(seq 100); do [ -S "$1" ] && return 0; sleep 0.05; done; return 1; }

# Syscalls of the relay process per relayed message, messages paced at 2,000
# a second so that each one is relayed on its own, as at the CAN rate.
syscalls_per_message() {  # bare|bus
  local kind=$1 sock=$run/$1.sock relay count=4000
  if [ "$kind" = bare ]; then relay=$(bin az-bare-relay); else relay=$busd; fi
  strace -c -f -o "$run/$kind.strace" "$relay" "$sock" 2>/dev/null &
  local tracer=$!
  wait_for_socket "$sock"
  "$(bin az-bus-load)" "$kind" "$sock" "$count" 2000 1 >/dev/null
  kill -INT "$(pgrep -P "$tracer")"
  wait "$tracer" 2>/dev/null || true
  awk -v n="$count" '$NF == "total" { printf "%.2f", $(NF-2) / n }' "$run/$kind.strace"
}
echo "== syscalls per relayed message (strace -c -f on the relay)"
if command -v strace >/dev/null; then
  sc_bare=$(syscalls_per_message bare)
  sc_bus=$(syscalls_per_message bus)
  syscalls="{\"bare\": $sc_bare, \"bus\": $sc_bus}"
else
  syscalls='{"note": "strace is missing"}'
fi

# The host with the plug-in and a broker of its own process, no other peer:
# CPU of all its threads over 10 s (schedstat, nanoseconds) and its RSS.
echo "== idle host with the plug-in (10 s)"
export Q7X_BUS_PATH=$run/idle.sock
"$busd" 2>"$run/idle-busd.log" & pids+=($!)
wait_for_socket "$Q7X_BUS_PATH"
"$host" "$plugin" 2>"$run/idle-host.log" & host_pid=$!; pids+=($host_pid)
sleep 3
cpu_ns() { cat /proc/"$host_pid"/task/*/schedstat | awk '{ s += $1 } END { print s }'; }
c0=$(cpu_ns); t0=$(date +%s%N)
sleep 10
c1=$(cpu_ns); t1=$(date +%s%N)
rss_kb=$(awk '/^VmRSS/ { print $2 }' /proc/"$host_pid"/status)
idle=$(awk -v c="$((c1 - c0))" -v t="$((t1 - t0))" -v r="$rss_kb" \
  'BEGIN { printf "{\"cpu_pct\": %.4f, \"rss_mb\": %.2f}", 100 * c / t, r / 1024 }')
kill -TERM "$host_pid"; wait "$host_pid" 2>/dev/null || true
unset Q7X_BUS_PATH

# Signal message to alert record over real processes: broker, storage peer,
# platform peer serving an ATLEAST 0 rule on the speed, the host, and
# zel-soak-load changing the speed at random moments of the service's cycle.
echo "== signal -> 3215 over real processes (200 changes)"
export Q7X_BUS_PATH=$run/lat.sock
echo '{"DUMMY100": [{"ID": 1, "ATLEAST": 0, "SPEED": {"GT": 60.0}}], "CIRCLE100": [],
       "LINE100": [], "POLY100": [], "RECT100": []}' >"$run/lat-rules.json"
"$busd" 2>"$run/lat-busd.log" & pids+=($!)
wait_for_socket "$Q7X_BUS_PATH"
"$(bin zel-storage)" "$run/lat-logs" >"$run/lat-storage.out" 2>&1 & pids+=($!)
"$(bin zel-platform)" serve "$run/lat-rules.json" >"$run/lat-platform.out" 2>&1 & pids+=($!)
"$host" "$plugin" 2>"$run/lat-host.log" & pids+=($!)
if line=$("$(bin zel-soak-load)" latency 200 2>"$run/lat-load.err"); then
  latency=$(echo "$line" | awk '{ printf "{\"p50_ms\": %s, \"p99_ms\": %s, \"max_ms\": %s}", $5, $7, $9 }')
else
  latency="{\"note\": \"$(head -1 "$run/lat-load.err")\"}"
fi
unset Q7X_BUS_PATH
# zelctl replay of the 30 s truck drive (where the shared data lies beside
# the repository) against the drive's own duration: best of three.
replay='{"note": "not yet measured"}'
trace=../shared/data/j1939/normal.log
zelctl=$(bin zelctl)
if [ -f "$trace" ] && [ -n "$zelctl" ] && "$zelctl" --help 2>&1 | grep -q replay; then
  echo "== zelctl replay of $trace"
  best=
  for _ in 1 2 3; do
    t0=$(date +%s%N)
    "$zelctl" replay examples/rules/oil-pressure.json --j1939 examples/j1939/signals.csv \
      --can "$trace" >"$run/replay.out" 2>&1
    t=$(( $(date +%s%N) - t0 ))
    [ -z "$best" ] || [ "$t" -lt "$best" ] && best=$t
  done
  duration=$(tail -1 "$trace" | tr -d '()' | awk '{ print $1 }')
  replay=$(awk -v t="$best" -v d="$duration" \
    'BEGIN { printf "{\"seconds\": %.3f, \"trace_s\": %.3f}", t / 1e9, d }')
fi

# Backtest of full-rate CAN (8,000 frames/s): zel-canlog writes its made-up
# drive (an hour; BACKTEST_SECONDS=60 for a quick look) and awk repeats each
# frame to the full rate. Frames per second per core against the bare loop
# that only parses the lines and decodes them with the table, and the
# speed-up of two jobs over one on two copies of the drive.
backtest='{"note": "not yet measured"}'
author=$(bin zel-author); canlog=$(bin zel-canlog); loop=$(bin az-can-decode-loop)
if [ -n "$author" ] && [ -n "$canlog" ] && [ -n "$loop" ]; then
  seconds=${BACKTEST_SECONDS:-3600}
  echo "== backtest of $seconds s of CAN at 8000 frames/s"
  "$canlog" --seconds "$seconds" "$run/slow.log" >/dev/null
  frames=$(wc -l <"$run/slow.log")
  copies=$(( 8000 * seconds / frames + 1 ))
  mkdir -p "$run/drives"
  awk -v k="$copies" '{ t = substr($1, 2, length($1) - 2);
    for (i = 0; i < k; ++i) printf "(%.6f) %s %s\n", t + i * 0.000001, $2, $3 }' \
    "$run/slow.log" >"$run/drives/a.log"
  cp "$run/drives/a.log" "$run/drives/b.log"
  echo '[{"ID": 1, "ATLEAST": 1, "J19396": {"LT": 240.0}}]' >"$run/bt-rules.json"
  table=examples/j1939/signals.csv
  read -r n bare _ < <("$loop" "$table" "$run/drives/a.log")
  t0=$(date +%s%N)
  "$author" backtest "$run/bt-rules.json" "$run/drives/a.log" --j1939 "$table" --jobs 1 >/dev/null
  one=$(( $(date +%s%N) - t0 ))
  t0=$(date +%s%N)
  "$author" backtest "$run/bt-rules.json" "$run/drives" --j1939 "$table" --jobs 1 >/dev/null
  serial=$(( $(date +%s%N) - t0 ))
  t0=$(date +%s%N)
  "$author" backtest "$run/bt-rules.json" "$run/drives" --j1939 "$table" --jobs 2 >/dev/null
  parallel=$(( $(date +%s%N) - t0 ))
  backtest=$(awk -v n="$n" -v bare="$bare" -v one="$one" -v s="$serial" -v p="$parallel" \
    'BEGIN { printf "{\"frames\": %d, \"frames_per_s\": %.0f, \"bare_frames_per_s\": %.0f, \"vs_bare\": %.2f, \"speedup_2_jobs\": %.2f}", n, n / (one / 1e9), n / bare, (n / (one / 1e9)) / (n / bare), s / p }')
  echo "backtest: $backtest"
  rm -rf "$run/drives" "$run/slow.log"
fi

printf '{"syscalls": %s, "idle": %s, "latency": %s, "replay": %s, "backtest": %s}\n' \
  "$syscalls" "$idle" "$latency" "$replay" "$backtest" >"$out/process-figures.json"
python3 scripts/bench_summary.py "$out"
echo "figures: $out/bench-results.json"
