"""The command line of linkrig: argument checks, Ethernet presence, the
actions that do nothing, and the link check, run in a simulated player."""

import pytest
from conftest import echo

pytestmark = pytest.mark.usefixtures("linkrig_binary")

USAGE = "Usage: linkrig <interface> init|add|start|stop|reconfigure|checklink\n"
ACTIONS = ["init", "add", "remove", "start", "stop", "reconfigure", "checklink", "update"]
REFUSED = "Ethernet is not supported on this hardware.\n"


def outcome(player, *args):
    result = player.linkrig(*args)
    return result.returncode, result.stdout, result.stderr


@pytest.mark.parametrize("hwflags", ["0x10", "0"])
@pytest.mark.parametrize("args, stderr", [
    ((), "linkrig: too few args\n" + USAGE),
    (("eth0",), "linkrig: too few args\n" + USAGE),
    (("eth0", "start", "now"), echo("eth0", "start") + USAGE),
    (("wlan0", "checklink", "x", "y"), echo("wlan0", "checklink") + USAGE),
])
def test_wrong_argument_count(make_player, hwflags, args, stderr):
    assert outcome(make_player(hwvars={"VL_HWFLAGS": hwflags}), *args) == (1, "", stderr)


BAD_NAMES = ["", "a/b", "..", ".", "x:y", "has space", "a" * 16, "tab\tx"]


@pytest.mark.parametrize("ifname, action", [
    ("wlan0", "frobnicate"), ("host", "Start"), ("eth0", ""), ("ppp0", "restart"),
    ("eth0", "checklink "),
] + [(ifname, action) for ifname in BAD_NAMES for action in ("checklink", "start")])
def test_unknown_action_or_bad_interface_name(player, ifname, action):
    assert outcome(player, ifname, action) == (1, "", echo(ifname, action) + USAGE)


@pytest.mark.parametrize("hwflags", ["0", "0x20", "010", "0xffffffffffffffef"])
@pytest.mark.parametrize("action", ACTIONS + ["bogus"])
def test_ethernet_refused_without_hardware_bit(make_player, hwflags, action):
    player = make_player(hwvars={"VL_HWFLAGS": hwflags})
    assert outcome(player, "eth0", action) == (1, REFUSED, echo("eth0", action))


@pytest.mark.parametrize("hwvars", [{"VL_HWFLAGS": f} for f in ("0x10", "16", "020", "0x30")] + [
    {}, None], ids=["hex", "decimal", "octal", "more-bits", "no-variable", "no-environment"])
def test_ethernet_accepted(make_player, hwvars):
    assert outcome(make_player(hwvars=hwvars), "eth0", "checklink") == (
        0, "eth0: Link is up\n", echo("eth0", "checklink"))


@pytest.mark.parametrize("ifname, action", [
    ("wlan0", "init"), ("host", "add"), ("eth1", "remove"), ("host", "stop"), ("eth0", "add"),
    ("eth0", "remove"), ("host", "remove"),
])
def test_actions_that_do_nothing(player, ifname, action):
    assert outcome(player, ifname, action) == (0, "", echo(ifname, action))
    assert player.led("ethernet") == {"trigger": "none", "brightness": "0"}


BOTH = ("eth0", "wlan0")


# down: links taken down first, "peer" at the far end of the cable, "port" the player's own.
@pytest.mark.parametrize("ports, ifname, down, status", [
    (BOTH, "eth0", (), 0), (BOTH, "wlan0", (), 0), (BOTH, "eth0", ("peer eth0",), 1),
    (BOTH, "eth0", ("port eth0",), 1), (BOTH, "eth0", ("peer wlan0",), 0), (BOTH, "eth5", (), 1),
    (BOTH, "abcdefghijklmno", (), 1),
    # host: up while any port has link
    (BOTH, "host", (), 0), (BOTH, "host", ("peer eth0",), 0), (BOTH, "host", ("peer wlan0",), 0),
    (BOTH, "host", ("peer eth0", "peer wlan0"), 1), (("eth0",), "host", ("peer eth0",), 1),
    ((), "host", (), 1),
])
def test_checklink(make_player, ports, ifname, down, status):
    player = make_player(ports=ports)
    for side, port in (d.split() for d in down):
        (player.set_peer_link if side == "peer" else player.set_link)(port, up=False)
    line = "" if ifname == "host" else f"{ifname}: Link is {'down' if status else 'up'}\n"
    assert outcome(player, ifname, "checklink") == (status, line, echo(ifname, "checklink"))
