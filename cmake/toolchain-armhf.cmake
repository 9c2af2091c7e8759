# Debian's cross compiler for 32-bit ARM with hardware floating point
# (g++-arm-linux-gnueabihf); libraries of the target come from Debian's
# multiarch packages (libjsoncpp-dev:armhf, libgtest-dev:armhf), and the
# tests run under qemu-arm. Used by scripts/cross.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(AZ_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/CrossCommon.cmake)
# 64-bit file offsets, inode numbers and directory cookies. The 32-bit calls
# fail with EOVERFLOW on large files, and under qemu on a 64-bit host already
# on reading a directory of ext4, whose cookies are 64-bit hashes.
set(CMAKE_C_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -D_FILE_OFFSET_BITS=64")
# -Wno-psabi: no notes that GCC 7.1 changed how some arguments are passed;
# everything here is built with one compiler.
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_CXX_FLAGS_INIT} -D_FILE_OFFSET_BITS=64 -Wno-psabi")
# The target's loader and libraries from the multiarch root (/lib/${AZ_TRIPLET}),
# not from /usr/${AZ_TRIPLET}: the cross compiler's own libc there is an
# older build than the multiarch one, and a loader of one with the libc of the
# other crashes in the first pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /)
