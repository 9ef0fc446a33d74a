"""The supplicant client (through supplicant_probe) in a simulated player: against
the real wpa_supplicant on a wired port, and the dbusmock double for the rest."""

import json
import xml.etree.ElementTree as ET
from pathlib import Path

import dbus
import pytest

from player.fixtures import assert_no_leftovers
from player.sandbox import Player
from supplicant_double import SupplicantDouble

SERVICE = "fi.w1.wpa_supplicant1"
ROOT = "/fi/w1/wpa_supplicant1"
IFACE = "fi.w1.wpa_supplicant1.Interface"
HWVARS = {"VL_HWFLAGS": "0x10"}
INVALID_ARGS = "EXCEPTION org.freedesktop.DBus.Error.InvalidArgs: "
DESCRIPTIONS = Path(__file__).resolve().parents[2] / "lib" / "platform" / "supplicant" / "dbus"


def get_property(p, path, interface, name):
    out = p.run(["busctl", "--system", "--json=short", "get-property", SERVICE, path, interface,
                 name], check=True).stdout
    return json.loads(out)["data"]


@pytest.fixture
def real(make_player):
    """A player whose bus has the real wpa_supplicant (no interfaces yet)."""
    p = make_player(ports=("eth0",), hwvars=HWVARS)
    p.start_supplicant()
    return p


def test_real_daemon_creates_the_interface_once_and_reads_its_state(make_player, probe):
    real = make_player(ports=("eth0",), hwvars=HWVARS)
    # Without the daemon there is no interface either, and the error says why.
    assert probe(real, "link-state", "eth0")[:2] == (0, "0\n")
    assert probe(real, "get", "eth0")[1].startswith(
        "EXCEPTION org.freedesktop.DBus.Error.ServiceUnknown: ")
    real.start_supplicant()
    assert probe(real, "get", "eth0")[:2] == (
        2, "EXCEPTION fi.w1.wpa_supplicant1.InterfaceUnknown: "
           "wpa_supplicant knows nothing about this interface.\n")
    assert probe(real, "link-state", "eth0")[1] == "0\n"
    # The daemon refuses a second CreateInterface (InterfaceExists): the second
    # call must find the interface instead.
    assert probe(real, "get-or-create", "eth0", "--", "get-or-create", "eth0", "--", "state",
                 "eth0", "--", "link-state", "eth0")[:2] == (0, "ok\nok\ndisconnected\n1\n")
    path, = get_property(real, ROOT, SERVICE, "Interfaces")
    assert get_property(real, path, IFACE, "Driver") == "wired"


def test_real_daemon_replaces_blobs_and_removes_networks(real, probe):
    assert probe(
        real, "get-or-create", "eth0", "--",
        "set-blob", "eth0", "ca", "0102", "--", "set-blob", "eth0", "ca", "0a0b0c", "--",
        "add-network", "eth0", "ssid=s:lab", "scan_ssid=i:1", "psk=ay:" + "ab" * 32, "--",
        "add-network", "eth0", "ssid=s:other", "--",
        "has-networks", "eth0", "--", "remove-all", "eth0", "--", "has-networks", "eth0",
    )[:2] == (0, "ok\ntrue\nfalse\n")
    path = get_property(real, ROOT, SERVICE, "Interfaces")[0]
    assert get_property(real, path, IFACE, "Blobs") == {"ca": [10, 11, 12]}
    assert get_property(real, path, IFACE, "Networks") == []
    # Selecting an open network on a wired port completes at once: a station.
    assert probe(real, "add-select-network", "eth0", "key_mgmt=s:NONE", "--", "state", "eth0",
                 "--", "link-state", "eth0")[:2] == (0, "completed\n3\n")


def members(xml, interface):
    """{(kind, name): [(arg or property attributes)]} of one interface in introspection data."""
    found = ET.fromstring(xml[xml.index("<node"):]).find(f"interface[@name='{interface}']")
    return {(e.tag, e.get("name")): [sorted(a.attrib.items()) for a in e.findall("arg")]
            or sorted(e.attrib.items()) for e in found}


