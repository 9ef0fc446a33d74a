#!/usr/bin/env bash
# Builds linkrig for the player's 32-bit ARM processor the way a Buildroot or Yocto recipe
# does (cmake-package, cmake.bbclass): configured with a toolchain file of theirs, not
# cmake/toolchain-armhf.cmake; tests and static archives off, the shared libraries of the armhf
# sysroot that scripts/armhf.sh makes; the recipe's own options, read from
# dist/buildroot/package/linkrig/linkrig.mk; then `cmake --install` with DESTDIR into a staging
# root, $LINKRIG_RECIPE_BUILD/stage (default build/recipe/stage). tests/package/test_recipes.py
# checks it and the recipes against it.
source "$(dirname "$0")/armhf.sh"

RECIPE_BUILD=${LINKRIG_RECIPE_BUILD:-$BUILD/recipe}
MK=$ROOT/dist/buildroot/package/linkrig/linkrig.mk

ensure_sysroot
start=$(now)
mkdir -p "$RECIPE_BUILD"
# What Buildroot's toolchainfile.cmake sets for a Cortex-A7 target without 64-bit time in its
# C library's configuration: the compilers, the target's flags, the sysroot as the place of
# every library, header and package configuration, and the build machine's programs.
cat > "$RECIPE_BUILD/toolchainfile.cmake" <<TOOLCHAIN
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER $TRIPLET-gcc)
set(CMAKE_CXX_COMPILER $TRIPLET-g++)
set(CMAKE_C_FLAGS "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FILE_OFFSET_BITS=64 -mcpu=cortex-a7 -O2 -g0" CACHE STRING "")
set(CMAKE_CXX_FLAGS "\${CMAKE_C_FLAGS}" CACHE STRING "")
set(CMAKE_C_FLAGS_RELEASE " -DNDEBUG" CACHE STRING "")
set(CMAKE_CXX_FLAGS_RELEASE " -DNDEBUG" CACHE STRING "")
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
set(CMAKE_INSTALL_SO_NO_EXE 0)
set(CMAKE_SYSROOT $SYSROOT)
set(CMAKE_FIND_ROOT_PATH $SYSROOT)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} $SYSROOT)
TOOLCHAIN

# The recipe's options (one line), and those cmake-package adds to every package.
read -r -a options <<< "$(sed -n 's/^LINKRIG_CONF_OPTS = //p' "$MK")"
[ ${#options[@]} -gt 0 ] || { echo "recipe: no LINKRIG_CONF_OPTS in $MK" >&2; exit 1; }
# Buildroot's pkg-config looks in the staging directory only.
PKG_CONFIG_LIBDIR=$SYSROOT/usr/lib/$TRIPLET/pkgconfig:$SYSROOT/usr/share/pkgconfig \
  cmake -S "$ROOT" -B "$RECIPE_BUILD/build" -DCMAKE_TOOLCHAIN_FILE="$RECIPE_BUILD/toolchainfile.cmake" \
  -DCMAKE_INSTALL_PREFIX=/usr -DBUILD_SHARED_LIBS=ON -DBUILD_TESTING=OFF -DBUILD_DOC=OFF \
  -DBUILD_EXAMPLES=OFF -DCMAKE_COLOR_MAKEFILE=OFF "${options[@]}" -DLINKRIG_WERROR=ON >/dev/null
cmake --build "$RECIPE_BUILD/build" -j"$JOBS"
rm -rf "$RECIPE_BUILD/stage"
DESTDIR=$RECIPE_BUILD/stage cmake --install "$RECIPE_BUILD/build" >/dev/null
echo "recipe: $RECIPE_BUILD/stage in $(elapsed "$start") s" >&2
