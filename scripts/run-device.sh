#!/usr/bin/env bash
# Builds the plug-in and the device's stand-ins, then runs the whole device on
# this PC on a private bus: broker, storage peer, platform peer serving the
# example rules, watchdog peer, the host with the plug-in, and zelctl watch
# printing the alert timeline. It plays the example scenario (the road of one
# alert: speed above 60 mph for more than 5 s, then down) and, beside it, a
# CAN trace for a J1939 rule pushed at the start; it stops by itself and
# leaves the decoded alert log and the timeline pictures in the run folder it
# names at the end. The rule set is linted first: a missing file or a rule
# set with errors stops it at once, with the reason. With --keep (or KEEP=1)
# the device keeps running after the scenario, for zelctl by hand, until
# Ctrl-C.
#
#   ./scripts/run-device.sh
#   RULES=my-rules.json SCENARIO=my-drive.scn ./scripts/run-device.sh
#   TRACE=drive.log ./scripts/run-device.sh     (any candump log, -l or -ta)
#   ./scripts/run-device.sh --keep              (or KEEP=1 ./scripts/run-device.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

die() { printf 'run-device.sh: %s\n' "$*" >&2; exit 1; }
keep=${KEEP:-0}
for arg in "$@"; do
  case $arg in
    --keep) keep=1 ;;
    -h|--help) sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//'; exit 0 ;;
    *) printf "run-device.sh: unknown option %s\nTry 'run-device.sh --help' for more.\n" "$arg" >&2
       exit 2 ;;
  esac
done
[ "$keep" = 0 ] || [ "$keep" = 1 ] || die "KEEP=$keep: give KEEP=1 or --keep"

# The fleet's rule set and its road when present, else the speeding example.
if [ -z "${RULES:-}" ]; then
  if [ -f examples/rules/fleet.json ] && [ -f examples/scenarios/road.scn ]; then
    RULES=examples/rules/fleet.json SCENARIO=${SCENARIO:-examples/scenarios/road.scn}
  else
    RULES=examples/rules/speeding.json
  fi
fi
SCENARIO=${SCENARIO:-examples/scenarios/speeding.scn}
# Every file it was given, before anything is built or started.
[ -f "$RULES" ] || die "RULES=$RULES: no such file"
[ -f "$SCENARIO" ] || die "SCENARIO=$SCENARIO: no such file"
[ -z "${TRACE:-}" ] || [ -f "$TRACE" ] || die "TRACE=$TRACE: no such file"

./scripts/setup.sh

bin=${BUILD_DIR:-build}
targets=(q7x-busd q7x-host AlertZelManage zel-storage zel-platform zel-watchdog zel-player
         zelctl zel-canlog)
[ -f tools/author/CMakeLists.txt ] && targets+=(zel-author)
cmake -S . -B "$bin" -DAZ_BUILD_TESTS=ON >/dev/null
cmake --build "$bin" -j"$(nproc 2>/dev/null || echo 2)" --target "${targets[@]}" >/dev/null
prog() {
  local p=$bin/bin/$1
  [ -x "$p" ] || die "$1 is not built in $bin/bin"
  echo "$p"
}
plugin=$(find "$bin" -name libAlertZelManage.so -print -quit)
[ -n "$plugin" ] || die "libAlertZelManage.so is not built in $bin"
zelctl=$(prog zelctl)
player=$(prog zel-player)

# The rules as the service will take them: errors stop the run here, other
# findings are shown and the run goes on.
if [ -x "$(dirname "$zelctl")/zel-author" ]; then
  lint=("$(dirname "$zelctl")/zel-author" lint "$RULES" --j1939 examples/j1939/signals.csv)
  "${lint[0]}" lint --help 2>/dev/null | grep -q -- --fail-on && lint+=(--fail-on error)
  printf '== %s\n' "lint $RULES"
  lint_status=0
  "${lint[@]}" || lint_status=$?
  case $lint_status in
    0) ;;
    1) die "the rules in $RULES have errors (above); fix them or name other RULES" ;;
    *) die "could not lint $RULES (above); not starting the device" ;;
  esac
fi

run=$(mktemp -d /tmp/zel-device.XXXXXX)
export Q7X_BUS_PATH=$run/bus.sock

# A recorded truck drive where the shared data lies beside the repository
# (read in place, never copied); otherwise a made-up drive of our own.
trace=${TRACE:-../shared/data/j1939/normal.log}
if [ ! -f "$trace" ]; then
  trace=$run/drive.log
  "$(prog zel-canlog)" "$trace"
fi
trace=$(cd "$(dirname "$trace")" && pwd)/$(basename "$trace")
# The trace plays beside the scenario from its start: the example scenarios
# send no J1939 frames from 1 s to 21 s, and none for oil pressure.
{
  echo "# Oil pressure (J19396 of the table) from the engine's EFL/P1 messages"
  echo "# of a CAN trace, played 1.5 times as fast as it was recorded."
  echo "0    j1939table $repo/examples/j1939/signals.csv"
  echo "0.5  cantrace $trace x1.5"
} >"$run/trace.scn"

