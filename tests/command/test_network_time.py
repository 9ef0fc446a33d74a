"""Network time: the real chronyd on the far end, a scripted responder for the replies that
must be refused, linuxptp's ptp4l for a PTP slave. linkrig runs without the capability to
set the clock it shares with this machine: its attempt shows as its line and the EPERM."""

import re
import time

import pytest

from player import wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})]

FAR, NEAR = "192.168.90.1", "192.168.90.2"
SETTING = re.compile(r"Setting system clock to (\d+)\.(\d{6})\n")
REFUSED = "Unable to set system clock: (1) Operation not permitted\n"
SLAVE = "Player is a PTP slave so not changing the clock.\n"
SKIP = "Skip changing the clock this time - it's too small a difference.\n"


@pytest.fixture
def player(player):
    player.run(["ip", "addr", "add", f"{NEAR}/24", "dev", "eth0"], check=True)
    player.lan.run(["ip", "addr", "add", f"{FAR}/24", "dev", "peer-eth0"], check=True)
    return player


def run(player, server=FAR, ptp_domain="", action=("host", "start")):
    player.start_registry({"networking": {"ntp_server": server, "ptp_domain": ptp_domain}})
    started = time.monotonic()
    result = player.linkrig(*action)
    return result, time.monotonic() - started


@pytest.mark.parametrize("slave, domain, line", [
    (False, "", REFUSED), (True, "3", SLAVE), (False, "3", SKIP)], ids=["set", "slave", "no-ptp"])
def test_real_server(player, slave, domain, line):
    player.start_ntp_server(address=FAR)
    if slave:
        player.start_ptp_slave(3)
    result, _ = run(player, ptp_domain=domain)
    assert result.returncode == 0 and line in result.stderr, result.stderr
    found = SETTING.search(result.stderr)
    assert bool(found) == (line == REFUSED)
    assert not found or abs(int(found[1]) + int(found[2]) / 1e6 - time.time()) < 1.0


@pytest.mark.parametrize("mode, server, reason", [
    ("kod", FAR, f"kiss-of-death from {FAR}: RATE"),
    ("wrong-mode", FAR, f"bad reply from {FAR}: not a server reply"),
    ("no-echo", FAR, f"bad reply from {FAR}: not an answer to our request"),
    ("truncated", FAR, f"bad reply from {FAR}: too short"),
    ("silent", FAR, f"no reply from {FAR}"),
    (None, FAR, f"no reply from {FAR}: Connection refused"),  # nothing listens
    (None, "time.invalid", "cannot look up time.invalid"),
    # A name server that never answers: the resolver alone would wait 10 s.
    ("silent-dns", "time.example", "looking up time.example took too long"),
])
def test_bad_answers_change_nothing(player, mode, server, reason):
    if mode == "silent-dns":
        player.write_file("/etc/resolv.conf", f"nameserver {FAR}\n")
        player.start_ntp_responder("silent", address=FAR, port=53)
    elif mode:
        player.start_ntp_responder(mode, address=FAR)
    result, elapsed = run(player, server=server)
    assert result.returncode == 0, result.stderr
    assert f"linkrig: No network time: {reason}" in result.stderr
    assert not SETTING.search(result.stderr)
    assert elapsed < 6.0


def test_update_asks_with_a_default_route_until_answered_and_waits_for_nothing(player):
    """dhcpcd waits for the hook that runs an update at every lease: the query goes on in a
    process of its own, whose lines go to the kernel log; updates ask again until a server has
    answered, and not while its answer is fresh."""
    silent = player.start_ntp_responder("silent", address=FAR)
    run(player, action=("eth0", "update"))
    assert "request from" not in silent.log()
    player.run(["ip", "route", "add", "default", "via", FAR, "dev", "eth0"], check=True)
    result, elapsed = run(player, action=("eth0", "update"))
    assert result.returncode == 0 and "network time" not in result.stderr, result.stderr
    assert elapsed < 2.0  # the query alone takes 5 s
    wait_for(lambda: f"linkrig: No network time: no reply from {FAR}" in player.kmsg(),
             timeout=10, what="the query to give up")
    silent.stop()
    good = player.start_ntp_responder("good", address=FAR)
    run(player, action=("eth0", "update"))
    wait_for(lambda: REFUSED in player.kmsg(), what="the clock decision")
    assert SETTING.search(player.kmsg())
    run(player, action=("eth0", "update"))
    time.sleep(0.5)
    assert good.log().count("request from") == 1
