#!/usr/bin/env bash
# Builds the guest's initramfs: busybox, the modules that reach the guest's root
# over virtio-9p (with what they depend on, from the kernel's own modules.dep)
# and init, all taken from ROOT (default /, this machine's own).
# Usage: initramfs.sh KERNEL_VERSION OUTPUT [ROOT]
set -euo pipefail
kver=$1 out=$2 base=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
moddir=$base/lib/modules/$kver
wanted=(virtio_pci 9pnet_virtio 9p overlay)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{bin,dev,proc,sys,newroot,lower,upper,modules}
# The initramfs has no libraries: busybox must be the static build.
if readelf -l "$base/bin/busybox" | grep -q INTERP; then
  echo "initramfs: $base/bin/busybox is not statically linked (install busybox-static)" >&2
  exit 1
fi
cp "$base/bin/busybox" "$work/bin/busybox"
ln -s busybox "$work/bin/sh"
cp "$here/init" "$work/init"
chmod +x "$work/init"

# Dependencies first: modules.dep lists what each module needs, already in load order.
declare -A seen=()
order=()
add_module() {
  local path=$1
  [ -n "${seen[$path]:-}" ] && return
  seen[$path]=1
  local line deps dep
  line=$(grep -m1 "^$path:" "$moddir/modules.dep") || { echo "initramfs: $path not in modules.dep" >&2; exit 1; }
  deps=${line#*:}
  for dep in $deps; do add_module "$dep"; done
  order+=("$path")
}
for name in "${wanted[@]}"; do
  path=$(modprobe -d "${base:-/}" -S "$kver" --show-depends "$name" | awk '$1 == "insmod" {print $2}' | tail -1)
  add_module "${path#*/lib/modules/$kver/}"
done
for path in "${order[@]}"; do
  file=$(basename "$path")
  case $file in
    *.ko) cp "$moddir/$path" "$work/modules/$file" ;;
    *.ko.xz) xz -dc "$moddir/$path" > "$work/modules/${file%.xz}" ;;
    *.ko.zst) zstd -qdc "$moddir/$path" > "$work/modules/${file%.zst}" ;;
    *) echo "initramfs: unknown module format $file" >&2; exit 1 ;;
  esac
  echo "${file%%.ko*}.ko" >> "$work/modules/order"
done

# Written aside and moved into place: runners that start together may both make it.
tmp=$(mktemp "$out.XXXXXX")
(cd "$work" && find . -print0 | cpio --null -o -H newc --quiet) | gzip -1 > "$tmp"
mv "$tmp" "$out"
