# Toolchain for a Debian architecture other than this machine's: Debian's cross compiler, a sysroot
# with that architecture's libraries, and QEMU, which runs what was built. tools/cross makes the
# sysroot. A file beside this one sets, for its architecture:
#
#   CROSS_ARCH       Debian's name of the architecture
#   CROSS_TRIPLET    the prefix of the compiler and the name of the library folders
#   CROSS_PROCESSOR  the machine as `uname -m` tells it
#   CROSS_QEMU       QEMU's name of it

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CROSS_PROCESSOR})
cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${CROSS_ARCH})
set(CMAKE_LIBRARY_ARCHITECTURE ${CROSS_TRIPLET})
set(CMAKE_CXX_COMPILER ${CROSS_TRIPLET}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CROSS_QEMU};-L;${CMAKE_SYSROOT})

# Libraries are the target's; programs, protoc among them, are this machine's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${CROSS_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
