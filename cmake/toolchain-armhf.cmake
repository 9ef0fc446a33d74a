# Cross build for the player's 32-bit ARM processor with Debian's cross compiler
# (crossbuild-essential-armhf) against an armhf sysroot made by scripts/armhf.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(DEFINED ENV{LINKRIG_ARMHF_SYSROOT})
  set(_linkrig_sysroot $ENV{LINKRIG_ARMHF_SYSROOT})
else()
  set(_linkrig_sysroot /var/cache/linkrig/armhf-sysroot)
endif()
set(LINKRIG_ARMHF_SYSROOT ${_linkrig_sysroot} CACHE PATH "armhf sysroot (made by scripts/armhf.sh)")
# Compiler checks (try_compile) read this file again and need the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LINKRIG_ARMHF_SYSROOT)
if(NOT EXISTS ${LINKRIG_ARMHF_SYSROOT}/usr/include)
  message(FATAL_ERROR "No armhf sysroot in ${LINKRIG_ARMHF_SYSROOT}: run scripts/armhf.sh")
endif()

set(CMAKE_SYSROOT ${LINKRIG_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${LINKRIG_ARMHF_SYSROOT})
# Code generators (dbusxx-xml2cpp) run on the build machine; libraries, headers and CMake
# package configurations come from the sysroot only.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The host's pkg-config, reading the sysroot's .pc files and prefixing their paths with it.
set(ENV{PKG_CONFIG_LIBDIR}
  "${LINKRIG_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${LINKRIG_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${LINKRIG_ARMHF_SYSROOT})

# Test programs run under user-mode emulation, with the sysroot's loader and libraries; this
# also lets gtest_discover_tests list the tests at build time.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${LINKRIG_ARMHF_SYSROOT})

# GCC notes every std::vector of 64-bit elements whose argument passing changed
# in GCC 7.1; nothing here crosses that ABI boundary, so the notes are noise.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
