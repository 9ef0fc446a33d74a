#!/usr/bin/env bash
# Runs a command inside a QEMU guest with a kernel that has what this machine's
# lacks (802.1Q VLANs, PPP, the police action, mac80211_hwsim).
#
#   tools/guest/run.sh [--arch amd64|armhf] [--timeout SECONDS] COMMAND [ARG...]
#
# amd64 (the default) runs on this machine's own files: the guest's root is the
# host's root, read-only over virtio-9p with a writable overlay in RAM.  armhf is
# the player's processor: Debian's armhf kernel under qemu-system-arm on a root
# of armhf programs made from Debian's archive (armhf-root.sh), read-only with an
# overlay in RAM the same way; this tree, $LINKRIG_BUILD_DIR and the current
# directory are shared at the same paths, so that the same tests run there with
# the guest's own Python and daemons.
#
# The command runs as root in the current directory, with LINKRIG_* and
# PYTHON* variables passed on.  Its output is shown here and its exit status
# becomes ours.  Exit status 77 (skip) only when QEMU cannot start at all.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
arch=amd64
timeout=900
while [ $# -gt 0 ]; do
  case $1 in
    --arch) arch=$2; shift 2 ;;
    --timeout) timeout=$2; shift 2 ;;
    *) break ;;
  esac
done
if [ $# -eq 0 ] || [[ $arch != @(amd64|armhf) ]]; then
  echo "usage: $0 [--arch amd64|armhf] [--timeout SECONDS] COMMAND [ARG...]" >&2
  exit 2
fi
[ "$(id -u)" -eq 0 ] || { echo "guest: run as root" >&2; exit 2; }

if [ "$arch" = amd64 ]; then
  bash "$root/scripts/install-deps.sh" guest
  emulator=(qemu-system-x86_64 -cpu max)
  console=ttyS0
else
  bash "$root/scripts/install-deps.sh" guest-armhf
  emulator=(qemu-system-arm -machine virt -cpu cortex-a15)
  console=ttyAMA0
fi

if ! probe=$(echo quit | timeout 60 "${emulator[0]}" -machine none -accel tcg -display none \
               -monitor stdio -serial none 2>&1); then
  echo "SKIP: QEMU cannot start on this machine: $probe" >&2
  exit 77
fi

cache=${LINKRIG_GUEST_CACHE:-/var/cache/linkrig/guest}
mkdir -p "$cache"
# Host directories the guest sees at the same paths (read-only, writable in RAM).
shares=()
if [ "$arch" = amd64 ]; then
  # The newest installed kernel whose modules are here too.
  kver=
  for image in $(ls -v /boot/vmlinuz-* 2>/dev/null); do
    version=${image#/boot/vmlinuz-}
    [ -f "/lib/modules/$version/modules.dep" ] && kver=$version
  done
  [ -n "$kver" ] || { echo "guest: no kernel with modules in /boot (linux-image-amd64)" >&2; exit 1; }
  guest_root=
else
  source "$here/armhf-root.sh"
  guest_root  # sets guest_root and kver
  # The tree, the build and the current directory, none inside another.
  for path in $(realpath "$root" "${LINKRIG_BUILD_DIR:-$root}" "$PWD" \
                  | awk '{print length, $0}' | sort -n | cut -d' ' -f2-); do
    inside=
    for share in "${shares[@]}"; do [[ $path == "$share"?(/*) ]] && inside=1; done
    [ -n "$inside" ] || shares+=("$path")
  done
fi

initrd=$cache/initrd-$kver.gz
stamp=$(cat "$here/initramfs.sh" "$here/init" "$guest_root/bin/busybox" | sha256sum | cut -c1-16)
if [ "$(cat "$initrd.stamp" 2>/dev/null)" != "$stamp" ]; then
  bash "$here/initramfs.sh" "$kver" "$initrd" "$guest_root"
  echo "$stamp" > "$initrd.stamp"
fi

job=$(mktemp -d /tmp/linkrig-guest.XXXXXX)
qemu=
cleanup() {
  [ -n "$qemu" ] && kill -9 "$qemu" 2>/dev/null && wait "$qemu" 2>/dev/null
  rm -rf "$job"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

{
  echo "cd $(printf %q "$PWD")"
  for name in $(compgen -e | grep -E '^(LINKRIG_|PYTHON|ASAN_|UBSAN_)' || true); do
    echo "export $name=$(printf %q "${!name}")"
  done
  printf '%q ' exec "$@"
  echo
} > "$job/job.sh"

devices=(-fsdev "local,id=root,path=${guest_root:-/},security_model=none,readonly=on,multidevs=remap"
         -device virtio-9p-pci,fsdev=root,mount_tag=hostroot
         -fsdev "local,id=job,path=$job,security_model=none"
         -device virtio-9p-pci,fsdev=job,mount_tag=job)
mounts=
for i in "${!shares[@]}"; do
  devices+=(-fsdev "local,id=share$i,path=${shares[i]//,/,,},security_model=none,readonly=on,multidevs=remap"
            -device "virtio-9p-pci,fsdev=share$i,mount_tag=share$i")
  mounts+=${mounts:+,}${shares[i]}
done

started=$(date +%s)
# The emulator dies with this script, however it ends.
setpriv --pdeathsig KILL -- "${emulator[@]}" -accel tcg,thread=multi,tb-size=64 -m 1024 -smp 2 \
  -display none -monitor none -serial "file:$job/console.log" -no-reboot -nic none \
  -kernel "$guest_root/boot/vmlinuz-$kver" -initrd "$initrd" \
  -append "console=$console panic=-1 quiet loglevel=4 linkrig.stage2=$here/stage2.sh${mounts:+ linkrig.mounts=$mounts}" \
  "${devices[@]}" &
qemu=$!
result=0
if ! timeout --foreground "$timeout" tail --pid="$qemu" -f /dev/null; then
  echo "guest: no end after $timeout s; stopped" >&2
  result=124
fi
kill -9 "$qemu" 2>/dev/null || true
wait "$qemu" 2>/dev/null || true
qemu=
elapsed=$(( $(date +%s) - started ))

cat "$job/output.log" 2>/dev/null || true
if [ "$result" -eq 0 ] && [ -f "$job/status" ]; then
  result=$(cat "$job/status")
  echo "guest: finished with status $result in $elapsed s (kernel $kver)" >&2
else
  [ "$result" -eq 0 ] && result=1
  echo "guest: no exit status: the guest crashed or hung after $elapsed s" >&2
fi
if [ "$result" -ne 0 ]; then
  for log in stage2.log console.log; do
    [ -s "$job/$log" ] && { echo "--- guest $log (last 60 lines)" >&2; tail -n 60 "$job/$log" >&2; }
  done
fi
exit "$result"
