#!/bin/bash
# PID 1 of the guest once the host's root is in place (see init): prepares a
# system for the job, runs the job from the share "job" and writes its output
# and exit status back there, then powers the guest off.  Whatever happens,
# the guest ends: a missing status file tells the host it crashed or hung.
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export PATH LANG=C HOME=/root
JOB=/run/job

off() { sync; busybox poweroff -f; }
trap off EXIT

mount -t proc proc /proc
mount -t sysfs sys /sys
mkdir -p /dev/pts /dev/shm
mount -t devpts -o gid=5,mode=620,ptmxmode=666 devpts /dev/pts
mount -t tmpfs -o mode=1777 shm /dev/shm
# Fresh /run: the host's (bus socket, PID files) must not show through.
mount -t tmpfs -o mode=755 run /run
mkdir -p /run/lock /run/netns "$JOB"
chmod 1777 /run/lock
mount -t 9p -o trans=virtio,version=9p2000.L,msize=512000 job "$JOB" || exit 1
exec > "$JOB/stage2.log" 2>&1

hostname guest
ip link set lo up
# What the tests use, loaded up front rather than on first use inside a namespace.
modprobe -a veth 8021q sch_ingress cls_u32 act_police ppp_generic ppp_async \
  mac80211 cfg80211 || echo "stage2: some modules did not load"
echo "stage2: kernel $(uname -r), $(nproc) CPUs, $(awk '/MemTotal/ {print $2 " kB"}' /proc/meminfo)"

status=1
if [ -r "$JOB/job.sh" ]; then
  start=$(date +%s.%N)
  bash "$JOB/job.sh" > "$JOB/output.log" 2>&1 < /dev/null
  status=$?
  echo "stage2: job ended with status $status after $(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN {printf "%.1f", b - a}') s"
fi
echo "$status" > "$JOB/status.tmp" && mv "$JOB/status.tmp" "$JOB/status"
