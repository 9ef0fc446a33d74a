"""The DHCP client (the real dhcpcd) and server (the real busybox udhcpd) of a wired port,
against a far end on the lan; recording stand-ins where only the calls matter and for a
missing program. eth1 stands for an ordinary wired port (no wired 802.1X step)."""

import re
import time
from pathlib import Path

import pytest

from player import linkrig_path, wait_for

ROOT = Path(__file__).resolve().parents[2]

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "eth1"), hwvars={
                  "VL_HWFLAGS": "0x10", "VL_OEM_ID": "ACME", "VL_OEM_MODEL": "Box 4",
                  "VL_FORMAT": "1", "VL_SERIAL": "S1"})]

STATIC = {"ip": "c0a83c01", "nm": "ffffff00"}  # 192.168.60.1/24
SERVER = {"dh": "c0a83c64:c0a83c6e", "dhgw": "c0a83c01", "dhdn": "08080808",
          "dhds": "example.local"}


@pytest.fixture
def player(player):
    player.skip_address_probing()
    return player


def start(player, ifname):
    result = player.linkrig(ifname, "start")
    assert result.returncode == 0 and "Failed" not in result.stderr, result.stderr
    return result


def address(player, ifname, pattern):
    return re.search(pattern, player.run(["ip", "-4", "addr", "show", ifname]).stdout)


def assert_stops_everything(player, ifname):
    client = min(player.pids("dhcpcd"))
    assert player.linkrig(ifname, "stop").returncode == 0
    # The stop waits for the client to go (killing one that stays).
    assert client not in player.pids("dhcpcd")
    wait_for(lambda: not player.pids("udhcpd") and not player.pids("dhcpcd"),
             timeout=20, interval=0.1, what="dhcpcd and udhcpd to end")


@pytest.mark.parametrize("ifname", ["eth0", "eth1"])
def test_dynamic_lease_from_the_far_end(player, ifname):
    peer = f"peer-{ifname}"
    player.start_registry({".omba": {"hn": "player"}})
    player.lan.run(["ip", "addr", "add", "192.168.50.1/24", "dev", peer], check=True)
    player.write_file("/run/player/lan-udhcpd.conf",
                      f"interface {peer}\nstart 192.168.50.100\nend 192.168.50.150\n"
                      "pidfile /run/player/lan-udhcpd.pid\nlease_file /run/player/lan.leases\n"
                      "option subnet 255.255.255.0\noption router 192.168.50.1\n")
    server = player.lan.start_daemon("lan-udhcpd",
                                     ["busybox", "udhcpd", "-f", "/run/player/lan-udhcpd.conf"])
    start(player, ifname)
    try:
        # A lease takes a second; a loaded machine running the sanitizer build took over 15.
        wait_for(lambda: address(player, ifname, r"inet 192\.168\.50\.1[0-4]\d/24 .*dynamic"),
                 timeout=40, what="a lease")
    except TimeoutError:
        clients = player.run(["pgrep", "-a", "dhcpcd"]).stdout
        raise AssertionError(f"no lease; clients:\n{clients}kmsg:\n{player.kmsg()}")
    # Debian's dhcpcd.conf says "persistent": its dhcpcd leaves the lease on the port when it
    # ends. A reconfiguration to a static address leaves only that one.
    for key, value in STATIC.items():
        player.set_setting(".omba" if ifname == "eth0" else f".net.{ifname}", key, value)
    assert player.linkrig(ifname, "reconfigure").returncode == 0
    wait_for(lambda: address(player, ifname, r"inet 192\.168\.60\.1/24 "), timeout=20,
             what="the static address")
    assert not address(player, ifname, r"192\.168\.50\.")
    assert_stops_everything(player, ifname)
    assert not address(player, ifname, r"inet ")
    server.stop()


def test_static_configuration_and_served_lease(player):
    player.start_registry({".omba": {"hn": "player"},
                           ".net.eth1": dict(STATIC, gw="c0a83cfe", mtu="578", **SERVER)})
    result = start(player, "eth1")
    assert "Starting DHCP server for 'eth1'\n" in result.stderr
    # The server waited until dhcpcd had given the port its address.
    assert address(player, "eth1", r"inet 192\.168\.60\.1/24 ")
    routes = player.run(["ip", "-4", "route"], check=True).stdout
    assert re.search(r"default via 192\.168\.60\.254 dev eth1 .*mtu 1400", routes), routes
    server = player.run(["pgrep", "-a", "-x", "udhcpd"]).stdout.split("\n")[0].split(" ")
    assert server == [player.read_file("/var/run/udhcpd-eth1.pid").strip(), "/sbin/udhcpd",
                      "/var/run/udhcpd-eth1.conf"]
    assert "option router 192.168.60.1\nopt dns 8.8.8.8\noption domain example.local\n" \
        in player.read_file("/var/run/udhcpd-eth1.conf")
    client = player.lan.run(["busybox", "udhcpc", "-i", "peer-eth1", "-f", "-q", "-n",
                             "-t", "5", "-T", "1", "-s", "/bin/true"])
    assert re.search(r"lease of 192\.168\.60\.1(0\d|10) obtained from 192\.168\.60\.1,",
                     client.stderr), client.stderr
    assert_stops_everything(player, "eth1")


