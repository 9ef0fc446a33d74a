"""802.1Q VLANs of eth0 on a kernel that has them: the real dhcpcd addresses the port and
each VLAN, from udhcpd on the far end (untagged and on VLAN 12) or from static settings."""

import json
import os
import re

import pytest
from conftest import linkrig_ok, serve

from player import linkrig_path, wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary", "no_probing"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})]

BAD = ("Unable", "Failed")


def vlans(player):
    """{name: VLAN id} of the VLAN links on eth0, from the kernel."""
    links = [(link["ifname"], link["link"], link["linkinfo"]["info_data"])
             for link in json.loads(player.run(["ip", "-j", "-d", "link", "show"]).stdout)
             if link.get("linkinfo", {}).get("info_kind") == "vlan"]
    assert all((parent, data["protocol"]) == ("eth0", "802.1Q") for _, parent, data in links)
    return {name: data["id"] for name, _, data in links}


def addresses(player, ifname):
    text = player.run(["ip", "-4", "-o", "addr", "show", "dev", ifname], check=True).stdout
    return [re.sub(r"\s+", " ", line.split(" inet ", 1)[1].split("\\")[0]).strip()
            for line in text.splitlines()]


def leased(player, ifname, subnet):
    found = addresses(player, ifname)
    return any(re.fullmatch(rf"{re.escape(subnet)}\.1[0-4]\d/24 brd \S+ scope global dynamic.*", a)
               for a in found) and found


def dhcp_clients(player):
    """Interfaces with a running dhcpcd (its main process names just the one)."""
    text = player.run(["pgrep", "-a", "-x", "dhcpcd"]).stdout
    return set(re.findall(r"^\d+ dhcpcd: ([^\s\[]\S*) ", text, re.M))


def planned_links(player, action):
    """The link changes linkrig-plan predicts for eth0."""
    plan = player.run(player.clock_guard() + [
        os.path.join(os.path.dirname(linkrig_path()), "linkrig-plan"), "eth0", action])
    assert plan.returncode == 0, plan.stderr
    return [line for line in plan.stdout.splitlines() if line.startswith("link ")]


def wait_clients(player, expected):
    # dhcpcd releases its lease before it ends.
    wait_for(lambda: dhcp_clients(player) == expected, timeout=20, what=f"dhcpcd on {expected}")


def test_vlans_follow_the_stored_list(player):
    player.start_registry({".omba": {"hn": "player", "vlans": "12,0,12,5000"},
                           ".net.eth0.7": {"ip": "c0a83901", "nm": "ffffff80"}})  # 192.168.57.1/25
    # The far end: DHCP untagged and on VLAN 12, a static neighbour on VLAN 7.
    player.lan.run(["ip", "-batch", "-"], check=True, input="""\
link add link peer-eth0 name peer-eth0.12 type vlan id 12
link add link peer-eth0 name peer-eth0.7 type vlan id 7
link set peer-eth0.12 up
link set peer-eth0.7 up
addr add 192.168.50.1/24 dev peer-eth0
addr add 192.168.52.1/24 dev peer-eth0.12
addr add 192.168.57.2/25 dev peer-eth0.7
""")
    serve(player, "peer-eth0", "192.168.50")
    serve(player, "peer-eth0.12", "192.168.52")

    # The plan names the links the start makes, and makes none.
    assert planned_links(player, "start") == ["link up eth0", "link add eth0.12 (VLAN 12 on eth0)"]
    assert vlans(player) == {}
    linkrig_ok(player, "eth0", "start", *BAD)
    assert vlans(player) == {"eth0.12": 12}  # 12 once, 5000 out of range
    for ifname, subnet in (("eth0", "192.168.50"), ("eth0.12", "192.168.52")):
        wait_for(lambda: leased(player, ifname, subnet), timeout=30, what=f"a lease of {ifname}")
    assert player.link_state("eth0")["up"] and player.link_state("eth0.12")["up"]
    assert dhcp_clients(player) == {"eth0", "eth0.12"}
    # The leases came after start had set the LED; update looks again.
    linkrig_ok(player, "eth0", "update", *BAD)
    assert player.led("ethernet") == {"trigger": "none", "brightness": "255"}

    # Its stop half takes eth0.12 and both clients away.
    player.set_setting(".omba", "vlans", "7")
    assert planned_links(player, "reconfigure") == [
        "link delete eth0.12", "link up eth0", "link add eth0.7 (VLAN 7 on eth0)"]
    linkrig_ok(player, "eth0", "reconfigure", *BAD)
    assert vlans(player) == {"eth0.7": 7}
    wait_clients(player, {"eth0.7"})
    wait_for(lambda: addresses(player, "eth0.7") == [
        "192.168.57.1/25 brd 192.168.57.127 scope global noprefixroute eth0.7"], timeout=20,
        what="the static address of eth0.7")
    # Frames tagged 7 reach it from the far end.
    ping = player.lan.run(["busybox", "ping", "-c", "1", "-W", "10", "192.168.57.1"])
    assert ping.returncode == 0, ping.stdout + ping.stderr

    linkrig_ok(player, "eth0", "stop", *BAD)
    assert vlans(player) == {}
    wait_clients(player, set())
