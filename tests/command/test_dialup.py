"""The dial-up link ppp0: chat script and peer file, pppd started detached and stopped
through its PID file, and the modem checks, with a modem on a pseudo-terminal."""

import json
import time

import pytest

from player import linkrig_path, wait_for

pytestmark = pytest.mark.usefixtures("linkrig_binary")

CHAT = "/var/volatile/etc/ppp-chatscript"
PEER = "/etc/ppp/peers/peer"
PID_FILE = "/var/run/dialup.pid"
CALLS = "/run/player/pppd-calls"
STAND_IN = "/run/player/pppd-stand-in"
# Stays like pppd with nodetach, and records how it was started.
STAND_IN_SCRIPT = """#!/usr/bin/python3 -I
import json, os, signal, sys
fds = {fd: os.readlink(f"/proc/self/fd/{fd}") for fd in range(64)
       if os.path.lexists(f"/proc/self/fd/{fd}")}
blocked = open("/proc/self/status").read().split("SigBlk:")[1].split()[0]
with open(%(calls)r, "a") as f:
    f.write(json.dumps({"pid": os.getpid(), "argv": sys.argv, "fds": fds,
                        "blocked": blocked}) + "\\n")
if os.path.exists(%(calls)r + "-ignore-term"):
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
while True:
    signal.pause()
"""
CHAT_HEAD = ['ABORT BUSY', 'ABORT VOICE', 'ABORT "NO CARRIER"', 'ABORT "NO DIALTONE"',
             'ABORT "NO DIAL TONE"', 'ABORT "ERROR"', '"" ATZ']


PEER_TEXT = "".join(line + "\n" for line in [
    "/dev/modem", "115200",
    'connect "/sbin/chat -s 2>/dev/kmsg -v -f /var/volatile/etc/ppp-chatscript"',
    "noipdefault", "usepeerdns", "noauth", "user 'me'", "password 'pw'", "nodetach", "unit 0",
    "logfile /dev/kmsg", "linkname peer", "lock", "persist", "holdoff 15", "maxfail 0",
    "ipparam 0"])


def calls(p):
    return [json.loads(line) for line in p.read_file(CALLS).splitlines()] if p.exists(CALLS) else []


def dial_up_player(make_player, settings, modem=True):
    p = make_player(ports=("eth0",))
    p.makedirs("/var/volatile/etc")
    p.start_registry({".omba2": settings})
    if modem:
        p.start_modem()
    # /sbin/pppd links to /usr/sbin, where pppd is a plain file: a bind mount replaces it alone.
    p.write_file(STAND_IN, STAND_IN_SCRIPT % {"calls": CALLS}, mode=0o755)
    p.run(["mount", "--bind", STAND_IN, "/usr/sbin/pppd"], check=True)
    return p


# The texts of each setting are the unit tests' work: here the real files and their modes.
def test_configuration_files(make_player):
    p = dial_up_player(make_player, {"dn": "0,555*1#", "du": "me", "dp": "pw", "di": 'AT"\\Q'})
    result = p.linkrig("ppp0", "start")
    assert (result.returncode, result.stderr) == (0, "linkrig: ppp0 start\n")
    assert p.read_file(CHAT).split("\n") == CHAT_HEAD + [
        'OK "AT\\042\\134Q"', "OK ATDT0,555*1#", 'CONNECT ""', ""]
    assert p.read_file(PEER) == PEER_TEXT
    assert p.run(["stat", "-c", "%a", CHAT, PEER], check=True).stdout == "600\n600\n"
    wait_for(lambda: calls(p), what="pppd to start", timeout=15)


def replaced_by(p, count):
    """Waits for the count-th pppd to be the only one, named by the PID file."""
    latest = wait_for(lambda: calls(p)[count - 1:], what="another pppd", timeout=15)[0]
    assert p.read_file(PID_FILE) == str(latest["pid"])
    wait_for(lambda: p.pids("pppd") == [latest["pid"]], what="only the new pppd", timeout=15)