# The broker goes last, so that no client is left talking to nothing; it runs
# in a session of its own, where a Ctrl-C meant for the run does not reach it.
pids=()
busd=
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  [ -z "$busd" ] || { kill "$busd" 2>/dev/null || true; wait "$busd" 2>/dev/null || true; }
}
trap cleanup EXIT
stop_asked=0
trap 'stop_asked=1' INT TERM

# Waits up to $2 seconds for a line matching $3 in file $1.
# A Ctrl-C meanwhile ends the run (the EXIT trap stops what was started).
wait_for() {
  for _ in $(seq $(($2 * 10))); do
    grep -q -- "$3" "$1" 2>/dev/null && return 0
    [ "$stop_asked" = 0 ] || exit 130
    sleep 0.1
  done
  return 1
}
say() { printf '\n== %s\n' "$*"; }

say "device on bus $Q7X_BUS_PATH: rules $RULES"
outs=("$run"/{platform,watchdog,watch,player,trace,storage}.out)
touch "${outs[@]}"
tail -q -n +1 -F "${outs[@]}" 2>/dev/null & pids+=($!)
setsid "$(prog q7x-busd)" >"$run/busd.out" 2>&1 & busd=$!
for _ in $(seq 50); do [ -S "$Q7X_BUS_PATH" ] && break; sleep 0.1; done
"$(prog zel-platform)" serve "$RULES" >"$run/platform.out" 2>&1 & pids+=($!)
"$(prog zel-watchdog)" >"$run/watchdog.out" 2>&1 & pids+=($!)
"$zelctl" watch >"$run/watch.out" 2>&1 & pids+=($!)
# Both players start their clocks when the service asks for its rules; the
# first answers the service's start requests.
"$player" "$SCENARIO" --wait-for 6796 >"$run/player.out" 2>&1 & road=$!
"$player" "$run/trace.scn" --wait-for 6796 --no-replies >"$run/trace.out" 2>&1 & drive=$!
pids+=("$road" "$drive")
wait_for "$run/player.out" 30 "waiting for message" ||
  die "zel-player did not start: $(tail -n 1 "$run/player.out")"
wait_for "$run/trace.out" 30 "waiting for message" ||
  die "zel-player did not start on the trace: $(tail -n 1 "$run/trace.out")"
"$(prog q7x-host)" "$plugin" >"$run/service.log" 2>&1 & host=$!
pids+=("$host")
# Storage comes up once the service listens, so its first announcement counts.
wait_for "$run/player.out" 30 "answered request" || true
"$(prog zel-storage)" "$run/logs" >"$run/storage.out" 2>&1 & pids+=($!)

wait_for "$run/platform.out" 30 "answered the area state" ||
  die "the service never asked for the area state; see $run/service.log"
clock=$(date '+%Y/%m/%d %H:%M:%S')
say "playing $SCENARIO; a J1939 rule on $trace"
"$zelctl" rules push 1 examples/rules/oil-pressure.json
if wait_for "$run/watch.out" 60 " began "; then
  sleep 1
  say "zelctl state"
  "$zelctl" state || true
  echo
fi
wait "$road" "$drive" || true
sleep 1

if [ "$keep" = 1 ] && [ "$stop_asked" = 0 ]; then
  say "the device keeps running; Ctrl-C stops it. From another terminal:"
  echo "  export Q7X_BUS_PATH=$Q7X_BUS_PATH"
  echo "  $(realpath "$zelctl") state"
  echo "  $(realpath "$zelctl") send speed 70 mph"
  echo "  $(realpath "$zelctl") watch"
  while [ "$stop_asked" = 0 ]; do sleep 1 & wait $! || true; done
fi

say "stopping the device"
kill -TERM "$host" 2>/dev/null || true  # a Ctrl-C may have stopped it already
status=0
wait "$host" || status=$?
sleep 0.5
cleanup
pids=() busd=
trap - EXIT

say "the alert log: zelctl log $run/logs"
"$zelctl" log "$run/logs" | tee "$run/alert-log.txt"

say "timeline pictures"
if [ -x "$(dirname "$zelctl")/zel-author" ]; then
  # Replays on the clock of this run, so that time windows agree.
  "$zelctl" replay "$RULES" --scenario "$SCENARIO" --clock "$clock" --svg "$run/road.svg" \
    >"$run/road-replay.txt" && echo "road.svg: $RULES over $SCENARIO"
  "$zelctl" replay examples/rules/oil-pressure.json --scenario "$run/trace.scn" --clock "$clock" \
    --svg "$run/j1939.svg" >"$run/j1939-replay.txt" &&
    echo "j1939.svg: examples/rules/oil-pressure.json over the trace"
else
  echo "skipped: zel-author is not built, so there is no replay to draw from"
fi

say "done (host exit status $status); everything is in $run:"
ls "$run"
exit "$status"
