"""The simulated player: linkrig's world in a few namespaces.

    with Player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"}) as p:
        result = p.linkrig("eth0", "checklink")
        p.set_peer_link("eth0", up=False)

A player is a PID, mount, network and UTS namespace (set up by init.py, its
PID 1) holding:
  * loopback, and one veth per port ("eth0", "wlan0", ...) whose other end
    ("peer-eth0", ...) sits in the network namespace "lan" -- the local
    network; every link has carrier when the player is handed over;
  * a private system bus at the ordinary path /run/dbus/system_bus_socket;
  * tmpfs /run (/var/run), and /etc and /var as overlays whose changes
    vanish with the player (/var/volatile and /etc/ppp/peers exist);
  * the boot loader's environment, file-backed through /etc/fw_env.config
    (hwvars=None: no such file at all);
  * sysfs of the player's network namespace, with LEDs under
    /sys/class/leds whose timer trigger is emulated (see init.py);
  * a /dev of its own (null, zero, random, tty, net/tun, private ptys),
    where /dev/kmsg is a pipe whose text Player.kmsg() returns;
  * its own host name ("player").

The host's file system is otherwise shared (/work, /tmp, /usr).  Closing
the player SIGKILLs its PID 1, which ends every process in it and with them
its mounts and namespaces; the harness also dies with its parent, so not
even a killed test run leaves anything behind.
"""

import atexit
import ctypes
import errno
import json
import os
import select
import signal
import subprocess
import time
import weakref
from pathlib import Path

from . import init as _init

INIT_SCRIPT = str(Path(__file__).with_name("init.py"))
REGISTRY_SERVICE = str(Path(__file__).with_name("registry_service.py"))
MODEM_SIMULATOR = str(Path(__file__).with_name("modem_simulator.py"))
NTP_RESPONDER = str(Path(__file__).with_name("ntp_responder.py"))
MODEM_DIR = _init.RUN_DIR + "/modem"
REGISTRY_STORE = _init.RUN_DIR + "/registry.json"
REGISTRY_CALL = ["busctl", "--system", "call", "com.ombalabs.Registry", "/com/ombalabs/Registry",
                 "com.ombalabs.Registry"]
SUPPLICANT_CALL = ["busctl", "--system", "get-property", "fi.w1.wpa_supplicant1",
                   "/fi/w1/wpa_supplicant1", "fi.w1.wpa_supplicant1"]
AVAHI_CONFIG = _init.RUN_DIR + "/avahi-daemon.conf"
AVAHI_CONFIG_TEXT = """[server]
use-ipv4=yes
use-ipv6=no
enable-dbus=yes
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
"""
AVAHI_CALL = ["busctl", "--system", "call", "org.freedesktop.Avahi", "/",
              "org.freedesktop.Avahi.Server"]
PYTHON = "/usr/bin/python3"
DEFAULT_TIMEOUT = 30.0
# Deadlines for a player or a daemon to be ready: they cost nothing when things
# are quick, and an emulated CPU on a loaded machine can take seconds.
START_TIMEOUT = 15.0
BASE_ENV = {
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "LANG": "C",
    "HOME": "/root",
}
PASSED_ENV = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS")
KMSG_LOG = _init.KMSG_LOG
LOG_DIR = _init.LOG_DIR
PID_DIR = _init.RUN_DIR + "/pid"
LAN_SYSFS = _init.LAN_SYSFS
NO_HWVARS = {}
_KMSG_MARK = "\x01player-kmsg-mark "
STAND_IN_DIR = _init.RUN_DIR + "/stand-in"
# Appends its argument vector (argv[0] first) as one JSON line, then exits
# (after a delay, when asked for one).
_STAND_IN_SCRIPT = """#!/usr/bin/python3 -I
import json, sys, time
with open({record!r}, "a") as f:
    f.write(json.dumps(sys.argv) + "\\n")
time.sleep({delay})
sys.exit({exit_code})
"""
# The same in the shell, for measurements: a shell's memory stays below any
# program that waits for it (a waited-for child's peak counts in the parent's
# rusage). Fields end in NUL, each run in \x01.
_LIGHT_STAND_IN_SCRIPT = """#!/bin/sh
printf '%s\\0' "$0" "$@" >> "{record}"
printf '\\001' >> "{record}"
sleep {delay}
exit {exit_code}
"""

_PR_SET_PDEATHSIG = 1
_SYS_OPENAT2 = 437
_RESOLVE_IN_ROOT = 0x10
_libc = ctypes.CDLL(None, use_errno=True)
_live_players = weakref.WeakSet()