def test_committed_descriptions_are_the_daemons_own(real, probe):
    assert probe(real, "get-or-create", "eth0", "--", "add-network", "eth0", "ssid=s:lab")[0] == 0
    network = (ROOT + "/Interfaces/0/Networks/0", SERVICE + ".Network")
    for name, path, interface in [("wpa_supplicant.xml", ROOT, SERVICE),
                                  ("wpa_supplicant_interface.xml", ROOT + "/Interfaces/0", IFACE),
                                  ("wpa_supplicant_network.xml", *network)]:
        daemon = json.loads(real.run(["busctl", "--system", "call", SERVICE, path,
                                      "org.freedesktop.DBus.Introspectable", "Introspect",
                                      "--json=short"], check=True).stdout)["data"][0]
        assert members((DESCRIPTIONS / name).read_text(), interface) == members(daemon, interface)


@pytest.fixture(scope="module")
def world():
    """One player with eth0 and wlan0 and the double managing wlan0."""
    with Player(ports=("eth0", "wlan0"), hwvars=HWVARS) as p, \
            SupplicantDouble(p, interfaces=("wlan0",)) as double:
        yield p, double
    assert_no_leftovers([p])


@pytest.fixture
def double(world):
    world[1].set_property(world[1].interface_path("wlan0"), IFACE, "BSSs", dbus.Array([], "o"))
    world[1].clear()
    return world[1]


@pytest.fixture
def run(world, probe):
    return lambda *args: probe(world[0], *args)


# eth0 as the wired port is the real daemon's test; without Ethernet eth0 is no wired port.
@pytest.mark.parametrize("hwflags, ifname", [("0x10", "wlan0"), ("0x0", "eth0")])
def test_unknown_interface_is_created_exactly_once(make_player, probe, hwflags, ifname):
    p = make_player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": hwflags})
    with SupplicantDouble(p, interfaces=("wlan0",) if ifname == "eth0" else ()) as double:
        assert probe(p, "get-or-create", ifname, "--", "get-or-create", "wlan0")[1] == "ok\nok\n"
        assert double.members() == ["GetInterface", "CreateInterface", "GetInterface"]
        create, = double.calls("CreateInterface")
        assert create.typed() == [{"Driver": ("s", "nl80211"), "Ifname": ("s", ifname)}]


def test_set_blob_replaces_the_blob(double, run):
    assert run("set-blob", "wlan0", "client", "00ff10")[0] == 0
    assert [(c.member, c.typed()) for c in double.calls() if "Blob" in c.member] == [
        ("RemoveBlob", [("s", "client")]), ("AddBlob", [("s", "client"), ("ay", b"\0\xff\x10")])]


# Only the interface and blob that are not there are expected errors.
@pytest.mark.parametrize("member, args", [
    ("GetInterface", ("get-or-create", "eth0")), ("RemoveBlob", ("set-blob", "wlan0", "x", "01"))])
def test_other_errors_pass_through(double, run, member, args):
    double.fail(member, "fi.w1.wpa_supplicant1.UnknownError", "broke")
    assert run(*args)[:2] == (2, "EXCEPTION fi.w1.wpa_supplicant1.UnknownError: broke\n")
    assert double.members()[-1] == member  # nothing after the failure


def test_network_properties_keep_their_types_and_order(double, run):
    assert run("add-select-network", "wlan0", "ssid=s:lab", "priority=i:-3", "id_str=u:7",
               "psk=ay:00ff", "--", "remove-all", "wlan0")[0] == 0
    add, = double.calls("AddNetwork")
    select, = double.calls("SelectNetwork")
    assert list(add.typed()[0].items()) == [
        ("id_str", ("u", 7)), ("priority", ("i", -3)), ("psk", ("ay", b"\x00\xff")),
        ("ssid", ("s", "lab"))]
    assert select.typed() == [("o", add.path + "/Networks/0")]
    assert [c.typed() for c in double.calls("RemoveNetwork")] == [[("o", add.path + "/Networks/0")]]


