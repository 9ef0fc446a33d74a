#!/usr/bin/env bash
# Builds linkrig and runs every test: the optimised build, the Debian packages made from it and
# from the cross build for the player's 32-bit ARM processor, and the build a Buildroot or Yocto
# recipe makes, with every test of them (the system tests that need a full kernel, the whole
# player among them, in a QEMU guest); then the same unit, registry and command tests again under AddressSanitizer and UBSan; the
# fuzz targets, each for a short bounded time (scripts/fuzz.sh); last the unit tests of the
# armhf build under qemu-arm and the system tests on that build in an armhf QEMU guest.
source "$(dirname "$0")/common.sh"
# What the guest-kernel tests, the armhf phase, the fuzz targets and the packages need, in the
# same apt run.
bash "$ROOT/scripts/install-deps.sh" guest guest-armhf armhf fuzz package
export LINKRIG_PACKAGES=${LINKRIG_PACKAGES:-$BUILD/packages}
export LINKRIG_RECIPE_BUILD=${LINKRIG_RECIPE_BUILD:-$BUILD/recipe}

configure_and_build "$BUILD/release" -DCMAKE_BUILD_TYPE=RelWithDebInfo
# The packages, from the release and armhf builds (the guest boots a player from the amd64
# one), and the build a Buildroot or Yocto recipe makes, on the same sysroot.
LINKRIG_PACKAGE_BUILD=$BUILD/release bash "$ROOT/scripts/package.sh"
bash "$ROOT/scripts/recipe.sh"
ctest --test-dir "$BUILD/release" --output-on-failure -j2 --timeout 900

configure_and_build "$BUILD/sanitize" -DCMAKE_BUILD_TYPE=Debug -DLINKRIG_SANITIZE=ON
export ASAN_OPTIONS=${ASAN_OPTIONS:-abort_on_error=0:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$BUILD/sanitize" --output-on-failure -j2 --timeout 900 -LE 'guest|package'

# Every parser of outside input under libFuzzer, a few minutes in all.
bash "$ROOT/scripts/fuzz.sh"

# The unit tests again, built for the player's 32-bit ARM processor and run under qemu-arm;
# then the system tests on that build in the armhf guest.
bash "$ROOT/scripts/armhf.sh"
ctest --test-dir "${LINKRIG_ARMHF_BUILD:-$BUILD/armhf}" --output-on-failure --timeout 3000 -L guest-armhf
