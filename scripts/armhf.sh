#!/usr/bin/env bash
# Cross-builds linkrig, linkrig-plan, the unit tests and the test programs for the player's
# 32-bit ARM processor (armhf) and runs the unit tests under qemu-arm; the system tests run on
# that build in the armhf guest (`ctest -L guest-armhf` there, tools/guest/run.sh).
#
# The armhf libraries come from a sysroot made from Debian's archive (the one apt uses here):
# multiarch armhf -dev packages cannot be installed beside the host's. It is cached in
# $LINKRIG_ARMHF_SYSROOT (default /var/cache/linkrig/armhf-sysroot) and made again when the
# package list below changes. The build goes to $LINKRIG_ARMHF_BUILD (default $BUILD/armhf).
# Sourced (scripts/package.sh), it only defines the sysroot and build functions. With
# --build-only it builds linkrig alone and runs nothing (scripts/bench.sh).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
bash "$ROOT/scripts/install-deps.sh" armhf

SYSROOT=${LINKRIG_ARMHF_SYSROOT:-/var/cache/linkrig/armhf-sysroot}
ARMHF_BUILD=${LINKRIG_ARMHF_BUILD:-$BUILD/armhf}
TRIPLET=arm-linux-gnueabihf
# The sysroot's dpkg database (relative to it): hidden at its top, since the emulator looks every
# path a program opens up in the sysroot first and a var/lib/dpkg there would hide the host's.
SYSROOT_ADMINDIR=.dpkg

# What the build links against; debootstrap adds their dependencies.
source "$ROOT/scripts/packages.sh"
SYSROOT_PACKAGES=("${LIBRARY_PACKAGES[@]}")

# Unit tests that cannot pass under user-mode emulation (full gtest names, Suite.Name), each
# with the emulator's reason. qemu-arm emulates only the program it starts: a child that
# executes an ARM binary again gets "Exec format error" (that would need binfmt_misc).
EMULATOR_EXCLUDED_TESTS=(
  # "threadsafe" death tests re-execute the test binary for each death.
  PassphraseDeathTest.ShortSaltFieldAborts
)

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.0f", b - a }'; }

# The first URI of a "deb" source for SUITE in apt's own configuration (one-line or deb822).
archive_uri() {
  /usr/bin/python3 - "$1" <<'EOF'
import glob, re, sys
suite = sys.argv[1]
uris = []
for path in ['/etc/apt/sources.list'] + sorted(glob.glob('/etc/apt/sources.list.d/*.list')):
    try:
        lines = open(path).read().splitlines()
    except OSError:
        continue
    for line in lines:
        m = re.match(r'\s*deb\s+(?:\[[^\]]*\]\s+)?(\S+)\s+(\S+)', line.split('#', 1)[0])
        if m and m.group(2) == suite:
            uris.append(m.group(1))
for path in sorted(glob.glob('/etc/apt/sources.list.d/*.sources')):
    for stanza in re.split(r'\n[ \t]*\n', open(path).read()):
        fields = {}
        for line in stanza.splitlines():
            if line and not line[0].isspace() and not line.startswith('#') and ':' in line:
                key, value = line.split(':', 1)
                fields[key.strip().lower()] = value.split()
        if ('deb' in fields.get('types', []) and suite in fields.get('suites', [])
                and fields.get('enabled', ['yes'])[0].lower() != 'no'):
            uris += fields.get('uris', [])
if not uris:
    sys.exit(f'armhf: apt has no "deb" source for {suite}')
print(uris[0])
EOF
}

# record_package DEB ADMINDIR: adds an unpacked package to a dpkg database, from its control
# data and the names `tar -xv` listed on standard input, so that dpkg-query finds its files and
# dpkg-shlibdeps its shared-library control files (symbols, shlibs).
record_package() {
  local deb=$1 admin=$2 name control
  name=$(dpkg-deb --field "$deb" Package)
  # dpkg names the files of a co-installable package after the package and its architecture.
  [ "$(dpkg-deb --field "$deb" Multi-Arch)" = same ] && name=$name:armhf
  sed -e 's|^\./$|/.|' -e 's|^\.||' -e 's|\(.\)/$|\1|' > "$admin/info/$name.list"
  control=$(mktemp -d)
  dpkg-deb --control "$deb" "$control"
  for file in shlibs symbols; do
    if [ -f "$control/$file" ]; then cp "$control/$file" "$admin/info/$name.$file"; fi
  done
  rm -rf "$control"
  { dpkg-deb --field "$deb"
    echo "Status: install ok unpacked"
    echo; } >> "$admin/status"
}

