"""PID 1 of a simulated player.

Started by the harness (player/sandbox.py) through
`unshare --pid --fork --mount --net --uts`, with one JSON argument.  It builds
the player's file system view and network, prints "ready HOSTPID" (or
"error TEXT") on standard output, and then stays for the player's lifetime:

* it reaps orphans (it is the PID namespace's init);
* it collects what is written to /dev/kmsg (a FIFO here) into KMSG_LOG;
* it emulates the kernel's LED timer trigger on the tmpfs LED class.

LED emulation and its limits: writing "timer" to a LED's "trigger" makes
"delay_on" and "delay_off" appear with "500"; writing anything else removes
them.  Unlike the kernel, this happens only after the writer closes the
file, typically within a millisecond, so:
  * a program that checks for "delay_on" right after its own trigger write
    may still see the old state; Player.led() waits for it to settle;
  * delay files a writer creates itself before the watcher gets there are
    kept, never overwritten, so "timer" then delay_off then delay_on from one
    program ends with its values -- provided it creates the files (O_CREAT,
    as ofstream and fopen(..., "w") do); opening without O_CREAT can fail
    in that window, where the kernel's files would already exist.
The trigger file holds the bare text written (not the kernel's "[none]
timer" list), "brightness" does not change with the trigger, and nothing
blinks.  The trigger is recognised by prefix, so an overwrite without
truncation ("none" over "timer") reads as the new trigger.

Killing this process (SIGKILL from the harness) ends every process in the
player, and with the last of them its mounts and namespaces.
"""

import ctypes
import json
import os
import select
import signal
import socket
import stat
import struct
import subprocess
import sys
import time
import traceback
import zlib

RUN_DIR = "/run/player"
KMSG_LOG = RUN_DIR + "/kmsg.log"
KMSG_FIFO = "/dev/kmsg"
LOG_DIR = RUN_DIR + "/log"
UBOOT_ENV = RUN_DIR + "/uboot.env"
UBOOT_ENV_SIZE = 0x4000
FW_ENV_CONFIG = "/etc/fw_env.config"
LED_ROOT = "/sys/class/leds"
LAN_NETNS = "lan"
LAN_SYSFS = RUN_DIR + "/lan-sys"
PEER_PREFIX = "peer-"
BUS_SOCKET = "/run/dbus/system_bus_socket"

MS_NOSUID, MS_NODEV, MS_NOEXEC = 0x2, 0x4, 0x8
MS_BIND, MS_REC, MS_PRIVATE = 0x1000, 0x4000, 1 << 18
MNT_DETACH = 2
AT_FDCWD, AT_SYMLINK_FOLLOW = -100, 0x400
CLONE_NEWNET = 0x40000000
IN_CLOSE_WRITE, IN_Q_OVERFLOW = 0x8, 0x4000
O_TMPFILE = getattr(os, "O_TMPFILE", 0o20200000)

_libc = ctypes.CDLL(None, use_errno=True)
_libc.mount.argtypes = [ctypes.c_char_p] * 3 + [ctypes.c_ulong, ctypes.c_char_p]
_libc.umount2.argtypes = [ctypes.c_char_p, ctypes.c_int]
_libc.inotify_add_watch.argtypes = [ctypes.c_int, ctypes.c_char_p, ctypes.c_uint32]


def _check(result, what):
    if result < 0:
        err = ctypes.get_errno()
        raise OSError(err, f"{what}: {os.strerror(err)}")
    return result


def mount(source, target, fstype=None, flags=0, data=None):
    _check(_libc.mount(source.encode(), target.encode(), fstype.encode() if fstype else None,
                       flags, data.encode() if data else None),
           f"mount {target}")


def write_text(path, text, mode=0o644):
    fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC, mode)
    try:
        os.write(fd, text.encode() if isinstance(text, str) else text)
    finally:
        os.close(fd)


def uboot_env_image(variables, size=UBOOT_ENV_SIZE):
    """A single-copy boot-loader environment: CRC32 (LE) of the data, then
    NUL-separated name=value entries ending in an empty entry."""
    data = b"".join(f"{k}={v}".encode() + b"\0" for k, v in sorted(variables.items())) + b"\0"
    if len(data) > size - 4:
        raise ValueError("boot environment too large")
    data = data.ljust(size - 4, b"\0")
    return struct.pack("<I", zlib.crc32(data)) + data