@pytest.mark.parametrize("state, network, level", [
    ("disconnected", None, "1"), ("inactive", None, "1"), ("unknown", None, "1"),
    ("scanning", None, "1"), ("associating", None, "2"), ("4way_handshake", None, "2"),
    ("completed", None, "3"), ("completed", {"mode": "2"}, "4"),
    ("completed", {"mode": "0"}, "3"), ("completed", {"ssid": '"lab"'}, "3"),
    (dbus.Int32(5), None, "2"),  # a state that cannot be read is "connecting"
])
def test_link_state_classification(double, run, state, network, level):
    double.set_state("wlan0", state)
    double.set_current_network("wlan0", network)
    assert run("link-state", "wlan0")[:2] == (0, level + "\n")


def test_unreadable_state_and_network(double, run):
    double.set_state("wlan0", dbus.Int32(5))
    assert run("state", "wlan0")[1] == "EXCEPTION: type mismatch\n"
    assert run("link-state", "wlan9")[1] == "0\n"
    double.set_state("wlan0", "completed")
    double.set_current_network("wlan0", {"mode": "2"})
    double.fail("Get:Properties", "fi.w1.wpa_supplicant1.UnknownError")
    assert run("link-state", "wlan0")[1] == "3\n"


def test_bss_reading(double, run):
    path = double.interface_path("wlan0")
    double.add_bss("wlan0", ssid=b"lab\x00\xff", bssid=bytes.fromhex("0011aabbccdd"), signal=-61,
                   frequency=5180, current=True)
    double.add_bss("wlan0", ssid=b"", bssid=b"", signal=-90, frequency=2412)
    lab = "ssid=6c616200ff bssid=00:11:aa:bb:cc:dd signal=-61 frequency=5180"
    assert run("bss", "wlan0", "--", "signal", "wlan0") == (
        0, f"{lab}\nssid= bssid= signal=-90 frequency=2412\n{lab} rssi=-50\n", "")
    # "/" is no BSS: nothing is read for it.
    double.set_property(path, IFACE, "BSSs", dbus.Array(["/"], signature="o"))
    double.set_property(path, IFACE, "CurrentBSS", dbus.ObjectPath("/"))
    double.clear()
    assert run("bss", "wlan0", "--", "signal", "wlan0")[1] == (
        "ssid= bssid= signal=0 frequency=0 rssi=-50\n")
    assert all(c.path in (ROOT, path) for c in double.calls())


@pytest.mark.parametrize("op, prop, value, expected", [
    ("bss", "SSID", dbus.String("lab"), INVALID_ARGS + "byte-array expected\n"),
    ("bss", "BSSID", dbus.Array([1, 2], signature="i"), INVALID_ARGS + "byte-array expected\n"),
    ("bss", "BSSs", dbus.String("/x"), INVALID_ARGS + "array expected\n"),
    ("current-network", "Properties", dbus.String("x"),
     INVALID_ARGS + "dictionary value expected\n"),
])
def test_wrong_typed_replies(double, run, op, prop, value, expected):
    path = double.interface_path("wlan0")
    if prop == "Properties":
        path = double.set_current_network("wlan0", {"mode": "2"})
    elif prop != "BSSs":
        path = double.add_bss("wlan0")
    double.set_property(path, "", prop, value)  # on the object's own interface
    assert run(op, "wlan0")[:2] == (2, expected)


def test_signal_errors_are_logged_not_thrown(double, run):
    reply = "ret = dbus.Dictionary({'linkspeed': dbus.Int32(54)}, signature='sv')"
    double.mock(double.interface_path("wlan0")).AddMethod(IFACE, "SignalPoll", "", "a{sv}", reply)
    assert run("signal", "wlan0")[::2] == (0, "CAUGHT EXCEPTION: map::at\n")


def test_scan_and_debug_level(double, run):
    assert run("scan", "wlan0", "--", "scanning", "wlan0", "--", "debug", "on", "--",
               "debug", "off")[:2] == (0, "false\n")
    assert [c.typed() for c in double.calls("Scan")] == [[{"Type": ("s", "active")}]]
    assert [c.typed() for c in double.calls("Set")] == [
        [("s", "fi.w1.wpa_supplicant1"), ("s", "DebugLevel"), ("s", level)]
        for level in ("debug", "warning")]
