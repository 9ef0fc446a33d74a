"""A start killed at any point, followed by one normal start, ends as a single clean start
does: one DHCP client, the DHCP server, the LED. A run killed after it has written a file that a
daemon reads, before the file takes the old one's place (as a power cut would), leaves the old
file whole."""

import signal

import pytest

from player import linkrig_path, wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})]

SETTINGS = {".omba": {"ip": "c0a85a01", "nm": "ffffff00", "dh": "c0a85a64:c0a85a6e"}}
REAL, CALLED = "/run/player/dhcpcd-real", "/run/player/dhcpcd-called"
# Marks its start, lets the test catch linkrig in the act, then is the real dhcpcd.
WRAPPER = f"#!/bin/sh\ntouch {CALLED}\nsleep 1\nexec {REAL} \"$@\"\n"
# What shows that the run to kill has got that far.
CAUGHT = {"waiting-for-its-lock": lambda p: p.pids("linkrig"),
          "running-dhcpcd": lambda p: p.exists(CALLED),
          "awaiting-the-address": lambda p: p.dhcp_clients("eth0")}


@pytest.mark.parametrize("when", CAUGHT)
def test_killed_start_then_a_normal_one(player, when):
    player.start_registry(SETTINGS)
    # Probing keeps the address away for seconds: long enough to catch the run waiting for it.
    if when != "awaiting-the-address":
        player.skip_address_probing()
    if when == "waiting-for-its-lock":
        holder = player.start_daemon("holder", ["flock", "-o", "/var/run/linkrig-eth0.lock",
                                                "sleep", "100"])
    elif when == "running-dhcpcd":
        player.write_file(REAL, player.read_file("/usr/sbin/dhcpcd", binary=True), mode=0o755)
        player.write_file("/run/player/dhcpcd-wrapper", WRAPPER, mode=0o755)
        player.run(["mount", "--bind", "/run/player/dhcpcd-wrapper", "/usr/sbin/dhcpcd"],
                   check=True)
    run = player.spawn(player.clock_guard() + [linkrig_path(), "eth0", "start"])
    wait_for(lambda: CAUGHT[when](player), timeout=10, what=when)
    for pid in player.pids("linkrig"):
        player.run(["kill", "-KILL", str(pid)])
    assert run.wait(10) in (-signal.SIGKILL, 128 + signal.SIGKILL, 1)
    if when == "waiting-for-its-lock":
        holder.stop()
    elif when == "running-dhcpcd":
        player.run(["umount", "-l", "/usr/sbin/dhcpcd"], check=True)

    result = player.linkrig("eth0", "start")
    assert result.returncode == 0, result.stderr
    wait_for(lambda: len(player.dhcp_clients("eth0")) == 1, timeout=15, what="one client")
    assert player.pids("udhcpd") == [int(player.read_file("/var/run/udhcpd-eth0.pid"))]
    assert player.led("ethernet", timeout=10)["brightness"] == "255"


# Each file with the setting that changes it: the run is stopped by strace at its Nth rename.
FILES = {"server": ("eth0", "start", "/var/run/udhcpd-eth0.conf", ".omba", "dh", 1),
         "chat-script": ("ppp0", "stop", "/var/volatile/etc/ppp-chatscript", ".omba2", "dn", 1),
         "peer-file": ("ppp0", "stop", "/etc/ppp/peers/peer", ".omba2", "dp", 2)}
OLD = {"dh": "c0a85a64:c0a85a6e", "dn": "111", "dp": "old-secret"}
# The setting's new value, and what it makes of the file.
NEW = {"dh": ("c0a85a65:c0a85a6f", "start 192.168.90.101\n"), "dn": ("222", "OK ATDT222\n"),
       "dp": ("new-secret", "password 'new-secret'\n")}


@pytest.mark.parametrize("name", FILES)
def test_killed_between_write_and_rename(player, name):
    ifname, action, path, section, key, nth = FILES[name]
    player.skip_address_probing()
    player.makedirs("/var/volatile/etc")
    player.write_file("/dev/modem", "")
    player.start_registry({".omba": dict(SETTINGS[".omba"], dh=OLD["dh"]),
                           ".omba2": {"dn": OLD["dn"], "dp": OLD["dp"]}})
    assert player.linkrig(ifname, action).returncode == 0
    old = player.read_file(path)
    value, text = NEW[key]
    player.set_setting(section, key, value)
    killed = player.run(player.clock_guard() + [
        "strace", "-qq", "-o", "/dev/null", "-e", "trace=rename",
        "-e", f"inject=rename:signal=KILL:when={nth}", linkrig_path(), ifname, action])
    assert killed.returncode in (-signal.SIGKILL, 128 + signal.SIGKILL), killed.stderr
    assert player.read_file(path) == old
    # What it wrote beside the file, private from the first byte when the file holds a secret.
    directory, base = path.rsplit("/", 1)
    [left] = [f for f in player.listdir(directory) if f.startswith(base + ".")]
    mode = player.run(["stat", "-c", "%a", f"{directory}/{left}"]).stdout.strip()
    assert mode == ("644" if name == "server" else "600")
    assert player.linkrig(ifname, action).returncode == 0
    assert text not in old and text in player.read_file(path)
