#!/usr/bin/env bash
# Mutation testing of the service: applies each one-line mutant of the
# catalogue to a copy of the sources, rebuilds the component tests
# incrementally, runs them, and reports the score and every mutant that
# survived with its file and line.
#
#   scripts/mutate.sh                 every mutant of the catalogue
#   scripts/mutate.sh --sample 10     ten mutants drawn at random
#   scripts/mutate.sh m017 m204       the named mutants only
#
# Catalogue (tests/mutation/mutants.tsv), one mutant a line, tab-separated:
#   id  file:line  original text  replacement
# The file is relative to the service folder. The original text must stand on
# that line (or, after an edit moved it, within 30 lines of it and on no other
# line that near, so that the mutant cannot silently land on another
# statement); its first occurrence is replaced. Mutants that survive for a reason that no test can
# see are listed with the reason in tests/mutation/equivalent.tsv.
#
# The worktree is never touched: the sources are copied to build-mutate/tree
# and built there without optimisation (fast to compile). Exits non-zero when
# a mutant survives that is not listed as equivalent, when a mutant no longer
# applies or does not build, or when the tests fail without a mutant.
set -euo pipefail
# All of it in one function, so that bash has read the whole script before it
# runs: an edit during a long run can't change what the run does.
main() {
cd "$(dirname "$0")/.."
repo=$PWD
catalogue=$repo/tests/mutation/mutants.tsv
equivalent=$repo/tests/mutation/equivalent.tsv
work=$repo/build-mutate
tree=$work/tree
build=$work/build
service=basicservice/basebusiness/AlertZelManage
jobs=2
per_test_timeout=120

# The tests that run the service in the in-process harness, fastest first.
tests=(engine_test rules_test log_test signals_test j1939_test signals_alloc_test author_test)
targets=("${tests[@]}" zel-author)

sample=0
only=()
while [ $# -gt 0 ]; do
  case $1 in
    --sample) sample=$2; shift 2 ;;
    -h|--help) sed -n '2,21p' "$0"; exit 0 ;;
    m[0-9]*) only+=("$1"); shift ;;
    *) echo "mutate: unknown argument '$1' (see --help)" >&2; exit 2 ;;
  esac
done

mkdir -p "$tree"
# Time stamps come along, so that a second run rebuilds only what changed.
# A file edited while an earlier run was building can be older than the
# objects built from its old text: the files whose text differs from the
# copy get a new time stamp, so that they are rebuilt whatever their age.
mapfile -t edited < <(python3 - "$repo" "$tree" <<'EOF'
import filecmp, os, sys
repo, tree = sys.argv[1], sys.argv[2]
for top, dirs, files in os.walk(repo):
    rel = os.path.relpath(top, repo)
    dirs[:] = [d for d in dirs if not (rel == '.' and (d.startswith('build') or d == '.git'))]
    for f in files:
        path = os.path.normpath(os.path.join(rel, f))
        copy = os.path.join(tree, path)
        if os.path.exists(copy) and not filecmp.cmp(os.path.join(repo, path), copy, shallow=False):
            print(path)
EOF
)
tar -C "$repo" --exclude='./build*' --exclude=./.git -cf - . | tar -C "$tree" -xf -
for f in "${edited[@]}"; do touch "$tree/$f"; done
# A run cut off while a mutant stood leaves an object built from it: the
# restored source is older than that object, so make it newer.
if [ -f "$work/applied" ]; then
  touch "$(cat "$work/applied")"
  rm -f "$work/applied"
fi
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S "$tree" -B "$build" "${generator[@]}" -DAZ_BUILD_TESTS=ON -DCMAKE_BUILD_TYPE=None \
  -DCMAKE_CXX_FLAGS=-O0 -DCMAKE_C_FLAGS=-O0 -DAZ_MUTATION_PCH=ON >/dev/null

