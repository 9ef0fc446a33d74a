"""IPv4 forwarding and NAT masquerading with the real iptables, in the
player's own network namespace (its own nat table and forwarding switch)."""

from pathlib import Path

import pytest
from conftest import echo, ip_forward, stderr_without_time

pytestmark = pytest.mark.usefixtures("linkrig_binary")

HAS_ROUTE = "Interface '{}' has a default route.  Configuring it for NAT.\n"
NO_ROUTE = "Interface '{}' has no default route (yet).\n"
PORTS = ("eth0", "wlan0", "eth1")


def masquerade_rules(player):
    rules = player.run(["iptables", "-t", "nat", "-S", "POSTROUTING"], check=True).stdout
    return [line for line in rules.splitlines() if line != "-P POSTROUTING ACCEPT"]


def add_default_route(player, ifname, subnet, metric=0):
    player.run(["ip", "addr", "add", f"{subnet}.2/24", "dev", ifname], check=True)
    player.run(["ip", "route", "add", "default", "via", f"{subnet}.1", "dev", ifname,
                "metric", str(metric)], check=True)


@pytest.fixture
def host_ip_forward():
    """The host's forwarding switch must come through untouched."""
    before = Path("/proc/sys/net/ipv4/ip_forward").read_text()
    yield
    assert Path("/proc/sys/net/ipv4/ip_forward").read_text() == before


def test_update_masquerades_once(player, host_ip_forward):
    player.start_registry({".omba": {"forwarding": "2"}})
    add_default_route(player, "eth0", "192.168.5")
    for _ in range(3):
        result = player.linkrig("eth0", "update")
        assert (result.returncode, stderr_without_time(result)) == (
            0, echo("eth0", "update") + HAS_ROUTE.format("eth0"))
    assert masquerade_rules(player) == ["-A POSTROUTING -o eth0 -j MASQUERADE"]
    assert ip_forward(player) == "1"


@pytest.mark.player(ports=PORTS)
@pytest.mark.parametrize("action", ["start", "reconfigure"])
def test_host_masquerades_only_the_port_with_the_default_route(player, action, host_ip_forward):
    player.start_registry({".omba": {"forwarding": "2", "hn": "player"}})
    # A rule from an earlier configuration goes with the flush.
    player.run(["iptables", "-t", "nat", "-A", "POSTROUTING", "-o", "eth1", "-j", "MASQUERADE"],
               check=True)
    add_default_route(player, "wlan0", "10.9.8")
    result = player.linkrig("host", action)
    assert result.returncode == 0
    lines = stderr_without_time(result).splitlines(keepends=True)
    assert lines[0] == echo("host", action)
    # One line per port, in directory order (not necessarily the name order).
    assert sorted(lines[1:]) == sorted(
        [HAS_ROUTE.format("wlan0")] + [NO_ROUTE.format(p) for p in PORTS if p != "wlan0"])
    assert masquerade_rules(player) == ["-A POSTROUTING -o wlan0 -j MASQUERADE"]
    assert ip_forward(player) == "1"


@pytest.mark.player(ports=("eth0",))
def test_internal_links_never_masquerade(player):
    player.start_registry({".omba": {"forwarding": "2", "hn": "player"}})
    # The SoC's internal links as the two ends of one veth; each name's rule
    # is the unit tests' work.
    player.run(["ip", "link", "add", "ipc0", "type", "veth", "peer", "name", "rgmii1"], check=True)
    for metric, (name, subnet) in enumerate([("ipc0", "10.1.1"), ("rgmii1", "10.1.2")]):
        player.run(["ip", "link", "set", name, "up"], check=True)
        add_default_route(player, name, subnet, metric)
    result = player.linkrig("host", "start")
    assert (result.returncode, stderr_without_time(result)) == (
        0, echo("host", "start") + NO_ROUTE.format("eth0"))
    assert masquerade_rules(player) == []
    assert ip_forward(player) == "0"


def test_host_stop_changes_nothing(player):
    player.start_registry({".omba": {"forwarding": "0", "hn": "other"}})
    player.run(["iptables", "-t", "nat", "-A", "POSTROUTING", "-o", "eth0", "-j", "MASQUERADE"],
               check=True)
    player.run(["sh", "-c", "echo 1 > /proc/sys/net/ipv4/ip_forward"], check=True)
    result = player.linkrig("host", "stop")
    assert (result.returncode, stderr_without_time(result)) == (0, echo("host", "stop"))
    assert masquerade_rules(player) == ["-A POSTROUTING -o eth0 -j MASQUERADE"]
    assert ip_forward(player) == "1"
    assert player.hostname() == "player"
