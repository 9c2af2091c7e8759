# What both ARM toolchain files share; AZ_TRIPLET names the target.
set(CMAKE_C_COMPILER ${AZ_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${AZ_TRIPLET}-g++)
# The compiler's own root, then the multiarch folders of the host's root
# (/usr/lib/${AZ_TRIPLET}, /usr/include), never the host's own libraries.
set(CMAKE_FIND_ROOT_PATH /usr/${AZ_TRIPLET} /)
set(CMAKE_LIBRARY_ARCHITECTURE ${AZ_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The same rounding as on the PC: a multiply and an add stay two operations
# unless the code asks for std::fma (GCC would fuse them on aarch64).
set(CMAKE_C_FLAGS_INIT -ffp-contract=off)
set(CMAKE_CXX_FLAGS_INIT -ffp-contract=off)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${AZ_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} /)