class PlayerError(RuntimeError):
    pass


def linkrig_path():
    """The linkrig under test: $LINKRIG_BUILD_DIR/apps/linkrig/linkrig."""
    build = os.environ.get("LINKRIG_BUILD_DIR", "/work/main/build")
    return str(Path(build) / "apps" / "linkrig" / "linkrig")


def wait_for(predicate, timeout=5.0, interval=0.005, what="condition"):
    """Polls predicate until it returns something true; returns that value.
    Raises TimeoutError naming `what` when the deadline passes."""
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise TimeoutError(f"timed out after {timeout:g} s waiting for {what}")
        time.sleep(interval)


def _die_with_parent():
    # Runs in the child before exec: a harness that dies takes it along.
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)


def _boot_ticks():
    """Now, in the unit and time base of a process's start time in /proc."""
    return int(time.clock_gettime(time.CLOCK_BOOTTIME) * os.sysconf("SC_CLK_TCK"))


def _kill_children(parent):
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat") as f:
                ppid = int(f.read().rpartition(")")[2].split()[1])
            if ppid == parent:
                os.kill(int(entry), signal.SIGKILL)
        except (OSError, ValueError, IndexError):
            pass


class _OpenHow(ctypes.Structure):
    _fields_ = [("flags", ctypes.c_uint64), ("mode", ctypes.c_uint64),
                ("resolve", ctypes.c_uint64)]


class Daemon:
    """A long-running program started by start_daemon().  Its output goes
    to the log file LOG_DIR/NAME.log inside the player."""

    def __init__(self, side, name, popen):
        self.side, self.name, self.popen = side, name, popen
        self.log_path = f"{LOG_DIR}/{name}.log"

    @property
    def pid(self):
        """The process ID as seen inside the player (before any fork)."""
        text = self.side.player.read_file(f"{PID_DIR}/{self.name}")
        return int(text)

    def log(self):
        return self.side.player.read_file(self.log_path)

    def running(self):
        return self.side.player.exists(f"/proc/{self.pid}")

    def send_signal(self, sig):
        self.side.player.run(["kill", f"-{int(sig)}", str(self.pid)], check=True)

    def stop(self, sig=signal.SIGTERM, timeout=5.0):
        """Signals the program and waits until it has gone; SIGKILL after
        the timeout."""
        if self.running():
            self.send_signal(sig)
        try:
            wait_for(lambda: not self.running(), timeout=timeout, what=f"{self.name} to end")
        except TimeoutError:
            if self.running():
                self.send_signal(signal.SIGKILL)
        try:
            self.popen.wait(timeout)
        except subprocess.TimeoutExpired:
            self.popen.kill()
            self.popen.wait()


class ProgramStandIn:
    """What Player.replace_program() put in place of a program."""

    def __init__(self, player, path, record):
        self.player, self.path, self.record = player, path, record

    def calls(self):
        """The argument vectors (without argv[0]) of every run so far, in order."""
        if not self.player.exists(self.record):
            return []
        text = self.player.read_file(self.record)
        if text.endswith("\x01"):
            return [run.split("\0")[1:-1] for run in text.split("\x01")[:-1]]
        return [json.loads(line)[1:] for line in text.splitlines()]


class Modem:
    """What Player.start_modem() put behind /dev/modem."""

    def __init__(self, player, line, transcript, daemons):
        self.player, self.line, self.transcript_path = player, line, transcript
        self.daemons = daemons
        # With ppp: the answering pppd once the call is connected.
        self.simulator = daemons[-1]

    def transcript(self):
        """[{"command": text, "answer": text or None}, ...] in order."""
        if not self.player.exists(self.transcript_path):
            return []
        return [json.loads(line)
                for line in self.player.read_file(self.transcript_path).splitlines()]

    def stop(self):
        for daemon in reversed(self.daemons):
            daemon.stop()