# Each action that starts pppd first stops the one of the PID file, harder if it ignores TERM.
def test_start_detaches_and_each_start_replaces(make_player):
    p = dial_up_player(make_player, {"dn": "1"})
    p.write_file(CALLS + "-ignore-term", "")  # the first pppd ignores SIGTERM
    # linkrig with one more inherited descriptor, which pppd must not get.
    assert p.run(["sh", "-c", 'exec "$0" ppp0 start 7</dev/null', linkrig_path()]).returncode == 0
    first = wait_for(lambda: calls(p), what="pppd to start", timeout=15)[0]
    assert first["argv"] == ["/sbin/pppd", "call", "peer"]
    assert first["fds"] == {"0": "/dev/kmsg", "1": "/dev/kmsg", "2": "/dev/kmsg"}
    assert int(first["blocked"], 16) == 0  # linkrig itself blocks SIGHUP
    assert p.read_file(PID_FILE) == str(first["pid"])
    assert p.pids("pppd") == [first["pid"]]  # outlives linkrig
    p.remove_file(CALLS + "-ignore-term")

    started = time.monotonic()
    result = p.linkrig("ppp0", "reconfigure")
    assert time.monotonic() - started >= 5.0
    assert f"PID {first['pid']} didn't exit from signal 15. Trying harder.\n" in result.stderr
    assert result.returncode == 0
    replaced_by(p, 2)
    assert p.linkrig("ppp0", "init").returncode == 0
    replaced_by(p, 3)

    result = p.linkrig("ppp0", "stop")
    assert (result.returncode, result.stderr) == (0, "linkrig: ppp0 stop\n")
    assert p.pids("pppd") == [] and not p.exists(PID_FILE)


def test_pid_file_of_another_program_stops_nothing(make_player):
    p = dial_up_player(make_player, {"dn": "1"})
    sleeper = p.start_daemon("sleeper", ["sleep", "60"],
                             ready=lambda q: q.exists("/run/player/pid/sleeper"))
    p.write_file(PID_FILE, str(sleeper.pid))
    result = p.linkrig("ppp0", "remove")
    assert (result.returncode, result.stderr) == (
        0, "linkrig: ppp0 remove\nPID file exists but pppd not running\n")
    assert sleeper.running() and p.exists(PID_FILE)


@pytest.mark.parametrize("action, status, stderr", [
    ("init", 1, "linkrig: Modem not found\n"), ("add", 1, "linkrig: Modem not found\n"),
    ("start", 1, ""), ("stop", 1, ""), ("reconfigure", 1, ""),
])
def test_without_modem(make_player, action, status, stderr):
    p = dial_up_player(make_player, {"dn": "1"}, modem=False)
    result = p.linkrig("ppp0", action)
    assert (result.returncode, result.stderr) == (status, f"linkrig: ppp0 {action}\n" + stderr)
    assert not p.exists(PEER) and calls(p) == []


def test_unwritable_files_are_reported(make_player):
    p = dial_up_player(make_player, {"dn": "1"})
    p.run(["rmdir", "/var/volatile/etc"], check=True)
    assert p.linkrig("ppp0", "start").stderr.endswith(
        "Failed to configure dialup: Failed to create peer chatscript\n")
    p.makedirs("/var/volatile/etc")
    p.run(["rm", "-r", "/etc/ppp/peers"], check=True)
    result = p.linkrig("ppp0", "start")
    assert (result.returncode, result.stderr) == (
        1, "linkrig: ppp0 start\nFailed to configure dialup: Failed to create peer "
           "configuration file\n")
    assert calls(p) == []


# A busy line and the init string through the real chat (a connected call is the guest's).
def test_real_pppd_dials_through_chat(make_player):
    p = make_player(ports=("eth0",))
    p.makedirs("/var/volatile/etc")
    p.start_registry({".omba2": {"dn": "0,555*1#", "di": "ATE0"}})
    modem = p.start_modem(dial_answer="BUSY")
    # pppd refuses to start when /dev/ppp does not open (this kernel has no PPP driver).
    p.run(["sh", "-c", "[ -e /dev/ppp ] || mknod /dev/ppp c 1 3"], check=True)
    assert p.linkrig("ppp0", "start").returncode == 0
    dialled = {"command": "ATDT0,555*1#", "answer": "BUSY"}
    wait_for(lambda: dialled in modem.transcript(), timeout=15, what="the modem to be dialled")
    assert modem.transcript() == [{"command": "ATZ", "answer": "OK"},
                                  {"command": "ATE0", "answer": "OK"}, dialled]
    wait_for(lambda: "Connect script failed" in p.kmsg(), timeout=10, what="chat to fail")
    assert p.linkrig("ppp0", "stop").returncode == 0
    assert p.pids("pppd") == []
