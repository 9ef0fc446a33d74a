#!/usr/bin/env bash
# Runs a command inside a QEMU guest with a kernel that has what this machine's
# lacks (802.1Q VLANs, PPP, the police action, mac80211_hwsim), on this
# machine's own files: the guest's root is the host's root, read-only over
# virtio-9p with a writable overlay in RAM.
#
#   tools/guest/run.sh [--timeout SECONDS] COMMAND [ARG...]
#
# The command runs as root in the current directory, with LINKRIG_* and
# PYTHON* variables passed on.  Its output is shown here and its exit status
# becomes ours.  Exit status 77 (skip) only when QEMU cannot start at all.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
timeout=900
if [ "${1:-}" = --timeout ]; then timeout=$2; shift 2; fi
[ $# -gt 0 ] || { echo "usage: $0 [--timeout SECONDS] COMMAND [ARG...]" >&2; exit 2; }
[ "$(id -u)" -eq 0 ] || { echo "guest: run as root" >&2; exit 2; }

bash "$root/scripts/install-deps.sh" guest

# The newest installed kernel whose modules are here too.
kernel=
for image in $(ls -v /boot/vmlinuz-* 2>/dev/null); do
  version=${image#/boot/vmlinuz-}
  [ -f "/lib/modules/$version/modules.dep" ] && kernel=$version
done
[ -n "$kernel" ] || { echo "guest: no kernel with modules in /boot (linux-image-amd64)" >&2; exit 1; }

if ! probe=$(echo quit | timeout 60 qemu-system-x86_64 -machine none -accel tcg -display none \
               -monitor stdio -serial none 2>&1); then
  echo "SKIP: QEMU cannot start on this machine: $probe" >&2
  exit 77
fi

cache=${LINKRIG_GUEST_CACHE:-/var/cache/linkrig/guest}
mkdir -p "$cache"
initrd=$cache/initrd-$kernel.gz
stamp=$(cat "$here/initramfs.sh" "$here/init" /bin/busybox | sha256sum | cut -c1-16)
if [ "$(cat "$initrd.stamp" 2>/dev/null)" != "$stamp" ]; then
  bash "$here/initramfs.sh" "$kernel" "$initrd"
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

started=$(date +%s)
# The emulator dies with this script, however it ends.
setpriv --pdeathsig KILL -- qemu-system-x86_64 -accel tcg,thread=multi,tb-size=64 -cpu max -m 1024 -smp 2 \
  -display none -monitor none -serial "file:$job/console.log" -no-reboot -nic none \
  -kernel "/boot/vmlinuz-$kernel" -initrd "$initrd" \
  -append "console=ttyS0 panic=-1 quiet loglevel=4 linkrig.stage2=$here/stage2.sh" \
  -fsdev local,id=root,path=/,security_model=none,readonly=on,multidevs=remap \
  -device virtio-9p-pci,fsdev=root,mount_tag=hostroot \
  -fsdev local,id=job,path="$job",security_model=none \
  -device virtio-9p-pci,fsdev=job,mount_tag=job &
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
  echo "guest: finished with status $result in $elapsed s (kernel $kernel)" >&2
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
