# Debian's cross compiler for 32-bit ARM with hardware floating point
# (g++-arm-linux-gnueabihf); libraries of the target come from Debian's
# multiarch packages (libjsoncpp-dev:armhf, libgtest-dev:armhf), and the
# tests run under qemu-arm. Used by scripts/cross.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(AZ_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/CrossCommon.cmake)
# The target's loader and libraries from the multiarch root (/lib/${AZ_TRIPLET}),
# not from /usr/${AZ_TRIPLET}: the cross compiler's own libc there is an
# older build than the multiarch one, and a loader of one with the libc of the
# other crashes in the first pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /)
