# The armhf guest's root (sourced by run.sh): Debian's armhf kernel and the programs the tests
# run, from the archive apt uses here. Cached in the guest's cache as armhf-root/ (the kernel
# in boot/, its modules in lib/modules/), and made again when what it is made from changes.
source "$root/scripts/armhf.sh"  # archive_uri, and the packages the tests run
GUEST_PACKAGES=("${RUNTIME_PACKAGES[@]}" iw systemd linux-image-armmp-lpae)

# make_guest_root DIR STAMP: makes DIR of the packages and their dependencies, fetched by
# debootstrap and unpacked here. Configuring them in the guest (debootstrap's second stage) took
# over half an hour under emulation; what their maintainer scripts do that the tests need is
# done below.
make_guest_root() {
  local dir=$1 suite mirror tmp deb python started
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  mirror=$(archive_uri "$suite")
  echo "guest: making the armhf root $dir from $mirror ($suite)" >&2
  started=$(date +%s)
  rm -rf "$dir".new.*  # left by an interrupted run
  tmp=$(mktemp -d "$dir.new.XXXXXX")
  if ! debootstrap --arch=armhf --variant=minbase --foreign \
      --include="$(IFS=,; echo "${GUEST_PACKAGES[*]}")" "$suite" "$tmp" "$mirror" \
      >"$tmp.log" 2>&1; then
    cat "$tmp.log" >&2
    rm -rf "$tmp" "$tmp.log"
    return 1
  fi
  # busybox-static last: udhcpd brought the shared busybox too, which it replaces.
  # dpkg's database says they are installed, so that a package installed in the guest finds
  # what it depends on.
  for deb in $(ls "$tmp"/var/cache/apt/archives/*.deb | grep -v /busybox-static_) \
      "$tmp"/var/cache/apt/archives/busybox-static_*.deb; do
    dpkg-deb --fsys-tarfile "$deb" | tar -x --keep-directory-symlink -C "$tmp"
    { dpkg-deb -f "$deb" | sed '1a Status: install ok installed'; echo; } \
      >> "$tmp/var/lib/dpkg/status"
  done
  rm -rf "$tmp/debootstrap" "$tmp"/var/cache/apt/archives/*.deb "$tmp.log"
  # In a container debootstrap makes proc a link to the host's /proc.
  rm -f "$tmp/proc" && mkdir -p "$tmp/proc"
  depmod -b "$tmp" "$(cd "$tmp/boot" && ls vmlinuz-* | sed 's/^vmlinuz-//')"
  # Accounts: the base ones, and those of the daemons (chronyd and dhcpcd drop root for theirs).
  cp "$tmp/usr/share/base-passwd/passwd.master" "$tmp/etc/passwd"
  cp "$tmp/usr/share/base-passwd/group.master" "$tmp/etc/group"
  local uid=100 name
  for name in _chrony dhcpcd messagebus avahi; do
    echo "$name:x:$uid:$uid::/nonexistent:/usr/sbin/nologin" >> "$tmp/etc/passwd"
    echo "$name:x:$uid:" >> "$tmp/etc/group"
    uid=$((uid + 1))
  done
  # The alternatives chosen by default: nftables' iptables, mawk.
  for name in iptables ip6tables; do
    ln -sfn "$name-nft" "$tmp/usr/sbin/$name"
    ln -sfn "$name-nft-restore" "$tmp/usr/sbin/$name-restore"
    ln -sfn "$name-nft-save" "$tmp/usr/sbin/$name-save"
  done
  ln -sfn mawk "$tmp/usr/bin/awk"
  ln -sfn which.debianutils "$tmp/usr/bin/which"
  od -An -N16 -tx1 /dev/urandom | tr -d ' \n' > "$tmp/etc/machine-id"
  # Compiled Python modules, which the guest would otherwise compile again on every start:
  # this machine's Python writes the same files when it is the guest's version.
  python=$(cd "$tmp/usr/bin" && ls python3.* | grep -E '^python3\.[0-9]+$')
  if [ "$(/usr/bin/python3 -c 'import sys; print("python%d.%d" % sys.version_info[:2])')" = "$python" ]; then
    # Some files in the packages are deliberately not Python 3 (test data): not an error.
    /usr/bin/python3 -m compileall -qq -j2 -s "$tmp" -p / \
      "$tmp/usr/lib/$python" "$tmp/usr/lib/python3/dist-packages" || true
  fi
  printf '%s\n' "$2" > "$tmp/.stamp"
  rm -rf "$dir"
  mv "$tmp" "$dir"
  echo "guest: armhf root made in $(( $(date +%s) - started )) s" >&2
}

# guest_root: makes the root when it is missing or out of date, one maker at a time, and then
# holds a shared lock until the runner ends, so that nobody makes it again while a guest uses
# it. Sets guest_root and kver.
guest_root() {
  local dir=$cache/armhf-root wanted
  exec 8>"$dir.lock"
  flock 8
  wanted="$(sha256sum < "$here/armhf-root.sh" | cut -c1-16) $(. /etc/os-release && echo "$VERSION_CODENAME"): ${GUEST_PACKAGES[*]}"
  if [ "$(cat "$dir/.stamp" 2>/dev/null)" != "$wanted" ]; then
    make_guest_root "$dir" "$wanted"
  fi
  flock -s 8
  guest_root=$dir
  kver=$(cd "$guest_root/boot" && ls vmlinuz-* | sed 's/^vmlinuz-//')
}
