"""The whole player: the package of the guest's architecture installed with dpkg, its boot script, udev rule (the
real systemd-udevd) and dhcpcd hook (the real dhcpcd), the real linkrig and every real daemon.
It boots through the boot script, then lives through a pulled cable, a renewed lease and a
port plugged in late; no run may wait for another one's lock for more than a second."""

import os
import re
from pathlib import Path

import pytest
from conftest import ROOT

from pki import obfuscated
from player import wait_for
from player import whole_player as whole
from player.radios import Radios

pytestmark = pytest.mark.usefixtures("linkrig_binary")

PACKAGES = Path(os.environ.get("LINKRIG_PACKAGES", ROOT / "build" / "packages"))


@pytest.fixture
def booted(make_player):
    deb = whole.package(PACKAGES)
    if deb is None:
        pytest.skip(f"no {whole.architecture()} package in {PACKAGES}: run scripts/package.sh")
    with Radios(2) as radios:
        player = whole.make(make_player, radios)
        whole.install(player, deb)
        whole.start_daemons(player, obfuscated(whole.PSK))
        result, took = whole.boot(player)
        assert result.returncode == 0 and result.stderr == "", result.stderr
        player.booted_in = took
        yield player
        player.close()


def waits(player, since=0):
    """The lock waits the runs reported after the first since characters of their errors."""
    errors = player.read_file(whole.ERRORS)[since:] if player.exists(whole.ERRORS) else ""
    assert "EXCEPTION" not in errors, errors
    found = re.findall(r"linkrig: waited (\S+) s for (\S+)\n", errors)
    assert errors.count("waiting for another run") == len(found), errors
    return [(float(took), lock) for took, lock in found]


def assert_as_booted(player, since):
    """Every port configured, each with one DHCP client, the LEDs on, NAT on the port with the
    default route, the stored host name; since the event began (an offset into the runs'
    errors), no run waited for a lock for more than a second."""
    wait_for(lambda: not whole.missing(player), timeout=30, interval=0.2, what="the ports")
    for ifname in ("eth0", "eth0.12", "eth1", "wlan0"):
        wait_for(lambda: len(player.dhcp_clients(ifname)) == 1, timeout=10,
                 what=f"one dhcpcd for {ifname}")
    for led in ("ethernet", "wifi"):
        assert wait_for(lambda: player.led(led) == {"trigger": "none", "brightness": "255"},
                        timeout=10, interval=0.2, what=f"the {led} LED on")

    def nat():
        rules = player.run(["iptables", "-t", "nat", "-S", "POSTROUTING"], check=True).stdout
        return re.findall(r"-A POSTROUTING .*", rules)
    try:
        wait_for(lambda: nat() == ["-A POSTROUTING -o eth0 -j MASQUERADE"], timeout=10,
                 interval=0.2, what="NAT on eth0")
    except TimeoutError as e:
        raise AssertionError(f"{e}: {nat()}\n{whole.diagnosis(player)}") from None
    assert player.hostname() == player.avahi_host_name() == whole.HOST_NAME
    assert all(took <= 1.0 for took, _ in waits(player, since)), waits(player, since)
    return len(player.read_file(whole.ERRORS))


def test_boots_and_lives_through_its_events(booted):
    player = booted
    # The boot script: "host start" first, each port's "init" before its "start"; the VLAN
    # that eth0's start makes is no port of its own to the hot-plug rule (only its dhcpcd's
    # hook runs linkrig for it).
    boot = [args for *_, args in whole.run_log(player)]
    assert boot[0] == ["host", "start"], boot
    assert all(boot.index([port, "init"]) < boot.index([port, "start"])
               for port in ("eth0", "eth1", "wlan0")), boot
    assert not [args for args in boot if args[0] == "eth0.12" and args[1] in ("add", "start")]
    # Booting, the ports take turns only for their host-wide changes, which wait for nothing.
    assert all(lock.endswith("/linkrig-host.lock") for _, lock in waits(player))
    seen = assert_as_booted(player, len(player.read_file(whole.ERRORS)))
    # The far end gets an address from the player's server on eth1.
    client = player.lan.run(["busybox", "udhcpc", "-i", "peer-eth1", "-f", "-q", "-n",
                             "-t", "5", "-T", "1", "-s", "/bin/true"])
    assert "lease of 192.168.60.1" in client.stderr, client.stderr

    # A pulled cable: the LED goes out, and comes back with the lease.
    player.set_peer_link("eth0", up=False)
    wait_for(lambda: player.led("ethernet") == {"trigger": "none", "brightness": "0"},
             timeout=10, interval=0.2, what="the LED off")
    player.set_peer_link("eth0", up=True)
    seen = assert_as_booted(player, seen)

    # A renewal runs the hook again: every dhcpcd renews within the lease's first half.
    def updates():
        return len([r for r in whole.run_log(player) if r[3] == ["eth0", "update"]])
    before = updates()
    wait_for(lambda: updates() > before, timeout=whole.LEASE_SECONDS, interval=0.5,
             what="a renewal")
    seen = assert_as_booted(player, seen)

    # A port plugged in after the boot: udev hands it to the hook, which starts it.
    player.run(["ip", "link", "add", "eth2", "type", "veth", "peer", "name", "peer-eth2",
                "netns", "lan"], check=True)
    player.lan.run(["ip", "link", "set", "peer-eth2", "up"], check=True)
    try:
        wait_for(lambda: [r[3] for r in whole.run_log(player) if r[3][0] == "eth2"][:2] == [
            ["eth2", "add"], ["eth2", "start"]], timeout=60, interval=0.2,
            what="eth2 added and started")
    except TimeoutError as e:
        raise AssertionError(f"{e}\n{whole.diagnosis(player)}") from None
    assert len(player.dhcp_clients("eth2")) == 1
    assert_as_booted(player, seen)

    # Unplugged, and then the player shut down: each port stopped once, with no address and
    # no DHCP client left.
    player.run(["ip", "link", "del", "eth2"], check=True)
    wait_for(lambda: ["eth2", "remove"] in [r[3] for r in whole.run_log(player)], timeout=30,
             interval=0.2, what="eth2 removed")
    player.run(["/etc/init.d/linkrig", "stop"], check=True, timeout=120)
    stops = [r[3][0] for r in whole.run_log(player) if r[3][1] == "stop"]
    assert sorted(stops) == ["eth0", "eth1", "wlan0"], stops
    left = [(ifname, whole.addresses(player, ifname), player.dhcp_clients(ifname))
            for ifname in stops if whole.addresses(player, ifname) or player.dhcp_clients(ifname)]
    assert not left, f"{left}\n{whole.diagnosis(player)}"
    assert all(status == 0 for _, _, status, args in whole.run_log(player)
               if args[1] != "checklink"), whole.run_log(player)
