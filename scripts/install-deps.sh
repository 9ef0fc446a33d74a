#!/usr/bin/env bash
# Installs every build and test dependency from Debian's packages.
# Idempotent: does nothing (quickly) when everything is already there.
set -euo pipefail
source "$(dirname "$0")/packages.sh"

PACKAGES=(
  # build
  build-essential cmake pkg-config libdbus-c++-bin libubootenv-tool "${LIBRARY_PACKAGES[@]}"
  # manual pages, and the test that renders them
  scdoc man-db groff-base
  # tests and the simulated player
  "${RUNTIME_PACKAGES[@]}"
)
# Extras by name: `armhf` adds the cross compiler, the emulator and debootstrap
# (scripts/armhf.sh); `guest` the system emulator, a kernel with every feature
# as modules and iw (tools/guest/run.sh); the static busybox above also serves its initramfs;
# `guest-armhf` the ARM system emulator and debootstrap (the armhf guest makes its own root);
# `package` the Debian packaging tools, udev, whose daemon the hot-plug tests run, and
# kconfiglib, which reads the Buildroot package's Config.in (scripts/package.sh,
# scripts/recipe.sh, tests/package); `bench` the instruction counter and the timer of
# scripts/bench.sh; `fuzz` clang and libFuzzer (scripts/fuzz.sh); `coverage` gcovr
# (scripts/coverage.sh).
for extra in "$@"; do
  case $extra in
    armhf) PACKAGES+=(crossbuild-essential-armhf qemu-user debootstrap) ;;
    guest) PACKAGES+=(qemu-system-x86 linux-image-amd64 iw cpio) ;;
    guest-armhf) PACKAGES+=(qemu-system-arm debootstrap cpio) ;;
    package) PACKAGES+=(dpkg-dev lintian udev python3-kconfiglib) ;;
    bench) PACKAGES+=(valgrind time) ;;
    fuzz) PACKAGES+=(clang-14 libfuzzer-14-dev) ;;
    coverage) PACKAGES+=(gcovr) ;;
    *) echo "install-deps: unknown extra $extra" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# Daemons must not be started on the host by the package scripts.
policy=/usr/sbin/policy-rc.d
created_policy=0
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' > "$policy"; chmod +x "$policy"; created_policy=1
fi
trap '[ $created_policy = 1 ] && rm -f "$policy"' EXIT
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
