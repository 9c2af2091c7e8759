#!/usr/bin/env bash
# install_test.sh BUILD CONSUMER_SRC LIBDIR PLUGINDIR
# Installs BUILD into a temporary prefix and checks what a user of the
# installed tree relies on: every program of BUILD/bin is there, no file
# names the build tree, the binaries find their libraries through $ORIGIN, a
# program builds against the SDK with find_package and with pkg-config, and
# the installed host runs the installed plug-in on a private bus.
set -euo pipefail
build=$(cd "$1" && pwd) consumer=$2 libdir=$3 plugindir=$4

work=$(mktemp -d /tmp/zel-install.XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "install_test: $*" >&2; exit 1; }

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; fail "install failed"; }

for program in "$build"/bin/*; do
  [ -x "$prefix/bin/${program##*/}" ] || fail "${program##*/} is in $build/bin but not installed"
done
plugin=$prefix/$plugindir/libAlertZelManage.so
[ -f "$plugin" ] || fail "no plug-in at $plugindir"
[ -f "$prefix/include/q7x/Common.h" ] || fail "no Common.h"
[ -f "$prefix/share/alertzelmanage/rules/fleet.json" ] || fail "no example rules"

named=$(grep -rlF "$build" "$prefix" || true)
[ -z "$named" ] || fail "these installed files name the build tree: $named"
for elf in "$prefix"/bin/* "$plugin"; do
  runpath=$(readelf -d "$elf" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
  case $runpath in
    '$ORIGIN/'*) ;;
    *) fail "${elf#"$prefix"/} has RUNPATH '$runpath', not below \$ORIGIN" ;;
  esac
done

echo "== a consumer with find_package"
cmake -S "$consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" >"$work/consumer.log" 2>&1 &&
  cmake --build "$work/consumer" >>"$work/consumer.log" 2>&1 ||
  { cat "$work/consumer.log"; fail "the consumer does not build with find_package"; }
echo "== a consumer with pkg-config"
flags=$(PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig pkg-config --cflags --libs q7xcommon) ||
  fail "pkg-config finds no q7xcommon"
# shellcheck disable=SC2086
c++ -std=c++17 -o "$work/ask-pc" "$consumer/main.cpp" $flags ||
  fail "the consumer does not build with pkg-config"

echo "== the installed host with the installed plug-in on a private bus"
export Q7X_BUS_PATH=$work/bus.sock
"$prefix/bin/q7x-busd" >"$work/busd.log" 2>&1 &
pids+=($!)
(cd "$work" && exec "$prefix/bin/q7x-host" "$plugin" >"$work/host.log" 2>&1) &
pids+=($!)
# Each consumer asks the service for its running alerts (3216) until it
# answers: an empty list, 8 bytes.
for ask in "$work/consumer/q7x-ask" "$work/ask-pc"; do
  answer=$("$ask" 3216 60) || { tail -n 5 "$work/host.log" >&2; fail "${ask##*/}: no answer"; }
  echo "${ask##*/}: $answer"
  [ "$answer" = "answered 3216 with 8 bytes" ] || fail "${ask##*/}: unexpected answer"
done
kill -TERM "${pids[1]}"
wait "${pids[1]}" || fail "the host did not stop cleanly: $(tail -3 "$work/host.log")"
grep -q "AlertZelManage" "$work/host.log" || fail "the host log shows no service"
echo "install_test: ok"
