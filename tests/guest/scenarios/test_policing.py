"""Inbound policing of eth0 on a kernel with the police action: the real tc installs it,
and a burst of UDP from the far end shows what it lets through."""

import re

import pytest
from conftest import linkrig_ok

from player import wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary", "no_probing"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})]

ADDRESS = "192.168.60.1"
STATIC = {"ip": "c0a83c01", "nm": "ffffff00"}  # ADDRESS/24
# What dhcpcd applies (the same address given by hand has no noprefixroute).
APPLIED = f"inet {ADDRESS}/24 brd 192.168.60.255 scope global noprefixroute eth0"
DATAGRAMS, SIZE = 400, 1000
PACKET = SIZE + 28  # what the policer counts: IP and UDP headers too
FLOOD = "/run/player/flood"
INGRESS = "qdisc ingress ffff: parent ffff:fff1 ---------------- "
FILTERS = ["filter parent ffff: protocol ip pref 50 u32 chain 0",
           "filter parent ffff: protocol ip pref 50 u32 chain 0 fh 800: ht divisor 1",
           "filter parent ffff: protocol ip pref 50 u32 chain 0 fh 800::800 order 2048 key ht 800 "
           "bkt 0 *flowid :1 not_in_hw"]
POLICE = "rate {} burst {}b mtu 2Kb action drop overhead 0b"


def ingress_qdiscs(player):
    shown = player.run(["tc", "qdisc", "show", "dev", "eth0"], check=True).stdout
    return [line for line in shown.splitlines() if "ingress" in line]


def police(player):
    """The filter and police lines (less counts and index), and the packets dropped so far."""
    shown = player.run(["tc", "-s", "filter", "show", "dev", "eth0", "ingress"]).stdout
    lines = [re.sub(r"^police 0x[0-9a-f]+ | \(rule hit \d+ success \d+\)$", "", line.strip())
             for line in shown.splitlines() if line.strip().startswith(("filter", "police"))]
    dropped = re.findall(r"^ Sent \d+ bytes \d+ pkts \(dropped (\d+), ", shown, re.M)
    return lines, int(dropped[0]) if dropped else 0


def udp_received(player):
    """Datagrams that got through to the player's UDP, whether a socket took them or not."""
    udp = [line.split() for line in player.run(["cat", "/proc/net/snmp"], check=True).stdout
           .splitlines() if line.startswith("Udp:")]
    counters = dict(zip(*udp))
    return int(counters["InDatagrams"]) + int(counters["NoPorts"])


def flood(player):
    """Sends DATAGRAMS datagrams of SIZE bytes from the far end as fast as socat can; returns
    those received and those the policer dropped, once each is one or the other."""
    before = udp_received(player), police(player)[1]
    player.lan.run(["socat", "-u", "-b", SIZE, f"OPEN:{FLOOD}", f"UDP-SENDTO:{ADDRESS}:5001"],
                   check=True)

    def counted():
        return udp_received(player) - before[0], police(player)[1] - before[1]
    wait_for(lambda: sum(counted()) >= DATAGRAMS, timeout=20, what="every datagram counted")
    assert sum(counted()) == DATAGRAMS, counted()
    return counted()


def wait_applied(player, old_client=frozenset()):
    # A client being replaced takes the address away on its way out.
    def applied():
        client = set(player.pids("dhcpcd"))
        shown = player.run(["ip", "-4", "addr", "show", "eth0"], check=True).stdout
        return client and not client & old_client and APPLIED in shown
    wait_for(applied, timeout=20, what="dhcpcd to apply the address")


def test_traffic_beyond_the_rate_and_burst_is_dropped(player):
    player.start_registry({".omba": dict(STATIC, hn="player", ir="f4240")})
    player.write_file(FLOOD, bytes(DATAGRAMS * SIZE))
    # By hand at first, for a flood without policing.
    player.run(["ip", "addr", "add", f"{ADDRESS}/24", "dev", "eth0"], check=True)
    mac = player.read_file("/sys/class/net/eth0/address").strip()
    # The kernel holds only a few datagrams while it resolves an address.
    player.lan.run(["ip", "-batch", "-"], check=True, input=f"""\
addr add 192.168.60.2/24 dev peer-eth0
neigh replace {ADDRESS} lladdr {mac} dev peer-eth0 nud permanent
""")
    assert flood(player) == (DATAGRAMS, 0)

    linkrig_ok(player, "eth0", "start", "ConfigureShaper failed")
    assert ingress_qdiscs(player) == [INGRESS]
    assert police(player) == (FILTERS + [POLICE.format("1Mbit", 1000000)], 0)
    wait_applied(player)
    # The burst is in bytes: a bucket of 1,000,000 takes all 411,200 of the flood.
    assert flood(player) == (DATAGRAMS, 0)

    client = set(player.pids("dhcpcd"))
    player.set_setting(".omba", "ir", "186a0")
    linkrig_ok(player, "eth0", "reconfigure", "ConfigureShaper failed")
    assert ingress_qdiscs(player) == [INGRESS]
    assert police(player) == (FILTERS + [POLICE.format("100Kbit", 100000)], 0)
    wait_applied(player, client)
    received, dropped = flood(player)
    # The bucket's worth gets through, and what refills it meanwhile.
    assert 100000 // PACKET <= received < DATAGRAMS // 2, (received, dropped)

    linkrig_ok(player, "eth0", "stop", "ConfigureShaper failed")
    assert ingress_qdiscs(player) == []
    assert police(player) == ([], 0)
