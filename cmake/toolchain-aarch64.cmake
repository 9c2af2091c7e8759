# Debian's cross compiler for 64-bit ARM (g++-aarch64-linux-gnu); libraries
# of the target come from Debian's multiarch packages (libjsoncpp-dev:arm64,
# libgtest-dev:arm64), and the tests run under qemu-aarch64. Used by
# scripts/cross.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(AZ_TRIPLET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/CrossCommon.cmake)
# The target's loader and libraries from the multiarch root (/lib/${AZ_TRIPLET}),
# not from /usr/${AZ_TRIPLET}: the cross compiler's own libc there is an
# older build than the multiarch one, and a loader of one with the libc of the
# other crashes in the first pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)
