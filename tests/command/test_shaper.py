"""Inbound policing with the real tc (its argument vectors are the unit tests' work, the
police action in use the guest's); eth1 is an ordinary wired port (no wireless step)."""

import pytest

pytestmark = [pytest.mark.usefixtures("linkrig_binary"), pytest.mark.player(ports=("eth0", "eth1"))]

ADDING = "Adding inbound bandwidth shaping of 1000000bit/s for {}\n"
REMOVING = "Removing bandwidth shaper (if present) for {}\n"
FAILED = "ConfigureShaper failed: Shaper({}): Failed to add {}: {}\n"


def ingress(player, ifname):
    shown = player.run(["tc", "qdisc", "show", "dev", ifname], check=True).stdout
    return [line for line in shown.splitlines() if line.startswith("qdisc ingress ffff:")]


def test_ingress_qdisc_through_starts_and_stops(player):
    player.start_registry({".net.eth1": {"ir": "f4240"}, ".omba": {"hn": "player"}})
    result = player.linkrig("eth1", "start")
    # This kernel has no police action: the filter fails, the qdisc stays.
    assert result.returncode == 0
    assert result.stderr.endswith(ADDING.format("eth1") + FAILED.format("eth1", "filter", 2))
    assert "Failed to load TC action module" in player.kmsg()
    assert len(ingress(player, "eth1")) == 1

    # start does not remove the shaper first: a second add finds the qdisc.
    result = player.linkrig("eth1", "start")
    assert result.stderr.endswith(ADDING.format("eth1") + FAILED.format("eth1", "qdisc", 2))

    for _ in range(2):  # the second stop finds no qdisc, and says nothing more
        result = player.linkrig("eth1", "stop")
        assert (result.returncode, result.stderr) == (
            0, "linkrig: eth1 stop\n" + REMOVING.format("eth1"))
        assert ingress(player, "eth1") == []
