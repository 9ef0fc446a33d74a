"""The clock set from network time on a kernel whose clock is the player's own: the guest's
is set wrong, the real chronyd on the far end, under faketime, serves the right time."""

import subprocess
import time

import pytest

FAR, NEAR = "192.168.90.1", "192.168.90.2"
HOUR = 3600


def set_clock(seconds):
    subprocess.run(["date", "-s", f"@{seconds:.6f}"], check=True, stdout=subprocess.DEVNULL)


def wall_offset():
    """The wall clock less the monotonic one: it changes by as much as the clock is set."""
    return time.time() - time.monotonic()


@pytest.fixture
def player(make_player):
    offset = wall_offset()
    player = make_player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"}, may_set_clock=True)
    player.run(["ip", "addr", "add", f"{NEAR}/24", "dev", "eth0"], check=True)
    player.lan.run(["ip", "addr", "add", f"{FAR}/24", "dev", "peer-eth0"], check=True)
    yield player
    # The later scenarios get their clock back as it ran.
    set_clock(time.time() - (wall_offset() - offset))


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
