#!/usr/bin/env bash
# Line and branch coverage of the service and of the platform stand-in, from
# the whole test suite built with --coverage in build-coverage.
#
#   scripts/coverage.sh           summaries on the terminal
#   scripts/coverage.sh --html    also build-coverage/coverage/index.html
#
# Branches are counted as gcc sees them, without those that only exception
# handling adds (--exclude-throw-branches) and without the branches of
# inlined library code (--exclude-unreachable-branches); the service's own
# conditions remain.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh

html=0
case ${1:-} in
  --html) html=1 ;;
  "") ;;
  *) echo "coverage: unknown argument '$1' (use --html or nothing)" >&2; exit 2 ;;
esac

dir=build-coverage
# Atomic counts: the service's worker and the host's threads run the same code
# at once, and racing counts can come out negative, which gcovr refuses.
cmake -S . -B "$dir" -DAZ_BUILD_TESTS=ON -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic -O0" \
  -DCMAKE_C_FLAGS="--coverage -fprofile-update=atomic -O0" \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$dir" -j2
find "$dir" -name '*.gcda' -delete
# The coverage runtime exports symbols of its own from the plug-in, and
# writes the build tree's path into every binary for its counts, which the
# install test refuses in an installed file.
ctest --test-dir "$dir" -j2 --output-on-failure -E '^(plugin_exports|install_test)$'

report() {  # title, source folder, extra gcovr args...
  local title=$1 folder=$2; shift 2
  echo "== $title"
  gcovr --root . --object-directory "$dir" --filter "$folder" \
    --exclude-throw-branches --exclude-unreachable-branches "$@"
}
report "service: lines" basicservice/ --sort-percentage
report "service: branches" basicservice/ --branches --sort-percentage
report "platform stand-in: lines" platform/src/ --sort-percentage
report "platform stand-in: branches" platform/src/ --branches --sort-percentage
if [ "$html" -eq 1 ]; then
  mkdir -p "$dir/coverage"
  gcovr --root . --object-directory "$dir" --filter basicservice/ --filter platform/src/ \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details "$dir/coverage/index.html"
  echo "coverage: $dir/coverage/index.html"
fi
