"""The clock set from network time on a kernel whose clock is the player's own: the guest's
is set wrong, the real chronyd on the far end, under faketime, serves the right time. And the
clock past 2038, from the network and from a client certificate: on a 32-bit player that needs
64-bit time all the way through. Nothing here reads the wall clock through a 32-bit call, so
that the scenarios run the same in a 32-bit guest."""

import contextlib
import ctypes
import re
import subprocess
import time
from pathlib import Path

import pytest

from pki import stored
from player import wait_for

FAR, NEAR = "192.168.90.1", "192.168.90.2"
HOUR = 3600
IN_2040 = 2222222222  # 2040-06-02 03:57:02 UTC
# A client certificate (CN player-7) and its key, valid from 2041-03-04 05:06:07 UTC, made once
# with certtool (a 32-bit certtool cannot write that date); GnuTLS reads the first certificate.
CLIENT_2041 = stored(Path(__file__).with_name("client-2041.pem").read_bytes())
ACTIVATION_2041 = 2245986367

LIBC = ctypes.CDLL(None, use_errno=True)
# glibc's 64-bit call on a 32-bit system; the one there is elsewhere.
CLOCK_GETTIME = getattr(LIBC, "__clock_gettime64", LIBC.clock_gettime)


class Timespec(ctypes.Structure):
    _fields_ = [("tv_sec", ctypes.c_int64), ("tv_nsec", ctypes.c_long)]


def realtime():
    """The wall clock in seconds."""
    now = Timespec()
    if CLOCK_GETTIME(time.CLOCK_REALTIME, ctypes.byref(now)) != 0:
        raise OSError(ctypes.get_errno(), "clock_gettime")
    return now.tv_sec + now.tv_nsec / 1e9


def set_clock(seconds):
    subprocess.run(["date", "-s", f"@{seconds:.6f}"], check=True, stdout=subprocess.DEVNULL)


def wall_offset():
    """The wall clock less the monotonic one: it changes by as much as the clock is set."""
    before = time.monotonic()
    wall = realtime()
    return wall - (before + time.monotonic()) / 2


@contextlib.contextmanager
def clock_kept():
    """Gives the clock back as it ran: before pytest reads it again, which a 32-bit Python
    cannot do past 2038."""
    offset = wall_offset()
    try:
        yield
    finally:
        set_clock(time.monotonic() + offset)


@pytest.fixture
def player(make_player):
    with clock_kept():
        player = make_player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"}, may_set_clock=True)
        player.run(["ip", "addr", "add", f"{NEAR}/24", "dev", "eth0"], check=True)
        player.lan.run(["ip", "addr", "add", f"{FAR}/24", "dev", "peer-eth0"], check=True)
        yield player


@pytest.mark.parametrize("wrong_by, ptp, line", [
    (HOUR, False, "Setting system clock to "),
    (HOUR, "slave", "Player is a PTP slave so not changing the clock.\n"),
    (0.05, "no-daemon", "Skip changing the clock this time - it's too small a difference.\n"),
], ids=["set", "ptp-slave", "tiny-difference"])
def test_host_start_sets_the_clock(player, wrong_by, ptp, line):
    set_clock(time.time() - wrong_by)
    player.start_ntp_server(address=FAR, offset=wrong_by)
    if ptp == "slave":
        player.start_ptp_slave(3)
    player.start_registry({"networking": {"ntp_server": FAR, "ptp_domain": "3" if ptp else ""}})
    offset = wall_offset()
    result = player.linkrig("host", "start")
    set_by = wall_offset() - offset
    assert result.returncode == 0 and line in result.stderr, result.stderr
    setting = line.startswith("Setting")
    assert abs(set_by - (wrong_by if setting else 0)) < (1.0 if setting else 0.01), result.stderr
    assert player.exists("/var/run/linkrig-clock-set") == setting


def clock_set_to(result):
    """The seconds of the run's "Setting system clock to" line."""
    found = re.findall(r"^Setting system clock to (\d+)\.\d{6}$", result.stderr, re.M)
    assert result.returncode == 0 and len(found) == 1, result.stderr
    return int(found[0])


# The clock set to 2040 at boot; hours later an "update" of the port with the default route
# asks again, without waiting for the answer.
def test_network_time_in_2040(player):
    player.start_ntp_responder("good", address=FAR, at=IN_2040)
    player.start_registry({"networking": {"ntp_server": FAR}})
    player.run(["ip", "route", "add", "default", "via", FAR], check=True)
    marker = "/var/run/linkrig-clock-set"
    with clock_kept():
        result = player.linkrig("host", "start")
        seconds = clock_set_to(result)
        assert IN_2040 <= seconds < IN_2040 + 120, result.stderr
        assert abs(realtime() - seconds) < 5, result.stderr
        assert player.read_file(marker) == f"{seconds}\n"
        set_clock(realtime() + 7 * HOUR)
        result = player.linkrig("eth0", "update")
        assert result.returncode == 0, result.stderr
        wait_for(lambda: player.read_file(marker) != f"{seconds}\n", timeout=30,
                 what="the clock set again")
        again = int(player.read_file(marker))
        assert seconds <= again < IN_2040 + 180 and abs(realtime() - again) < 5, player.kmsg()


# A clock never set (earlier than the build) takes the certificate's activation time.
def test_clock_from_a_certificate_valid_from_2041(player):
    player.start_supplicant()
    player.start_registry({".omba": {"wa": CLIENT_2041, "wt": CLIENT_2041, "wk": CLIENT_2041}})
    with clock_kept():
        set_clock(946684800)  # 2000-01-01
        result = player.linkrig("eth0", "start")
        set_by_run = realtime()
    assert result.returncode == 0, result.stderr
    assert re.search(r"setting based on client certificate - .*2041$", result.stderr, re.M), \
        result.stderr
    assert abs(set_by_run - ACTIVATION_2041) < 30, result.stderr