# make_sysroot DIR: the armhf -dev packages and their dependencies, unpacked (not configured).
make_sysroot() {
  local dir=$1 suite mirror tmp log deb link target
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  mirror=$(archive_uri "$suite")
  echo "armhf: making the sysroot $dir from $mirror ($suite)" >&2
  rm -rf "$dir".new.*  # left by an interrupted run
  tmp=$(realpath "$(mktemp -d "$dir.new.XXXXXX")")
  log=$tmp.log
  if ! debootstrap --arch=armhf --variant=minbase --foreign \
      --include="$(IFS=,; echo "${SYSROOT_PACKAGES[*]}")" "$suite" "$tmp" "$mirror" >"$log" 2>&1; then
    cat "$log" >&2
    rm -rf "$tmp" "$log"
    return 1
  fi
  # debootstrap unpacked only the base system; unpack everything, keeping the merged /usr
  # (lib -> usr/lib). In a container debootstrap makes proc a link to the host's /proc.
  rm -f "$tmp/proc"
  mkdir -p "$tmp/$SYSROOT_ADMINDIR/info"
  echo 1 > "$tmp/$SYSROOT_ADMINDIR/info/format"  # file names carry the architecture
  for deb in "$tmp"/var/cache/apt/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$deb" | tar -xv --keep-directory-symlink -C "$tmp" \
      | record_package "$deb" "$tmp/$SYSROOT_ADMINDIR"
  done
  # Keep only what the compiler and the emulator need. qemu-arm -L looks up every path the
  # guest opens in the sysroot first, so a sysroot /etc, /tmp or /proc would hide the host's.
  find "$tmp" -mindepth 1 -maxdepth 1 ! -name usr ! -name lib ! -name "$SYSROOT_ADMINDIR" \
    -exec rm -rf {} +
  find "$tmp/usr" -mindepth 1 -maxdepth 1 ! -name include ! -name lib ! -name share \
    -exec rm -rf {} +
  # A header-only library's CMake package lives under share.
  find "$tmp/usr/share" -mindepth 1 -maxdepth 1 ! -name cmake ! -name pkgconfig -exec rm -rf {} +
  find "$tmp/usr/lib" -mindepth 1 -maxdepth 1 ! -name "$TRIPLET" ! -name gcc \
    ! -name 'ld-linux-*' -exec rm -rf {} +
  # Absolute links (libfoo.so -> /lib/...) would point into the host; make them relative.
  while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -s -m --relative-to="$(dirname "$link")" "$tmp$target")" "$link"
  done < <(find "$tmp" -type l -lname '/*' -print0)
  printf '%s\n' "$2" > "$tmp/.packages"
  rm -rf "$dir" "$log"
  mv "$tmp" "$dir"
}

# ensure_sysroot: makes the sysroot when it is missing or its package list changed, one maker
# at a time; the lock is kept until the script ends, so nobody remakes it while it is in use.
ensure_sysroot() {
  local wanted
  mkdir -p "$(dirname "$SYSROOT")"
  exec 9>"$SYSROOT.lock"
  flock 9
  # What it is made of, and what of it is kept (make_sysroot).
  wanted=$(. /etc/os-release && echo "$VERSION_CODENAME, share/cmake: ${SYSROOT_PACKAGES[*]}")
  if [ "$(cat "$SYSROOT/.packages" 2>/dev/null)" != "$wanted" ] \
      || [ ! -f "$SYSROOT/$SYSROOT_ADMINDIR/status" ]; then
    make_sysroot "$SYSROOT" "$wanted"
  fi
}

# configure_armhf: the cross build's configuration in $ARMHF_BUILD.
configure_armhf() {
  cmake -S "$ROOT" -B "$ARMHF_BUILD" -DLINKRIG_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/toolchain-armhf.cmake" -DLINKRIG_ARMHF_SYSROOT="$SYSROOT" >/dev/null
}

[[ "${BASH_SOURCE[0]}" == "$0" ]] || return 0

t=$(now)
ensure_sysroot
sysroot_time=$(elapsed "$t")

t=$(now)
configure_armhf
if [ "${1:-}" = --build-only ]; then
  cmake --build "$ARMHF_BUILD" -j"$JOBS" --target linkrig
  exit 0
fi
cmake --build "$ARMHF_BUILD" -j"$JOBS"
build_time=$(elapsed "$t")

file -b "$ARMHF_BUILD/apps/linkrig/linkrig" | grep -q '^ELF 32-bit LSB .* ARM' || {
  echo "armhf: $ARMHF_BUILD/apps/linkrig/linkrig is not a 32-bit ARM program" >&2; exit 1; }
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
$TRIPLET-strip -o "$stripped" "$ARMHF_BUILD/apps/linkrig/linkrig"

# CTest runs each test through qemu-arm -L SYSROOT (CMAKE_CROSSCOMPILING_EMULATOR); value
# parametrised tests carry "  # GetParam() = ..." after the gtest name.
t=$(now)
exclude=()
if [ ${#EMULATOR_EXCLUDED_TESTS[@]} -gt 0 ]; then
  exclude=(-E "^($(printf '%s\n' "${EMULATOR_EXCLUDED_TESTS[@]}" | sed 's/[.]/[.]/g' | paste -sd '|'))( |\$)")
fi
ctest --test-dir "$ARMHF_BUILD" -L unit --output-on-failure -j"$JOBS" --timeout 900 "${exclude[@]}"
test_time=$(elapsed "$t")

echo "armhf: linkrig $(stat -c %s "$stripped") bytes stripped;" \
  "sysroot ${sysroot_time} s, build ${build_time} s, unit tests ${test_time} s" >&2
