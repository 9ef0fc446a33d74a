"""VLAN sub-interfaces over rtnetlink on this host's kernel, which has no
802.1Q: creating one fails, and the rest of the interface is still set up.
dhcpcd is a recording stand-in; eth1 stands for an ordinary wired port."""

import pytest
from conftest import ip_forward

pytestmark = [pytest.mark.usefixtures("linkrig_binary"), pytest.mark.player(ports=("eth1",))]

HEAD = ["-I", "Velmora:", "-i", " ", "-o43", "-b"]
NO_8021Q = ("Unable to configure VLAN 12 for eth1: rtnl_link_add(m_sock, new_link, NLM_F_CREATE): "
            "Operation not supported (-10)\n")


def prepare(player, vlans):
    # Forwarding mode 1 makes the host forwarding step visible in ip_forward.
    player.start_registry({".omba": {"hn": "player", "forwarding": "1"},
                           ".net.eth1": {"vlans": vlans}})
    player.set_link("eth1", up=False)
    return player.replace_program("/sbin/dhcpcd")


@pytest.mark.parametrize("vlans, failures, parent_up", [
    ("12,0,12,5000", NO_8021Q, True),  # 0 first, 12 once, 5000 ignored
    ("0", "", False),                  # the DHCP step alone brings the port up
    ("", "", False),
])
def test_vlan_list(player, vlans, failures, parent_up):
    dhcpcd = prepare(player, vlans)
    result = player.linkrig("eth1", "start")
    assert result.returncode == 0
    assert result.stderr.count("Unable to configure VLAN") == failures.count("Unable")
    assert failures in result.stderr
    # The untagged port is configured, the forwarding step still runs.
    assert dhcpcd.calls() == [HEAD + ["-x", "eth1"], HEAD + ["eth1"]]
    assert ip_forward(player) == "1"
    assert player.link_state("eth1")["up"] == parent_up


def test_unknown_interface(player):
    prepare(player, "")
    result = player.linkrig("eth7", "stop")
    assert (result.returncode, result.stderr) == (
        2, "linkrig: eth7 stop\nlinkrig: EXCEPTION: Link not found\n")
