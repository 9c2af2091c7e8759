#!/usr/bin/env bash
# Static analysis of the whole tree: clang-tidy with .clang-tidy and cppcheck
# with cppcheck-suppressions.txt, over every source the build compiles
# (platform, service, formats, peers, tools, sim, tests, bench, fuzz).
# Prints each finding once, then the counts by check; exits 1 on any finding.
# JOBS=n sets the parallel jobs (default 2). Logs stay in build-static/.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

jobs=${JOBS:-2}
dir=build-static
CC=clang CXX=clang++ cmake -S . -B "$dir" -DAZ_BUILD_TESTS=ON -DAZ_BUILD_BENCH=ON \
  -DAZ_FUZZ=ON -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null

# One entry per source: the bus fuzz target compiles some platform sources a
# second time, which would only analyse them twice.
mkdir -p "$dir/static"
python3 - "$dir/compile_commands.json" "$dir/static/compile_commands.json" <<'PY'
import json, sys
seen, out = set(), []
for entry in json.load(open(sys.argv[1])):
    if entry["file"] not in seen:
        seen.add(entry["file"])
        out.append(entry)
json.dump(out, open(sys.argv[2], "w"), indent=1)
print(f"static: {len(out)} sources")
PY

root=$(pwd)/
finding='^[^ :]+:[0-9]+:[0-9]+: (warning|error): .*\[[A-Za-z0-9.,-]+\]$'

# Both analysers print a finding in a header once per source that includes it.
report() {  # name, raw log
  local name=$1 log=$2 list="$dir/$1-findings.txt"
  sed -e 's/\x1b\[[0-9;]*m//g' -e "s|^$root||" "$log" | grep -E "$finding" | sort -u >"$list" || true
  cat "$list"
  echo "== $name: $(wc -l <"$list") findings"
  grep -oE '\[[A-Za-z0-9.,-]+\]$' "$list" | sort | uniq -c | sort -rn || true
}

start=$SECONDS
run-clang-tidy -j"$jobs" -quiet -p "$dir/static" >"$dir/clang-tidy.log" 2>&1 || true
tidy_seconds=$((SECONDS - start))
report clang-tidy "$dir/clang-tidy.log"

start=$SECONDS
cppcheck --project="$dir/static/compile_commands.json" -j"$jobs" --quiet \
  --std=c++17 --enable=warning,style,performance,portability \
  --library=posix --library=googletest --inline-suppr \
  --suppressions-list=cppcheck-suppressions.txt \
  --template='{file}:{line}:{column}: {severity}: {message} [{id}]' \
  >"$dir/cppcheck.log" 2>&1 || true
cppcheck_seconds=$((SECONDS - start))
# cppcheck's severities (style, performance, ...) all count as warnings here.
sed -i -E 's/^([^ :]+:[0-9]+:[0-9]+: )(style|performance|portability|information): /\1warning: /' "$dir/cppcheck.log"
report cppcheck "$dir/cppcheck.log"

total=$(($(wc -l <"$dir/clang-tidy-findings.txt") + $(wc -l <"$dir/cppcheck-findings.txt")))
echo "== static analysis: $total findings (clang-tidy ${tidy_seconds}s, cppcheck ${cppcheck_seconds}s)"
[ "$total" -eq 0 ]