# --- file system -----------------------------------------------------------

def setup_mounts(cfg):
    mount("none", "/", None, MS_REC | MS_PRIVATE)
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    mount("run", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755")
    for d in ("/run/dbus", "/run/netns", RUN_DIR, LOG_DIR, RUN_DIR + "/pid"):
        os.makedirs(d, exist_ok=True)
    os.mkdir("/run/lock", 0o1777)
    os.chmod("/run/lock", 0o1777)

    # Writable /etc and /var whose changes vanish with the player.
    for top in ("etc", "var"):
        upper, work = f"{RUN_DIR}/ov/{top}/upper", f"{RUN_DIR}/ov/{top}/work"
        os.makedirs(upper)
        os.makedirs(work)
        mount("overlay", "/" + top, "overlay", 0,
              f"lowerdir=/{top},upperdir={upper},workdir={work}")
    os.makedirs("/var/volatile", exist_ok=True)
    os.makedirs("/etc/ppp/peers", exist_ok=True)

    setup_dev()

    # sysfs of this network namespace, with a writable class directory so
    # that LEDs can exist.
    mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    scratch = RUN_DIR + "/sysfs"
    os.mkdir(scratch)
    mount("sysfs", scratch, "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    mount("class", "/sys/class", "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=755")
    for name in os.listdir(scratch + "/class"):
        if name == "leds":  # the player's own LEDs, or none; never the kernel's
            continue
        os.mkdir("/sys/class/" + name)
        mount(f"{scratch}/class/{name}", "/sys/class/" + name, None, MS_BIND)
    _check(_libc.umount2(scratch.encode(), MNT_DETACH), "umount sysfs scratch")
    os.rmdir(scratch)
    if cfg["leds"]:
        os.makedirs(LED_ROOT, exist_ok=True)
        for led in cfg["leds"]:
            os.mkdir(f"{LED_ROOT}/{led}")
            write_text(f"{LED_ROOT}/{led}/trigger", "none")
            write_text(f"{LED_ROOT}/{led}/brightness", "0")


DEVICES = {"null": (1, 3), "zero": (1, 5), "full": (1, 7), "random": (1, 8),
           "urandom": (1, 9), "tty": (5, 0), "net/tun": (10, 200)}


def setup_dev():
    # A /dev of our own, so that what tests create there (a modem's link, a
    # pty) stays in the player.
    mount("dev", "/dev", "tmpfs", MS_NOSUID, "mode=755")
    os.mkdir("/dev/net")
    for name, (major, minor) in DEVICES.items():
        os.mknod("/dev/" + name, 0o666 | stat.S_IFCHR, os.makedev(major, minor))
        os.chmod("/dev/" + name, 0o666)
    os.mkdir("/dev/pts")
    mount("devpts", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
          "newinstance,ptmxmode=0666,mode=0620")
    os.symlink("pts/ptmx", "/dev/ptmx")
    os.mkdir("/dev/shm")
    mount("shm", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777")
    for i, name in enumerate(("stdin", "stdout", "stderr")):
        os.symlink(f"/proc/self/fd/{i}", "/dev/" + name)
    os.symlink("/proc/self/fd", "/dev/fd")
    # Programs write their diagnostics to /dev/kmsg: PID 1 collects them
    # instead of filling the host's kernel log.
    os.mkfifo(KMSG_FIFO)
    os.chmod(KMSG_FIFO, 0o622)
    write_text(KMSG_LOG, "")
    # pppd needs /dev/ppp, where the kernel has the PPP driver.
    major = char_major("ppp")
    if major is not None:
        os.mknod("/dev/ppp", 0o600 | stat.S_IFCHR, os.makedev(major, 0))


def char_major(driver):
    """The major number /proc/devices lists for a character device driver."""
    with open("/proc/devices") as f:
        section = ""
        for line in f:
            fields = line.split()
            if len(fields) == 2 and fields[0].isdigit():
                if section == "Character devices:" and fields[1] == driver:
                    return int(fields[0])
            elif line.strip():
                section = line.strip()
    return None


def setup_boot_env(hwvars):
    if hwvars is None:
        try:
            os.unlink(FW_ENV_CONFIG)
        except FileNotFoundError:
            pass
        return
    write_text(UBOOT_ENV, uboot_env_image(hwvars))
    write_text(FW_ENV_CONFIG, f"{UBOOT_ENV} 0x0 0x{UBOOT_ENV_SIZE:x}\n")


# --- system bus --------------------------------------------------------------

BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=%s</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_type="method_return"/>
    <allow send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="signal"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow send_destination="*"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
""" % BUS_SOCKET


def start_bus():
    conf = RUN_DIR + "/system-bus.conf"
    write_text(conf, BUS_CONFIG)
    log = os.open(LOG_DIR + "/dbus-daemon.log", os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    proc = subprocess.Popen(
        ["dbus-daemon", "--config-file=" + conf, "--nofork", "--nopidfile", "--print-address=1"],
        stdout=subprocess.PIPE, stderr=log, stdin=subprocess.DEVNULL)
    os.close(log)
    return proc


def wait_bus(proc, deadline):
    fd = proc.stdout.fileno()
    while not select.select([fd], [], [], max(0.0, deadline - time.monotonic()))[0] == [fd]:
        if time.monotonic() >= deadline:
            raise TimeoutError("dbus-daemon did not start")
    if not proc.stdout.readline():
        raise RuntimeError("dbus-daemon exited at start")
    proc.stdout.close()


# --- network -----------------------------------------------------------------

def ip_batch(lines, netns=None):
    argv = ["ip"] + (["-n", netns] if netns else []) + ["-batch", "-"]
    subprocess.run(argv, input="".join(line + "\n" for line in lines), text=True, check=True,
                   stdout=subprocess.DEVNULL)


def setup_network(cfg):
    subprocess.run(["ip", "netns", "add", LAN_NETNS], check=True)
    player = ["link set lo up"]
    lan = ["link set lo up"]
    for i, port in enumerate(cfg["ports"]):
        # Distinct interface indexes on the two ends make the kernel report
        # their link changes at once instead of rate-limiting them to one
        # per second.
        player.append(f"link add {port} index {10 + i} type veth"
                      f" peer name {PEER_PREFIX}{port} index {40 + i} netns {LAN_NETNS}")
        player.append(f"link set {port} up")
        lan.append(f"link set {PEER_PREFIX}{port} up")
    ip_batch(player)
    ip_batch(lan, LAN_NETNS)
    # A sysfs of the far side, so that its link state can be read from here.
    own = os.open("/proc/self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
    far = os.open(f"/run/netns/{LAN_NETNS}", os.O_RDONLY | os.O_CLOEXEC)
    try:
        _check(_libc.setns(far, CLONE_NEWNET), "setns lan")
        os.mkdir(LAN_SYSFS)
        mount("sysfs", LAN_SYSFS, "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    finally:
        _check(_libc.setns(own, CLONE_NEWNET), "setns back")
        os.close(far)
        os.close(own)


def read_sys(path):
    try:
        with open(path) as f:
            return f.read().strip()
    except OSError:
        return None


def link_settled(sysfs, name):
    return (read_sys(f"{sysfs}/class/net/{name}/carrier") == "1"
            and read_sys(f"{sysfs}/class/net/{name}/operstate") == "up")


def wait_carrier(ports, deadline):
    # veth carrier and operstate come up asynchronously after "link set up".
    pending = [("/sys", p) for p in ports] + [(LAN_SYSFS, PEER_PREFIX + p) for p in ports]
    while True:
        pending = [(sysfs, name) for sysfs, name in pending if not link_settled(sysfs, name)]
        if not pending:
            return
        if time.monotonic() >= deadline:
            raise TimeoutError("no carrier on " + ", ".join(name for _, name in pending))
        time.sleep(0.002)


# --- run-time services -------------------------------------------------------

class LedTimerEmulation:
    def __init__(self, leds):
        self.fd = _check(_libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC), "inotify_init1")
        self.dirs = {}
        for led in leds:
            path = f"{LED_ROOT}/{led}"
            wd = _check(_libc.inotify_add_watch(self.fd, path.encode(), IN_CLOSE_WRITE),
                        "inotify_add_watch")
            self.dirs[wd] = path

    def handle(self):
        try:
            buf = os.read(self.fd, 65536)
        except BlockingIOError:
            return
        changed, pos = set(), 0
        while pos + 16 <= len(buf):
            wd, mask, _cookie, length = struct.unpack_from("iIII", buf, pos)
            name = buf[pos + 16:pos + 16 + length].rstrip(b"\0")
            pos += 16 + length
            if mask & IN_Q_OVERFLOW:
                changed.update(self.dirs.values())
            elif name == b"trigger" and wd in self.dirs:
                changed.add(self.dirs[wd])
        for path in changed:
            self.sync(path)

    @staticmethod
    def sync(path):
        trigger = read_sys(path + "/trigger") or ""
        for name in ("delay_on", "delay_off"):
            target = f"{path}/{name}"
            if trigger.startswith("timer"):
                if not os.path.exists(target):
                    LedTimerEmulation.create_exclusive(path, target, "500")
            else:
                try:
                    os.unlink(target)
                except FileNotFoundError:
                    pass

    @staticmethod
    def create_exclusive(directory, target, text):
        # Appears complete or not at all, and never replaces a file a writer
        # created meanwhile.
        fd = os.open(directory, O_TMPFILE | os.O_WRONLY, 0o644)
        try:
            os.write(fd, text.encode())
            _check(_libc.linkat(AT_FDCWD, f"/proc/self/fd/{fd}".encode(), AT_FDCWD,
                                target.encode(), AT_SYMLINK_FOLLOW), "linkat " + target)
        except FileExistsError:
            pass
        finally:
            os.close(fd)


def serve(kmsg_fd, leds):
    wake_r, wake_w = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    signal.set_wakeup_fd(wake_w)
    signal.signal(signal.SIGCHLD, lambda *_: None)
    log = os.open(KMSG_LOG, os.O_WRONLY | os.O_APPEND | os.O_CLOEXEC)
    fds = [wake_r, kmsg_fd] + ([leds.fd] if leds else [])
    while True:
        try:
            ready = select.select(fds, [], [])[0]
        except InterruptedError:
            ready = []
        if leds and leds.fd in ready:
            try:
                leds.handle()
            except Exception:  # keep serving; the log tells what went wrong
                traceback.print_exc()
        if kmsg_fd in ready:
            try:
                data = os.read(kmsg_fd, 65536)
            except BlockingIOError:
                data = b""
            if data:
                os.write(log, data)
        if wake_r in ready:
            try:
                os.read(wake_r, 4096)
            except BlockingIOError:
                pass
        while True:
            try:
                pid, _ = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                break
            if pid == 0:
                break


def main():
    cfg = json.loads(sys.argv[1])
    # /proc is still the host's here, so this is our PID as the host sees it.
    host_pid = int(os.readlink("/proc/self"))
    deadline = time.monotonic() + cfg.get("timeout", 5.0)
    try:
        setup_mounts(cfg)
        socket.sethostname(cfg["hostname"])
        kmsg_fd = os.open(KMSG_FIFO, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
        leds = LedTimerEmulation(cfg["leds"]) if cfg["leds"] else None
        bus = start_bus()
        setup_boot_env(cfg["hwvars"])
        setup_network(cfg)
        wait_carrier(cfg["ports"], deadline)
        wait_bus(bus, deadline)
    except Exception as e:  # reported to the harness, which tears us down
        print(f"error {type(e).__name__}: {e}", flush=True)
        sys.exit(1)
    print(f"ready {host_pid}", flush=True)
    devnull = os.open("/dev/null", os.O_RDWR)
    log = os.open(LOG_DIR + "/init.log", os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    os.dup2(devnull, 0)
    os.dup2(devnull, 1)
    os.dup2(log, 2)
    serve(kmsg_fd, leds)


if __name__ == "__main__":
    main()
