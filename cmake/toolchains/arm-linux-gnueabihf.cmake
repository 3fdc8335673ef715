# 32-bit ARM with hardware floating point, by Debian's cross compiler; programs run under qemu-user.
# Libraries come from the folder that scripts/arm-sysroot makes, and from nowhere else.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# No notes on how it passed arguments before its version 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

get_filename_component(sysroot "${CMAKE_CURRENT_LIST_DIR}/../../build/arm-sysroot" ABSOLUTE)
set(VALMERE_SYSROOT ${sysroot} CACHE PATH "What a 32-bit ARM system holds")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VALMERE_SYSROOT)
set(CMAKE_SYSROOT ${VALMERE_SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
