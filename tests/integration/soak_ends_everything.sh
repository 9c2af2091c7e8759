#!/bin/sh
# A short soak whose last storage restart is under way when the load ends
# (at 14.9 s of 15, in a phase without alerts): the soak must pass, and no
# process of its run may be left once it has exited.
# Usage: soak_ends_everything.sh SOURCE_DIR BUILD_DIR
set -u
src=$1 bin=$2
out=$(BUILD_DIR=$bin SOAK_RESTART=100,14.9 "$src/scripts/soak.sh" 15 2>&1)
status=$?
echo "$out" | tail -n 8
run=$(echo "$out" | sed -n 's/^== soak for .* on \(.*\)\/bus.sock$/\1/p')
[ -n "$run" ] || { echo "no run folder named"; exit 1; }
# The pattern's bracket keeps grep from finding its own command line.
pattern="zel-soak[.]${run##*zel-soak.}"
left=$(grep -ls "$pattern" /proc/[0-9]*/cmdline 2>/dev/null || true)
if [ -n "$left" ]; then
  echo "left running:"; for f in $left; do tr '\0' ' ' <"$f"; echo; done
  exit 1
fi
echo "$out" | grep -q 'storage restarts: 1$' || { echo "the restart did not run"; exit 1; }
exit "$status"
