#!/usr/bin/env bash
# The cost of one linkrig run, action by action: instructions (callgrind), peak RSS and the
# stripped size of the release build, each action in a simulated player (tools/bench/bench.py).
# A measurement, not a test: nothing runs it by itself.
#
#   bash scripts/bench.sh            # x86-64, in $LINKRIG_BUILD/bench (default build/bench)
#   bash scripts/bench.sh --armhf    # also the armhf build, counted under qemu-arm
#   bash scripts/bench.sh --boot     # the boot of a whole player against its floor, in the
#                                    # QEMU guest (tools/bench/boot.py; --rounds N)
#
# Further options go to bench.py (--runs N, --only "eth0 start", --json FILE).
source "$(dirname "$0")/common.sh"
bash "$ROOT/scripts/install-deps.sh" bench

if [ "${1:-}" = --boot ]; then
  shift
  bash "$ROOT/scripts/install-deps.sh" guest package
  packages=${LINKRIG_PACKAGES:-$BUILD/packages}
  LINKRIG_PACKAGE_BUILD=$BUILD/release LINKRIG_PACKAGES=$packages bash "$ROOT/scripts/package.sh"
  LINKRIG_BUILD_DIR=$BUILD/release exec bash "$ROOT/tools/guest/run.sh" --timeout 1800 \
    /usr/bin/python3 "$ROOT/tools/bench/boot.py" --packages "$packages" "$@"
fi

arm=()
if [ "${1:-}" = --armhf ]; then
  shift
  LINKRIG_ARMHF_BUILD=$BUILD/bench-armhf bash "$ROOT/scripts/armhf.sh" --build-only
  arm=(--armhf-build "$BUILD/bench-armhf")
fi
cmake -S "$ROOT" -B "$BUILD/bench" -DLINKRIG_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$BUILD/bench" -j"$JOBS" --target linkrig obfuscate_passphrase
/usr/bin/python3 "$ROOT/tools/bench/bench.py" --build-dir "$BUILD/bench" "${arm[@]}" "$@"