build_tests() {  # targets...; all of them when none are named
  local names=("$@")
  [ ${#names[@]} -gt 0 ] || names=("${targets[@]}")
  cmake --build "$build" -j"$jobs" --target "${names[@]}" >"$work/build.log" 2>&1
}

# Builds and runs one test program after the other until the first failure,
# so that a mutant the first program kills costs one link; 0 when all pass.
run_tests() {
  local t
  for t in "${tests[@]}"; do
    local exe
    if [ "$t" = author_test ]; then build_tests author_test zel-author; else build_tests "$t"; fi ||
      { echo "$t (build)"; return 1; }
    exe=$(find "$build/tests" -type f -name "$t" -perm -u+x | head -n1)
    (cd "$(dirname "$exe")" && timeout "$per_test_timeout" "$exe" --gtest_brief=1 \
      --gtest_fail_fast >"$work/test.log" 2>&1) || { echo "$t"; return 1; }
  done
  return 0
}

echo "mutate: building the component tests"
build_tests || { echo "mutate: the unmutated sources do not build, see $work/build.log" >&2; exit 1; }
if failed=$(run_tests); then :; else
  echo "mutate: $failed fails without a mutant, see $work/test.log" >&2
  exit 1
fi

# The mutants to run, as catalogue lines.
mapfile -t rows < <(grep -v '^#' "$catalogue" | grep -v '^$')
if [ ${#only[@]} -gt 0 ]; then
  pattern=$(printf '^%s\t|' "${only[@]}")
  mapfile -t rows < <(printf '%s\n' "${rows[@]}" | grep -E "${pattern%|}")
elif [ "$sample" -gt 0 ]; then
  mapfile -t rows < <(printf '%s\n' "${rows[@]}" | shuf -n "$sample")
fi

# Applies a mutant to the copy; prints the line it landed on.
apply() {  # file line original replacement
  python3 - "$@" <<'EOF'
import sys
path, line, orig, repl = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4]
lines = open(path).read().split('\n')
order = [line] + [n for d in range(1, 31) for n in (line - d, line + d)]
near = [n for n in order if 1 <= n <= len(lines) and orig in lines[n - 1]]
# Moved, and the text stands on more than one line near it: which one the
# mutant meant is a guess, so the row must be anchored again.
if not near:
    sys.exit(1)
if near[0] != line and len(near) > 1:
    sys.exit(2)
n = near[0]
lines[n - 1] = lines[n - 1].replace(orig, repl, 1)
open(path, 'w').write('\n'.join(lines))
print(n)
EOF
}

is_equivalent() { grep -q "^$1	" "$equivalent" 2>/dev/null; }

killed=0 survived=0 equiv=0 broken=0 total=${#rows[@]}
survivors=() problems=()
start=$SECONDS
for row in "${rows[@]}"; do
  IFS=$'\t' read -r id where orig repl <<<"$row"
  file=${where%%:*}
  line=${where##*:}
  src=$tree/$service/$file
  cp -p "$src" "$work/original"
  echo "$src" >"$work/applied"
  how=0
  at=$(apply "$src" "$line" "$orig" "$repl") || how=$?
  if [ "$how" -ne 0 ]; then
    broken=$((broken + 1))
    if [ "$how" -eq 2 ]; then
      problems+=("$id $file:$line: the original text moved and stands on several lines near it; anchor the row again")
    else
      problems+=("$id $file:$line: the original text is not there")
    fi
    continue
  fi
  if ! build_tests "${tests[0]}"; then
    broken=$((broken + 1)); problems+=("$id $file:$at: does not build")
    verdict="does not build"
  elif failed=$(run_tests); then
    if is_equivalent "$id"; then
      equiv=$((equiv + 1)); verdict="survived, equivalent"
    else
      survived=$((survived + 1)); survivors+=("$id $file:$at: '$orig' -> '$repl'")
      verdict="SURVIVED"
    fi
  else
    killed=$((killed + 1)); verdict="killed by $failed"
  fi
  echo "$id $file:$at $verdict"
  # Back to the original; a newer time stamp makes the next build recompile it.
  cp "$work/original" "$src"
  touch "$src"
  rm -f "$work/applied"
done
build_tests || true

echo "== mutation: $total mutants in $((SECONDS - start)) s"
echo "killed $killed, survived $survived, equivalent $equiv, not applied or not built $broken"
scored=$((killed + survived))
if [ "$scored" -gt 0 ]; then
  awk -v k="$killed" -v s="$scored" 'BEGIN { printf "score %.1f%% of non-equivalent mutants killed\n", 100 * k / s }'
fi
for s in "${survivors[@]}"; do echo "survived: $s"; done
for p in "${problems[@]}"; do echo "catalogue: $p"; done
[ "$survived" -eq 0 ] && [ "$broken" -eq 0 ]
}

main "$@"
