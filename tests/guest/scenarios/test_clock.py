"""The clock set from network time, on a kernel whose clock is the player's own
(the guest's). The guest's clock is first set wrong; the real chronyd on the
far end, under faketime, serves the time the clock should show."""

import subprocess
import time

import pytest

FAR, NEAR = "192.168.90.1", "192.168.90.2"
HOUR = 3600


def set_clock(seconds):
    subprocess.run(["date", "-s", f"@{seconds:.6f}"], check=True, stdout=subprocess.DEVNULL)


class ClockJumps:
    """How far the wall clock was set since the last look, in seconds."""

    def __init__(self):
        self.look()

    def look(self):
        now = time.time() - time.monotonic()
        jump, self.last = now - getattr(self, "last", now), now
        return jump


@pytest.fixture
def player(make_player):
    jumps = ClockJumps()
    player = make_player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"}, may_set_clock=True)
    player.run(["ip", "addr", "add", f"{NEAR}/24", "dev", "eth0"], check=True)
    player.lan.run(["ip", "addr", "add", f"{FAR}/24", "dev", "peer-eth0"], check=True)
    yield player
    # The later scenarios get their clock back as it ran.
    set_clock(time.time() - jumps.look())


@pytest.mark.parametrize("wrong_by, ptp, line", [
    (HOUR, False, "Setting system clock to "),
    (HOUR, True, "Player is a PTP slave so not changing the clock.\n"),
    (0.05, "no-daemon", "Skip changing the clock this time - it's too small a difference.\n"),
], ids=["set", "ptp-slave", "tiny-difference"])
def test_host_start_sets_the_clock(player, wrong_by, ptp, line):
    set_clock(time.time() - wrong_by)
    player.start_ntp_server(address=FAR, offset=wrong_by)
    if ptp is True:
        player.start_ptp_slave(3)
    player.start_registry({"networking": {"ntp_server": FAR, "ptp_domain": "3" if ptp else ""}})
    jumps = ClockJumps()
    result = player.linkrig("host", "start")
    assert result.returncode == 0, result.stderr
    assert line in result.stderr
    set_by = jumps.look()
    if line.startswith("Setting"):
        assert abs(set_by - wrong_by) < 1.0, result.stderr
        assert player.exists("/var/run/linkrig-clock-set")
    else:
        assert abs(set_by) < 0.01, result.stderr
        assert not player.exists("/var/run/linkrig-clock-set")
