#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs each on its committed corpus.
#   ./scripts/fuzz.sh            60 s per target
#   ./scripts/fuzz.sh 3600       an hour per target (the record run)
#   FUZZ_TARGETS="fuzz_areas" ./scripts/fuzz.sh 30
#   FUZZ_RUNS=10000000 ./scripts/fuzz.sh 3600
#                                10 million inputs or an hour, whichever
#                                comes first
# New inputs go to build-fuzz/corpus/<target>; a crash leaves its input in
# build-fuzz/ and the script fails.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

seconds=${1:-60}
runs=${FUZZ_RUNS:-}
targets=${FUZZ_TARGETS:-"fuzz_signals fuzz_storage fuzz_provisioning fuzz_areas fuzz_datetime fuzz_rule_parser fuzz_bus fuzz_dbc"}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DAZ_FUZZ=ON -DAZ_BUILD_TESTS=OFF -DAZ_WERROR=ON \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
# shellcheck disable=SC2086
if ! cmake --build build-fuzz -j"$(nproc 2>/dev/null || echo 2)" --target $targets \
    >build-fuzz/build.log 2>&1; then
  cat build-fuzz/build.log >&2
  exit 1
fi

dict_for() {
  case $1 in
    fuzz_provisioning|fuzz_rule_parser|fuzz_areas) echo "-dict=fuzz/json.dict" ;;
  esac
}

for t in $targets; do
  bin=$(find build-fuzz -name "$t" -type f -perm -u+x -print -quit)
  work=build-fuzz/corpus/$t
  mkdir -p "$work"
  seeds=fuzz/corpus/$t
  [ -d "$seeds" ] || seeds=""
  echo "== $t for ${seconds}s${runs:+ or $runs inputs}"
  started=$SECONDS
  # The service keeps state across inputs, so leaks are checked once at exit
  # rather than after every input.
  # shellcheck disable=SC2046
  (cd build-fuzz && "../$bin" -max_total_time="$seconds" ${runs:+-runs="$runs"} -detect_leaks=0 -print_final_stats=1 \
     $(dict_for "$t" | sed 's|fuzz/|../fuzz/|') "../$work" ${seeds:+"../$seeds"} 2>&1) |
    grep -E 'stat::number_of_executed_units|stat::peak_rss_mb|ERROR|SUMMARY|Done' || true
  echo "   $((SECONDS - started)) s, corpus $(find "$work" -type f | wc -l) inputs"
  if ls build-fuzz/crash-* build-fuzz/leak-* build-fuzz/timeout-* >/dev/null 2>&1; then
    echo "fuzz: $t found a problem; inputs in build-fuzz/" >&2
    exit 1
  fi
done