class _Side:
    """Runs programs on one side of the wire: in the player, or on the lan."""

    def __init__(self, player):
        self.player = player

    def _inner(self, argv):
        return list(argv)

    def command(self, argv):
        """The host argv that runs argv here."""
        pid = self.player._require_pid()
        return (["nsenter", f"--target={pid}", "--mount", "--net", "--uts", "--pid", "--",
                 # Killing nsenter (on a timeout) must also end what it runs.
                 "setpriv", "--pdeathsig", "KILL", "--"] + self._inner([str(a) for a in argv]))

    @staticmethod
    def environment(env=None):
        result = dict(BASE_ENV)
        result.update({k: os.environ[k] for k in PASSED_ENV if k in os.environ})
        if env:
            result.update(env)
        return result

    def run(self, argv, check=False, timeout=DEFAULT_TIMEOUT, input=None, env=None, text=True):
        """Runs argv to completion; returns the CompletedProcess (stdout and
        stderr captured).  On timeout the program is killed and
        subprocess.TimeoutExpired raised.  Anything it leaves running must
        not hold on to its stdout or stderr, or run() waits for it."""
        kwargs = {"errors": "surrogateescape"} if text else {}
        args = self.command(argv)
        with subprocess.Popen(args, stdin=subprocess.PIPE if input is not None else None,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=text,
                              env=self.environment(env), start_new_session=True,
                              preexec_fn=_die_with_parent, **kwargs) as proc:
            try:
                out, err = proc.communicate(input, timeout)
            except subprocess.TimeoutExpired:
                # The program first, so that nsenter reaps it: orphaned, it
                # would be a zombie of the host's init, and the player could
                # not end until that init got round to it.
                _kill_children(proc.pid)
                try:
                    proc.wait(5)
                except subprocess.TimeoutExpired:
                    proc.kill()
                    proc.wait()
                raise
        result = subprocess.CompletedProcess(args, proc.returncode, out, err)
        if check:
            result.check_returncode()
        return result

    def spawn(self, argv, env=None, **popen_kwargs):
        """Starts argv without waiting; returns the Popen.  It is killed at
        the latest when the player closes."""
        proc = subprocess.Popen(self.command(argv), env=self.environment(env),
                                start_new_session=True, preexec_fn=_die_with_parent,
                                **popen_kwargs)
        self.player._children.append(proc)
        return proc

    def start_daemon(self, name, argv, ready=None, timeout=START_TIMEOUT, env=None):
        """Starts a long-running program and waits until it is ready:
        ready(player) is true, or, for a string, its output contains it.
        Fails, with the program's log, if it exits with an error or is not
        ready in time.  A program that forks itself away may exit with 0
        before it is ready."""
        player = self.player
        log = player._open_inside(f"{LOG_DIR}/{name}.log",
                                  os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)
        try:
            wrapped = ["sh", "-c", 'echo $$ > "$0" && exec "$@"', f"{PID_DIR}/{name}"] + list(argv)
            proc = self.spawn(wrapped, env=env, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        finally:
            os.close(log)
        daemon = Daemon(self, name, proc)
        if isinstance(ready, str):
            ready = (lambda text: lambda _: text in daemon.log())(ready)
        deadline = time.monotonic() + timeout
        while not (ready is None or ready(player)):
            status = proc.poll()
            if status not in (None, 0):
                raise PlayerError(f"{name} exited with status {status}:\n{daemon.log()}")
            if time.monotonic() >= deadline:
                raise PlayerError(f"{name} not ready after {timeout:g} s:\n{daemon.log()}")
            time.sleep(0.01)
        return daemon


class Lan(_Side):
    """The local network: the far ends of the player's ports, in the network
    namespace "lan" (programs there still run in the player's PID and mount
    namespaces, so they end with it)."""

    def _inner(self, argv):
        return ["ip", "netns", "exec", _init.LAN_NETNS] + list(argv)

    @staticmethod
    def peer(port):
        """The far end's interface name of a player port."""
        return _init.PEER_PREFIX + port

    def link_state(self, port):
        return self.player._link_state(f"{LAN_SYSFS}/class/net/{self.peer(port)}")


class Player(_Side):
    """A simulated player; use it as a context manager (or call start() and
    close()).  See the module documentation."""

    def __init__(self, ports=("eth0",), hwvars=NO_HWVARS, leds=("ethernet", "wifi"),
                 hostname="player", start_timeout=START_TIMEOUT, may_set_clock=False):
        """ports: interface names of the veth ports; hwvars: boot environment
        variables, or None for no environment at all; leds: LED names under
        /sys/class/leds (empty: no LED class); may_set_clock: whether linkrig
        may set the clock, which the player shares with the machine it runs on
        (only a QEMU guest's clock is the player's own)."""
        super().__init__(self)
        for port in ports:
            if not (0 < len(port) <= 10 and port.isalnum()):
                raise ValueError(f"bad port name {port!r}")
        self.ports = tuple(ports)
        self.hwvars = None if hwvars is None else dict(hwvars)
        self.leds = tuple(leds)
        self.host_name = hostname
        self.may_set_clock = may_set_clock
        self.start_timeout = start_timeout
        self.lan = Lan(self)
        self._unshare = None
        self._pid = None
        self._pidfd = None
        self._pid_ns = None
        self._killed_at = None
        self._children = []
        self._kmsg_marks = 0
        self._stand_in_layers = {}
        self._closed = False

    # --- life cycle --------------------------------------------------------

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def start(self):
        if self._unshare is not None:
            raise PlayerError("player already started")
        config = {"ports": self.ports, "leds": self.leds, "hwvars": self.hwvars,
                  "hostname": self.host_name, "timeout": self.start_timeout}
        _live_players.add(self)
        try:
            self._unshare = subprocess.Popen(
                ["unshare", "--pid", "--fork", "--kill-child", "--mount", "--net", "--uts",
                 "--propagation", "private", "--", PYTHON, INIT_SCRIPT, json.dumps(config)],
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                start_new_session=True, preexec_fn=_die_with_parent, env=self.environment())
            line = self._read_ready_line()
            if not line.startswith("ready "):
                self._unshare.kill()
                _, err = self._unshare.communicate(timeout=10)
                raise PlayerError(f"player did not start: {line.strip() or 'no answer'}\n"
                                  + err.decode(errors="replace"))
            self._pid = int(line.split()[1])
            self._pidfd = os.pidfd_open(self._pid)
            self._pid_ns = os.stat(f"/proc/{self._pid}/ns/pid").st_ino
        except BaseException:
            self.close()
            raise
        return self

    def _read_ready_line(self):
        fd = self._unshare.stdout.fileno()
        deadline = time.monotonic() + self.start_timeout + 5.0
        data = b""
        while not data.endswith(b"\n"):
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([fd], [], [], left)[0]:
                return ""
            chunk = os.read(fd, 4096)
            if not chunk:
                break
            data += chunk
        return data.decode(errors="replace")

    def close(self):
        """Ends every process of the player; its mounts and namespaces go
        with them.  Safe to call more than once."""
        if self._closed:
            return
        self._closed = True
        self._killed_at = _boot_ticks()
        try:
            if self._pidfd is not None:
                try:
                    signal.pidfd_send_signal(self._pidfd, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            elif self._unshare is not None:
                self._unshare.kill()  # --kill-child takes PID 1 along
            if self._unshare is not None:
                try:
                    self._unshare.wait(10)
                except subprocess.TimeoutExpired:
                    self._unshare.kill()  # --kill-child takes PID 1 along
                    self._unshare.wait()
            for child in self._children:
                try:
                    child.wait(10)
                except subprocess.TimeoutExpired:
                    child.kill()
                    child.wait()
        finally:
            if self._pidfd is not None:
                os.close(self._pidfd)
            for stream in (self._unshare.stdout, self._unshare.stderr) if self._unshare else ():
                stream.close()
            _live_players.discard(self)

    def leftovers(self):
        """Host PIDs of this player's processes that are still alive, and of
        the harness's own helpers for it (for checks after close())."""
        found = [p.pid for p in [self._unshare] + self._children if p and p.poll() is None]
        if self._pid_ns is None:
            return found
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                if os.stat(f"/proc/{entry}/ns/pid").st_ino != self._pid_ns:
                    continue
                with open(f"/proc/{entry}/stat") as f:
                    started = int(f.read().rpartition(")")[2].split()[19])
            except (OSError, ValueError, IndexError):
                continue
            # A namespace's number is reused once it is gone; processes of a
            # later namespace with our old number were started after our end.
            if self._killed_at is None or started <= self._killed_at:
                found.append(int(entry))
        return sorted(set(found))

    def _require_pid(self):
        if self._pid is None or self._closed:
            raise PlayerError("player is not running")
        return self._pid

    # --- programs ------------------------------------------------------------

    def linkrig(self, *args, env=None, timeout=DEFAULT_TIMEOUT):
        """Runs the built linkrig with these arguments inside the player; unless
        the player may set the clock, without the capability to set it (its
        attempts fail with EPERM)."""
        path = linkrig_path()
        if not os.access(path, os.X_OK):
            raise FileNotFoundError(f"no linkrig at {path} (set LINKRIG_BUILD_DIR)")
        return self.run(self.clock_guard() + [path] + list(args), env=env, timeout=timeout)

    def clock_guard(self):
        """The command prefix that keeps a program from setting the clock."""
        if self.may_set_clock:
            return []
        return ["setpriv", "--bounding-set=-sys_time", "--inh-caps=-sys_time", "--"]

    def pids(self, name):
        """PIDs (as seen inside) of the player's live processes named name."""
        found = []
        for entry in self.listdir("/proc"):
            try:
                stat = self.read_file(f"/proc/{entry}/stat") if entry.isdigit() else ""
            except OSError:
                continue
            if f"({name}) " in stat and stat.rpartition(")")[2].split()[0] != "Z":
                found.append(int(entry))
        return sorted(found)

    def dhcp_clients(self, ifname):
        """PIDs of the dhcpcd instances for ifname: each is a manager process
        ("dhcpcd: IFNAME [ip4] ...") with its proxies below it."""
        found = []
        for pid in self.pids("dhcpcd"):
            try:
                title = self.read_file(f"/proc/{pid}/cmdline")
            except OSError:
                continue
            if title.startswith(f"dhcpcd: {ifname} "):
                found.append(pid)
        return found

    def skip_address_probing(self):
        """Makes dhcpcd use an address without probing it by ARP first, which
        costs it about five seconds a lease; nothing else on the player's
        wires could hold the address."""
        self.write_file("/etc/dhcpcd.conf", "noarp\n", append=True)

    def hostname(self):
        return self.run(["hostname"], check=True).stdout.strip()

    def make_writable(self, directory):
        """Puts an overlay on directory, in this player only, whose changes
        vanish with it: what is installed there (a package into /usr) never
        reaches the host."""
        self.makedirs(f"{_init.RUN_DIR}/ov")
        layer = f"{_init.RUN_DIR}/ov/{len(self.listdir(_init.RUN_DIR + '/ov'))}"
        for d in ("upper", "work"):
            self.makedirs(f"{layer}/{d}")
        self.run(["mount", "-t", "overlay", "writable", "-o",
                  f"lowerdir={directory},upperdir={layer}/upper,workdir={layer}/work", directory],
                 check=True)

    def replace_program(self, path, exit_code=0, missing=False, delay=0, light=False):
        """Replaces the program at path, in this player only, by a stand-in that
        records its argument vectors and exits with exit_code (after delay
        seconds), or with missing=True by nothing at all; returns a
        ProgramStandIn.  light=True makes it a shell script instead of
        Python: quicker, and smaller than any program that waits for it.  The
        program's directory gets an overlay with the stand-in on top: a bind
        mount onto a symbolic link such as /usr/sbin/udhcpd would land on its
        target (busybox) and replace every program sharing it.  Overlays
        stack only two deep, so a later stand-in in the same directory
        replaces the overlay by one with every layer, unless a program runs
        from it."""
        directory = self.run(["readlink", "-e", os.path.dirname(path)], check=True).stdout.strip()
        name = os.path.basename(path)
        self.makedirs(STAND_IN_DIR)
        layer = f"{STAND_IN_DIR}/{len(self.listdir(STAND_IN_DIR))}"
        self.makedirs(layer)
        record = layer + ".argv"
        if missing:
            # An overlay whiteout hides the program of the layers below.
            self.run(["mknod", f"{layer}/{name}", "c", "0", "0"], check=True)
        else:
            script = _LIGHT_STAND_IN_SCRIPT if light else _STAND_IN_SCRIPT
            self.write_file(f"{layer}/{name}",
                            script.format(record=record, exit_code=int(exit_code),
                                          delay=float(delay)),
                            mode=0o755)
        layers = self._stand_in_layers.setdefault(directory, [])
        if layers and self.run(["umount", directory]).returncode != 0:
            layers.clear()
        layers.insert(0, layer)
        self.run(["mount", "-t", "overlay", "stand-in", "-o",
                  "lowerdir=" + ":".join(layers + [directory]), directory], check=True)
        return ProgramStandIn(self, path, record)

    def kmsg(self):
        """Everything written to /dev/kmsg inside the player so far."""
        # PID 1 copies the pipe to the log; once a mark written now shows up
        # there, so has everything written before it.
        self._kmsg_marks += 1
        mark = f"{_KMSG_MARK}{self._kmsg_marks}\n"
        fd = self._open_inside("/dev/kmsg", os.O_WRONLY | os.O_NONBLOCK)
        try:
            os.write(fd, mark.encode())
        finally:
            os.close(fd)
        text = wait_for(lambda: (lambda t: t if mark in t else None)(self.read_file(KMSG_LOG)),
                        timeout=5.0, what="/dev/kmsg to drain")
        return "".join(line for line in text.splitlines(keepends=True)
                       if not line.startswith(_KMSG_MARK))

    def set_hwvars(self, hwvars):
        """Replaces the boot environment (None: remove it)."""
        if hwvars is None:
            self.remove_file(_init.FW_ENV_CONFIG)
            return
        self.write_file(_init.UBOOT_ENV, _init.uboot_env_image(hwvars))
        self.write_file(_init.FW_ENV_CONFIG,
                        f"{_init.UBOOT_ENV} 0x0 0x{_init.UBOOT_ENV_SIZE:x}\n")

    # --- links -----------------------------------------------------------------

    def _link_state(self, sysdir):
        def get(name):
            try:
                return self.read_file(f"{sysdir}/{name}").strip()
            except OSError:
                return None
        flags = get("flags")
        return {"up": bool(flags and int(flags, 16) & 1), "carrier": get("carrier") == "1",
                "operstate": get("operstate")}

    def link_state(self, port):
        """{"up": administratively up, "carrier": bool, "operstate": str} of
        a player interface (operstate None when it does not exist)."""
        return self._link_state(f"/sys/class/net/{port}")

    def _settle(self, port):
        want = self.link_state(port)["up"] and self.lan.link_state(port)["up"]
        def settled():
            mine, far = self.link_state(port), self.lan.link_state(port)
            return all(s["carrier"] == want and (s["operstate"] == "up") == want
                       for s in (mine, far))
        wait_for(settled, timeout=5.0, what=f"link of {port} to settle")

    def set_link(self, port, up=True):
        """Sets a player port administratively up or down; returns when its
        carrier and operating state have followed."""
        self.run(["ip", "link", "set", port, "up" if up else "down"], check=True)
        self._settle(port)

    def set_peer_link(self, port, up=True):
        """Sets the far end of a port up or down (a cable pulled or plugged)."""
        self.run(["ip", "-n", _init.LAN_NETNS, "link", "set", Lan.peer(port),
                  "up" if up else "down"], check=True)
        self._settle(port)

    # --- modem -------------------------------------------------------------------

    def start_modem(self, dial_answer="CONNECT", ppp=None):
        """Gives the player a modem: a pseudo-terminal pair joined by socat,
        one end linked as /dev/modem, the other answered by
        modem_simulator.py ("OK" to "ATZ", dial_answer to "ATDT...").
        With ppp="FAR:NEAR" (two IPv4 addresses) the call is answered on the
        lan: after "CONNECT" the simulator hands the line to a pppd there
        that takes the address FAR and gives the caller NEAR (its log is the
        modem's, LOG_DIR/modem.log).  Returns a Modem."""
        line = MODEM_DIR + "/line"
        transcript = MODEM_DIR + "/transcript"
        self.makedirs(MODEM_DIR)
        link = self.start_daemon(
            "modem-socat",
            ["socat", "pty,link=/dev/modem,rawer,echo=0", f"pty,link={line},rawer,echo=0"],
            ready=lambda p: p.exists("/dev/modem") and p.exists(line))
        argv = [PYTHON, MODEM_SIMULATOR, line, transcript, "--dial", dial_answer]
        side = self
        if ppp is not None:
            # A line without modem control signals; the options on the
            # command line override those of /etc/ppp/options.
            argv += ["--then", "pppd", line, "115200", "noauth", "local", "nocrtscts", "nolock",
                     "nodetach", ppp]
            side = self.lan
        simulator = side.start_daemon("modem", argv, ready="ready")
        return Modem(self, line, transcript, [link, simulator])

    # --- network time --------------------------------------------------------------

    def start_ntp_server(self, side="lan", address=None, port=123, offset=0):
        """Starts the real chronyd on the lan (side="lan") or in the player
        (side="player"), serving this machine's own clock at stratum 8 to
        anyone, on address (every address when None) and port; returns its
        Daemon, ready once it serves a synchronised time.  chronyd runs
        with -x: the player shares this machine's clock, which it must
        never adjust (nor could it: it runs without the capability to set
        the time).  With an offset (seconds), chronyd runs under faketime
        and serves the clock moved by that much.  It keeps its files in
        /run/chrony-SIDE, and its Unix command socket there answers
        `chronyc -h PATH`."""
        where = {"lan": self.lan, "player": self}[side]
        directory = f"/run/chrony-{side}"
        self.makedirs(directory, mode=0o700)
        # chronyd drops root for its user, which must own the command socket's directory.
        self.run(["chown", "_chrony:_chrony", directory], check=True)
        socket_path = f"{directory}/chronyd.sock"
        self.write_file(f"{directory}/chrony.conf", "".join([
            "local stratum 8\n", "allow all\n", f"port {int(port)}\n",
            f"bindaddress {address}\n" if address else "",
            "cmdport 0\n", f"bindcmdaddress {socket_path}\n",
            f"pidfile {directory}/chronyd.pid\n"]))
        tracking = ["chronyc", "-h", socket_path, "-c", "tracking"]
        # Without the capability to set the time, even a chronyd that ignored
        # -x could not touch the clock.
        argv = ["setpriv", "--bounding-set=-sys_time", "--inh-caps=-sys_time", "--"]
        if offset:
            argv += ["faketime", "-f", f"{offset:+g}"]
        argv += ["chronyd", "-x", "-d", "-f", f"{directory}/chrony.conf"]
        return where.start_daemon(
            f"chronyd-{side}", argv,
            ready=lambda _: ",Normal" in where.run(tracking).stdout)

    def start_ptp_slave(self, domain, port="eth0"):
        """linuxptp's ptp4l as a master on the far end of port and as a slave on
        port, in PTP domain `domain`; returns once the slave follows the
        master.  The slave runs free (free_running 1): it never steers the
        clock.  pmc in the player reaches the slave through the default socket."""
        common = ["-S", "-m", "--domainNumber", str(domain), "--logAnnounceInterval", "-2",
                  "--logSyncInterval", "-2", "--announceReceiptTimeout", "2"]
        self.lan.start_daemon("ptp4l-master", ["ptp4l", "-i", Lan.peer(port), "--priority1", "1",
                                               "--uds_address", "/run/ptp-master"] + common)
        return self.start_daemon("ptp4l-slave",
                                 ["ptp4l", "-i", port, "-s", "--free_running", "1"] + common,
                                 ready="to UNCALIBRATED")

    def start_ntp_responder(self, mode, side="lan", address=None, port=123, offset=0.0, at=None):
        """Starts ntp_responder.py in mode on the lan or in the player, serving
        this machine's time moved by offset, or the Unix time `at` from now on;
        returns its Daemon, whose log has a line per request."""
        where = {"lan": self.lan, "player": self}[side]
        argv = [PYTHON, NTP_RESPONDER, mode, "--port", str(port), "--offset", str(offset)]
        if at is not None:
            argv += ["--at", str(at)]
        if address:
            argv += ["--address", address]
        return where.start_daemon(f"ntp-responder-{side}", argv, ready="ready")

    # --- the registry service --------------------------------------------------

    def start_registry(self, settings=None, limit=None):
        """Starts the development registry service on the player's bus, holding
        settings ({section: {key: value}}); returns its Daemon."""
        self.write_file(REGISTRY_STORE, json.dumps(settings or {}))
        argv = [PYTHON, REGISTRY_SERVICE, REGISTRY_STORE]
        if limit is not None:
            argv += ["--limit", str(limit)]
        return self.start_daemon("registry", argv, ready="ready")

    def set_setting(self, section, key, value):
        """Stores one value through the running registry service."""
        self.run(REGISTRY_CALL + ["Write", "sss", section, key, value], check=True)

    def settings(self):
        """The registry's whole store as the service last wrote it."""
        return json.loads(self.read_file(REGISTRY_STORE))

    # --- the supplicant ----------------------------------------------------------

    def start_supplicant(self, args=()):
        """Starts the real wpa_supplicant with its D-Bus service (-u) on the
        player's bus; returns its Daemon, ready once it answers there.  Its
        log holds the CTRL-EVENT lines of every interface it manages."""
        return self.start_daemon(
            "wpa_supplicant", ["wpa_supplicant", "-u"] + list(args),
            ready=lambda p: p.run(SUPPLICANT_CALL + ["Interfaces"]).returncode == 0)

    def supplicant_state(self, ifname):
        """The supplicant's State of ifname ("completed", ...), or None when it
        does not manage the interface."""
        found = self.run(["busctl", "--system", "call", "fi.w1.wpa_supplicant1",
                          "/fi/w1/wpa_supplicant1", "fi.w1.wpa_supplicant1",
                          "GetInterface", "s", ifname])
        if found.returncode != 0:
            return None
        path = found.stdout.split()[1].strip('"')
        state = self.run(["busctl", "--system", "get-property", "fi.w1.wpa_supplicant1", path,
                          "fi.w1.wpa_supplicant1.Interface", "State"], check=True)
        return state.stdout.split()[1].strip('"')

    # --- zeroconf ----------------------------------------------------------------

    def start_avahi(self):
        """Starts avahi-daemon on the player's bus (as root, no chroot, no
        rlimits, with --debug, so its log names every D-Bus method called);
        returns its Daemon, ready once the server runs."""
        self.write_file(AVAHI_CONFIG, AVAHI_CONFIG_TEXT)
        return self.start_daemon(
            "avahi-daemon",
            ["avahi-daemon", "--file=" + AVAHI_CONFIG, "--no-drop-root", "--no-chroot",
             "--no-rlimits", "--no-proc-title", "--debug"],
            ready="Server startup complete")

    def avahi_host_name(self):
        """The host name the running avahi-daemon announces (over D-Bus)."""
        out = self.run(AVAHI_CALL + ["GetHostName"], check=True).stdout
        return json.loads(out.split(" ", 1)[1])

    # --- LEDs --------------------------------------------------------------------

    def led(self, name, timeout=2.0):
        """The files of /sys/class/leds/NAME as {file: stripped content}, once
        the emulated timer trigger has caught up; None without that LED."""
        directory = f"{_init.LED_ROOT}/{name}"
        def snapshot():
            try:
                files = self.listdir(directory)
            except FileNotFoundError:
                return None
            state = {}
            for f in files:
                try:
                    state[f] = self.read_file(f"{directory}/{f}").strip()
                except FileNotFoundError:
                    pass
            return state
        def consistent():
            state = snapshot()
            if state is None:
                return {"absent": True}
            timer = state.get("trigger", "").startswith("timer")
            delays = {"delay_on", "delay_off"} & state.keys()
            return state if len(delays) == (2 if timer else 0) else None
        try:
            state = wait_for(consistent, timeout=timeout, what=f"LED {name}")
        except TimeoutError:
            state = snapshot()
        return None if state is None or state.get("absent") else state

    # --- files inside the player ----------------------------------------------------

    def _open_inside(self, path, flags, mode=0):
        """Opens path as the player sees it: symbolic links resolve inside
        its root (/var/run -> /run is the player's /run, not the host's)."""
        root = os.open(f"/proc/{self._require_pid()}/root",
                       os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            how = _OpenHow(flags | os.O_CLOEXEC, mode if flags & os.O_CREAT else 0,
                           _RESOLVE_IN_ROOT)
            name = ctypes.c_char_p(path.lstrip("/").encode() or b".")
            for _ in range(1000):
                fd = _libc.syscall(ctypes.c_long(_SYS_OPENAT2), ctypes.c_int(root), name,
                                   ctypes.byref(how), ctypes.c_size_t(ctypes.sizeof(how)))
                if fd >= 0:
                    return fd
                err = ctypes.get_errno()
                # A ".." (as in the /sys/class/net links) is refused while any
                # mount or rename happens on the host; it only needs a retry.
                if err != errno.EAGAIN:
                    break
            raise OSError(err, os.strerror(err), path)
        finally:
            os.close(root)

    def read_file(self, path, binary=False):
        fd = self._open_inside(path, os.O_RDONLY)
        with os.fdopen(fd, "rb") as f:
            data = f.read()
        return data if binary else data.decode(errors="surrogateescape")

    def write_file(self, path, data, mode=0o644, append=False):
        """Writes (or appends) text or bytes; creates the file, not its
        directory."""
        flags = os.O_WRONLY | os.O_CREAT | (os.O_APPEND if append else os.O_TRUNC)
        fd = self._open_inside(path, flags, mode)
        with os.fdopen(fd, "wb") as f:
            f.write(data.encode() if isinstance(data, str) else data)

    def exists(self, path):
        try:
            os.close(self._open_inside(path, os.O_PATH))
            return True
        except OSError as e:
            if e.errno in (errno.ENOENT, errno.ENOTDIR):
                return False
            raise

    def listdir(self, path):
        fd = self._open_inside(path, os.O_RDONLY | os.O_DIRECTORY)
        try:
            return sorted(os.listdir(fd))
        finally:
            os.close(fd)

    def remove_file(self, path, missing_ok=True):
        parent, _, name = path.rstrip("/").rpartition("/")
        fd = self._open_inside(parent or "/", os.O_PATH | os.O_DIRECTORY)
        try:
            os.unlink(name, dir_fd=fd)
        except FileNotFoundError:
            if not missing_ok:
                raise
        finally:
            os.close(fd)

    def makedirs(self, path, mode=0o755):
        parts = [p for p in path.split("/") if p]
        for i, part in enumerate(parts):
            if self.exists("/" + "/".join(parts[:i + 1])):
                continue
            parent = self._open_inside("/" + "/".join(parts[:i]), os.O_PATH | os.O_DIRECTORY)
            try:
                os.mkdir(part, mode, dir_fd=parent)
            except FileExistsError:
                pass
            finally:
                os.close(parent)


@atexit.register
def _close_all_players():
    for player in list(_live_players):
        player.close()


__all__ = ["Player", "Lan", "Daemon", "PlayerError", "ProgramStandIn", "wait_for",
           "linkrig_path"]
