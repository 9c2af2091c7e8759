#!/usr/bin/env bash
# Builds the plug-in, the platform stand-in, the peers, the tools and the
# tests for an ARM recorder with Debian's cross compilers, and runs the tests
# under qemu-user.
#   ./scripts/cross.sh armhf      32-bit ARM, hard float (build-armhf/)
#   ./scripts/cross.sh aarch64    64-bit ARM (build-aarch64/)
#   ./scripts/cross.sh armhf --setup    only install what the build needs
# Installs what is missing: the target architecture in dpkg, the cross
# compiler, qemu-user, and jsoncpp and GoogleTest of the target from Debian's
# multiarch packages.
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
  armhf) arch=armhf triplet=arm-linux-gnueabihf qemu=qemu-arm ;;
  aarch64) arch=arm64 triplet=aarch64-linux-gnu qemu=qemu-aarch64 ;;
  *)
    echo "usage: $0 armhf|aarch64" >&2
    exit 2
    ;;
esac
./scripts/setup.sh

sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
packages=("g++-$triplet" qemu-user "libc6:$arch" "libstdc++6:$arch" "libjsoncpp-dev:$arch"
          "libgtest-dev:$arch" "libgmock-dev:$arch")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "cross: installing ${missing[*]}"
  dpkg --print-foreign-architectures | grep -qx "$arch" || $sudo_cmd dpkg --add-architecture "$arch"
  export DEBIAN_FRONTEND=noninteractive
  # A list that fails to come (a mirror in sync) leaves the others usable.
  $sudo_cmd apt-get update -qq || echo "cross: some package lists were not fetched; going on"
  $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# --setup: only the cross compiler and the target's libraries (package.sh).
[ "${2:-}" = --setup ] && exit 0

build=build-$1
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="cmake/toolchain-$1.cmake" -DAZ_BUILD_TESTS=ON -DAZ_WERROR=ON \
  >/dev/null
if ! cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" >"$build/build.log" 2>&1; then
  cat "$build/build.log" >&2
  exit 1
fi
file "$build/basicservice/basebusiness/AlertZelManage/libAlertZelManage.so" 2>/dev/null || true

# ctest runs each test program through qemu (the toolchain's emulator, with
# the target's loader and libraries from the multiarch root). A test that
# starts programs of its own starts them through qemu too: the kernel here
# runs no ARM binary by itself.
export QEMU_LD_PREFIX=/
Q7X_SPAWN_PREFIX="$(command -v "$qemu") -L /"
export Q7X_SPAWN_PREFIX
# Left out here, run in the native suite: the cases where an ARM program
# starts another ARM program by itself (zelctl execs zel-author; the author
# test runs it through the shell), which only a kernel that runs ARM binaries
# could follow. plugin_exports reads the plug-in with the host's nm.
export GTEST_FILTER='-AuthorProgram.ExitStatusAndMessage:Tools.LintAndReplayAreZelAuthorsBesideZelctl'
ctest --test-dir "$build" --output-on-failure -j"$(nproc 2>/dev/null || echo 2)" --timeout 900
