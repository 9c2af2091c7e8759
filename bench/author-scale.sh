#!/usr/bin/env bash
# zel-author at scale: lint time and memory for rule sets of 2,000, 16,000 and
# 400,000 rules (generated here, never kept), and the memory of a replay of
# ten device days. Usage: bench/author-scale.sh [ZEL_AUTHOR]  (default: a
# Release build in build-bench/ or build/).
set -euo pipefail
cd "$(dirname "$0")/.."
author=${1:-}
for b in build-bench/bin/zel-author build-rel/bin/zel-author build/bin/zel-author; do
  [ -z "$author" ] && [ -x "$b" ] && author=$b
done
[ -x "$author" ] || { echo "author-scale: no zel-author built; give its path" >&2; exit 2; }
command -v /usr/bin/time >/dev/null || { echo "author-scale: needs /usr/bin/time (apt-get install time)" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Rules of every kind the service reads: speed, inputs, temperatures, J1939,
# some with a window; about 110 bytes each.
gen() {
  python3 - "$1" "$2" <<'PY'
import json, sys
n, out = int(sys.argv[1]), sys.argv[2]
kinds = [("SPEED", "GT", 60.5), ("IN3", "EQ", 1.0), ("HDTEMP", "GT", 70.5),
         ("SYSVOLT", "LT", 11.5), ("J19391", "GT", 1500.5)]
rules = []
for i in range(n):
    event, op, value = kinds[i % len(kinds)]
    rule = {"ID": i + 1, "ATLEAST": 5, event: {op: value}}
    if i % 7 == 0:
        rule["STARTIME"], rule["ENDTIME"] = "0/0/0 08:00:00", "0/0/0 18:00:00"
    rules.append(rule)
json.dump({"DUMMY100": rules}, open(out, "w"))
PY
}

measure() {  # LABEL ARGS...: seconds and peak RSS
  local label=$1; shift
  /usr/bin/time -f "%e %M" -o "$work/time" "$author" "$@" >/dev/null 2>&1 || true
  read -r secs kb < <(tail -n 1 "$work/time")
  printf '%-34s %8.2f s %8d kB\n' "$label" "$secs" "$kb"
}

echo "zel-author: $author"
for n in 2000 16000 400000; do
  gen "$n" "$work/r$n.json"
  measure "lint, $n rules" lint "$work/r$n.json"
done
measure "replay, --until 864000 (10 days)" replay examples/rules/fleet.json \
  --scenario examples/scenarios/road.scn --until 864000
