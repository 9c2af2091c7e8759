#!/usr/bin/env bash
# Builds and runs every test: once as built for use, once under
# AddressSanitizer and UndefinedBehaviorSanitizer; the bus and host tests
# once more under ThreadSanitizer; then a random sample of the mutants, each
# fuzz target briefly, a one-minute soak of the whole device, and the static
# analysis (clang-tidy and cppcheck) of every source.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)

run_suite() {  # build-dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -DAZ_BUILD_TESTS=ON -DAZ_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  ctest --test-dir "$dir" --output-on-failure -j"$jobs"
}

echo "== tests"
run_suite build
echo "== tests under AddressSanitizer and UndefinedBehaviorSanitizer (${SECONDS}s so far)"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DAZ_SANITIZE=address,undefined
echo "== bus and host tests under ThreadSanitizer (${SECONDS}s so far)"
cmake -S . -B build-tsan -DAZ_BUILD_TESTS=ON -DAZ_WERROR=ON -DAZ_SANITIZE=thread >/dev/null
cmake --build build-tsan -j"$jobs" --target platform_bus_test platform_misc_test \
  platform_process_test q7x-host q7x-busd q7xtestplugin
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan --output-on-failure -j"$jobs" -R '^platform_'
echo "== mutation testing, a sample of 8 mutants (${SECONDS}s so far)"
./scripts/mutate.sh --sample 8
echo "== fuzz targets, 10 s each (${SECONDS}s so far)"
./scripts/fuzz.sh 10
echo "== soak, 60 s (${SECONDS}s so far)"
./scripts/soak.sh 60
echo "== static analysis (${SECONDS}s so far)"
./scripts/static.sh
echo "== all done in ${SECONDS}s"