def test_missing_programs_give_exit_code_127(player):
    player.start_registry({".omba": {"hn": "player"}, ".net.eth1": dict(STATIC, **SERVER)})
    player.replace_program("/sbin/dhcpcd", missing=True)
    player.replace_program("/sbin/udhcpd", missing=True)
    player.run(["ip", "addr", "add", "192.168.60.1/24", "dev", "eth1"], check=True)
    result = player.linkrig("eth1", "start")
    # The stop before the start fails too, silently.
    assert result.returncode == 0
    assert result.stderr.count("linkrig: Failed to spawn dhcpcd: 127\n") == 1
    assert "Starting DHCP server for 'eth1'\nlinkrig: Failed to spawn udhcpd: 127\n" \
        in result.stderr
    assert "SpawnProcess child '/sbin/dhcpcd' failed: exec: No such file or directory\n" \
        in player.kmsg()


def test_malformed_static_configuration(player):
    player.start_registry({".omba": {"hn": "player"}, ".net.eth1": {"ip": "c0a83c01"}})
    dhcpcd = player.replace_program("/sbin/dhcpcd")
    result = player.linkrig("eth1", "start")
    assert (result.returncode, result.stderr.splitlines()[-1]) == (
        2, "linkrig: EXCEPTION: Invalid static IP configuration")
    assert all("-x" in call for call in dhcpcd.calls())  # no client started


@pytest.mark.player(ports=("eth0", "wlan0"))
def test_server_on_a_wifi_vlan_needs_access_point_mode(player):
    # A VLAN of the WiFi port, as a veth of that name (this kernel has no 802.1Q).
    player.run(["ip", "-batch", "-"], check=True, input="link add wlan0.7 type veth peer name w7\n"
               "link set wlan0.7 up\nlink set w7 up\naddr add 192.168.70.1/24 dev wlan0.7\n")
    player.start_registry({".omba": {"hn": "player"}, ".net.wlan0.7": {
        "ip": "c0a84601", "nm": "ffffff00", "dh": "c0a84664:c0a8466e"}})
    player.replace_program("/sbin/dhcpcd")
    udhcpd = player.replace_program("/sbin/udhcpd")
    result = player.linkrig("wlan0.7", "start")
    assert "DHCP server not available on 'wlan0.7' when not in access point mode\n" in result.stderr
    assert udhcpd.calls() == []
    player.set_setting(".omba1", "wm", "0")  # any value at all
    result = player.linkrig("wlan0.7", "start")
    assert "Starting DHCP server for 'wlan0.7'\n" in result.stderr
    assert udhcpd.calls() == [["/var/run/udhcpd-wlan0.7.conf"]]


def test_dhcpcd_hook_holds_up_no_start(player):
    """dhcpcd waits for its hook, whose update meets the lock of the start that waits for the
    static address dhcpcd gives: the update leaves its work to the start, which then takes as
    long as without the hook. dhcpcd probes the address by ARP, as it would on a player."""
    player.run(["sed", "-i", "/^noarp$/d", "/etc/dhcpcd.conf"], check=True)
    player.start_registry({".omba": {"hn": "player"}, ".net.eth1": dict(STATIC, **SERVER)})

    def timed_start():
        started = time.monotonic()
        start(player, "eth1")
        took = time.monotonic() - started
        assert address(player, "eth1", r"inet 192\.168\.60\.1/24 ") and player.pids("udhcpd")
        assert_stops_everything(player, "eth1")
        return took
    without = timed_start()
    # The hook as the package installs it, running the linkrig under test.
    for directory in ("/usr/sbin", "/usr/lib/dhcpcd/dhcpcd-hooks"):
        player.make_writable(directory)
    player.write_file("/usr/sbin/linkrig", "#!/bin/sh\nexec " + " ".join(
        player.clock_guard() + [linkrig_path()]) + ' "$@" 2>>/run/player/hook.log\n', mode=0o755)
    player.write_file("/usr/lib/dhcpcd/dhcpcd-hooks/90-linkrig",
                      (ROOT / "doc/examples/dhcpcd-hook").read_text())
    with_hook = timed_start()
    # The knot this undoes held a start up to its 15-s limit; ARP probing alone varies by a
    # second or so.
    assert with_hook < without + 3.0, (without, with_hook)
    # The hook's update was left to the start, which made it.
    assert "linkrig: the run holding /var/run/linkrig-eth1.lock makes this update\n" \
        in player.read_file("/run/player/hook.log")
