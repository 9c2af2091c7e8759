#!/usr/bin/env bash
# Debian packages of the plug-in, the PC device and the SDK for one
# architecture, in build-package/:
#   ./scripts/package.sh amd64    this PC (build-package/amd64/)
#   ./scripts/package.sh armhf    32-bit ARM recorders, with the cross compiler
#   ./scripts/package.sh arm64    64-bit ARM recorders, with the cross compiler
# A Release build with tests off, installed below /usr; Depends come from the
# binaries (dpkg-shlibdeps). Each package is checked with dpkg-deb and
# lintian (the tags left are explained in the README); the amd64 device is
# unpacked into a scratch root and run from there.
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
  amd64) toolchain=() ;;
  armhf) toolchain=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake) ;;
  arm64) toolchain=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake) ;;
  *)
    echo "usage: $0 amd64|armhf|arm64" >&2
    exit 2
    ;;
esac
arch=$1
# dpkg-shlibdeps, the file type CPack asks for, and the package checker.
./scripts/setup.sh dpkg-dev file lintian
case $arch in
  armhf) ./scripts/cross.sh armhf --setup ;;
  arm64) ./scripts/cross.sh aarch64 --setup ;;
esac

out=build-package
build=$out/$arch
mkdir -p "$build"
# Libraries in Debian's multiarch folder of the target (CMake picks it by
# itself only for native builds).
multiarch=$(dpkg-architecture -a"$arch" -qDEB_HOST_MULTIARCH 2>/dev/null)
cmake -S . -B "$build" "${toolchain[@]}" -DCMAKE_BUILD_TYPE=Release -DAZ_BUILD_TESTS=OFF \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$multiarch" >/dev/null
if ! cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" >"$build/build.log" 2>&1; then
  cat "$build/build.log" >&2
  exit 1
fi
# dpkg-shlibdeps reads the target's binaries with the target's objdump and
# looks for their libraries in the target's multiarch folders.
rm -f "$out"/*_"$arch".deb
(cd "$build" && DEB_HOST_ARCH=$arch cpack -G DEB -B "$(pwd)/../" >cpack.log 2>&1) ||
  { cat "$build/cpack.log" >&2; exit 1; }
rm -rf "$out/_CPack_Packages"
debs=("$out"/*_"$arch".deb)
[ -f "${debs[0]}" ] || { echo "package: cpack wrote no package" >&2; exit 1; }

for deb in "${debs[@]}"; do
  echo "== ${deb##*/}"
  dpkg-deb --field "$deb" Package Version Architecture Depends Suggests
  [ "$(dpkg-deb --field "$deb" Architecture)" = "$arch" ] ||
    { echo "package: ${deb##*/} is not for $arch" >&2; exit 1; }
done

# Tags left, explained in the README: the programs have --help, not manual
# pages; the first release closes no Debian bug.
suppress=no-manual-page,initial-upload-closes-no-bugs
lintian --fail-on error,warning --tag-display-limit 0 --suppress-tags "$suppress" "${debs[@]}" ||
  { echo "package: lintian found errors or warnings" >&2; exit 1; }

# The amd64 device, unpacked into a scratch root, with nothing of the build:
# the host loads the plug-in there and answers zelctl on a private bus.
if [ "$arch" = amd64 ]; then
  root=$(mktemp -d /tmp/zel-deb.XXXXXX)
  pids=()
  cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$root"
  }
  trap cleanup EXIT
  for deb in "${debs[@]}"; do dpkg -x "$deb" "$root"; done
  export Q7X_BUS_PATH=$root/bus.sock
  "$root/usr/bin/q7x-busd" >"$root/busd.log" 2>&1 &
  pids+=($!)
  for _ in $(seq 100); do [ -S "$Q7X_BUS_PATH" ] && break; sleep 0.1; done
  plugin=$(find "$root/usr/lib" -name libAlertZelManage.so)
  (cd "$root" && exec usr/bin/q7x-host "$plugin" >host.log 2>&1) &
  pids+=($!)
  # zelctl asks once; the service may not listen yet.
  answered=
  for _ in $(seq 30); do
    "$root/usr/bin/zelctl" state --timeout 1 2>/dev/null && { answered=1; break; }
  done
  if [ -z "$answered" ]; then
    cat "$root/busd.log" "$root/host.log" >&2
    echo "package: the unpacked device did not answer" >&2
    exit 1
  fi
  echo "package: the unpacked device runs"
fi
ls -l "${debs[@]}"
