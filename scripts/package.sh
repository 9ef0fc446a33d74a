#!/usr/bin/env bash
# Builds the Debian packages linkrig_VERSION_amd64.deb and linkrig_VERSION_armhf.deb from this
# tree into $LINKRIG_PACKAGES (default build/packages) and checks them with lintian.
#
# The amd64 package comes from the build in $LINKRIG_PACKAGE_BUILD (default build/release, the
# one scripts/test.sh tests), the armhf one from the cross build of scripts/armhf.sh; both are
# brought up to date first. The version is the project's (CMakeLists.txt). What goes in is what
# `cmake --install` puts in a staging root; Depends is what dpkg-shlibdeps finds the programs
# need (with the libraries linkrig loads when first used), for armhf from the dpkg database
# kept with the armhf sysroot.
source "$(dirname "$0")/armhf.sh"
bash "$ROOT/scripts/install-deps.sh" package

AMD64_BUILD=${LINKRIG_PACKAGE_BUILD:-$BUILD/release}
OUT=${LINKRIG_PACKAGES:-$BUILD/packages}
MAINTAINER="linkrig maintainers <maintainers@users.noreply.c-seed-376d0dce.example>"

# project_version BUILD: the version CMake was given, as that build configured it.
project_version() {
  sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$1/CMakeCache.txt"
}

# write_control WORK: the package's description for dpkg-gencontrol, in WORK/debian.
write_control() {
  mkdir -p "$1/debian"
  cat > "$1/debian/control" <<EOF
Source: linkrig
Section: net
Priority: optional
Maintainer: $MAINTAINER

Package: linkrig
Architecture: any
Depends: \${shlibs:Depends}
Recommends: dhcpcd-base, udhcpd, iproute2, iptables
Suggests: wpasupplicant, ppp, avahi-daemon
Description: network configuration command of the media player
 linkrig configures one network interface of the media player per run: it
 reads the interface's stored settings from the player's registry service
 over the system D-Bus and applies them to the kernel and to the daemons that
 do the lasting work (dhcpcd, udhcpd, wpa_supplicant, pppd, Avahi), then
 exits. The player's boot and hot-plug scripts run it once per interface and
 event; the boot script, the udev rule and the dhcpcd hook of a player are
 included as examples.
EOF
  # One entry for the version, dated by the last commit (reproducible), else now.
  local date
  date=$(git -C "$ROOT" log -1 --format=%aD 2>/dev/null || date -R)
  cat > "$1/debian/changelog" <<EOF
linkrig ($version) unstable; urgency=medium

  * linkrig $version.

 -- $MAINTAINER  $date
EOF
}

# shlibdeps ARCH WORK FILE...: dpkg-shlibdeps for the ELF files, into WORK/debian/substvars.
# For armhf the sysroot's libraries are shown at the paths their packages install them to, in
# a mount namespace of this command alone, and the sysroot's dpkg database tells which package
# each comes from and what its symbols and shlibs files say.
shlibdeps() {
  local arch=$1 work=$2 libdir; shift 2
  if [ "$arch" = armhf ]; then
    libdir=/usr/lib/$TRIPLET  # made by the cross toolchain's packages
    [ -d "$libdir" ] || { echo "package: no $libdir to mount over" >&2; return 1; }
    (cd "$work" && unshare --mount --propagation private -- sh -c \
      'mount --bind "$1" "$2" && shift 2 && exec "$@"' sh "$SYSROOT$libdir" "$libdir" \
      env DEB_HOST_ARCH=armhf dpkg-shlibdeps --admindir="$SYSROOT/$SYSROOT_ADMINDIR" "$@")
  else
    (cd "$work" && dpkg-shlibdeps "$@")
  fi
}

# make_package ARCH BUILD: OUT/linkrig_VERSION_ARCH.deb from what the build installs.
make_package() {
  local arch=$1 build=$2 work stage elf deb
  work=$BUILD/package-$arch
  stage=$work/stage
  rm -rf "$work"
  mkdir -p "$stage/DEBIAN"
  DESTDIR=$stage cmake --install "$build" --prefix /usr --strip >/dev/null
  write_control "$work"
  # Debian's layout: compressed manual pages and changelog.
  find "$stage/usr/share/man" -type f -exec gzip -9n {} +
  gzip -9n -c "$work/debian/changelog" > "$stage/usr/share/doc/linkrig/changelog.gz"

  mapfile -t elf < <(find "$stage" -type f -exec sh -c \
    'for f; do [ "$(head -c 4 "$f")" = "$(printf "\177ELF")" ] && echo "$f"; done' sh {} +)
  # What Debian's own packages leave out besides the symbols (the compiler's version notes).
  "$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "$build/CMakeCache.txt")" \
    --remove-section=.comment --remove-section=.note "${elf[@]}"
  # With the libraries linkrig loads when first used, which its ELF headers do not name.
  shlibdeps "$arch" "$work" -Tdebian/substvars "${elf[@]}" \
    "$build/liblinkrig_loaded_libraries.so"
  (cd "$work" && DEB_HOST_ARCH=$arch dpkg-gencontrol -P"$stage" -Tdebian/substvars)
  (cd "$stage" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | sort -z \
    | xargs -0 md5sum > DEBIAN/md5sums)
  deb=$OUT/linkrig_${version}_$arch.deb
  # File times in the package are those of the last commit at the latest.
  SOURCE_DATE_EPOCH=$(git -C "$ROOT" log -1 --format=%ct 2>/dev/null || date +%s) \
    dpkg-deb --root-owner-group -Zxz --build "$stage" "$deb" >/dev/null
  echo "package: $deb ($(dpkg-deb --field "$deb" Depends))" >&2
}

configure_and_build "$AMD64_BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo
ensure_sysroot
configure_armhf
cmake --build "$ARMHF_BUILD" -j"$JOBS"

version=$(project_version "$AMD64_BUILD")
if [ -z "$version" ] || [ "$(project_version "$ARMHF_BUILD")" != "$version" ]; then
  echo "package: no version, or the two builds disagree about it" >&2
  exit 1
fi
mkdir -p "$OUT"
rm -f "$OUT"/linkrig_*.deb
make_package amd64 "$AMD64_BUILD"
make_package armhf "$ARMHF_BUILD"

# Errors and warnings fail (none is kept); the informational tags are shown.
lintian --fail-on error,warning --display-info "$OUT"/linkrig_"$version"_amd64.deb \
  "$OUT"/linkrig_"$version"_armhf.deb
