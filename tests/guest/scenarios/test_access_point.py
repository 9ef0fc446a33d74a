"""The player as a WiFi access point: linkrig makes the real wpa_supplicant run one on the
simulated radio and serves addresses with udhcpd; a station on the lan joins and takes a lease."""

import re
from pathlib import Path

import pytest
from conftest import linkrig_ok

from pki import obfuscated
from player import linkrig_path

pytestmark = pytest.mark.usefixtures("linkrig_binary")

SSID = "Player AP"
AIR = "/run/air"
SETTINGS = {"wi": SSID, "wm": "1", "wf": "2412", "ip": "c0a84e01", "nm": "ffffff00",
            "dh": "c0a84e64:c0a84e6e"}  # 192.168.78.1/24, leases .100 to .110
LEASE = r"lease of 192\.168\.78\.1(0\d|10) obtained from 192\.168\.78\.1,"


def join_from_the_lan(player, name, passphrase):
    """A station on air0 (its own wpa_supplicant, off the bus) joins and takes a lease."""
    security = f'key_mgmt=WPA-PSK\n  psk="{passphrase}"' if passphrase else "key_mgmt=NONE"
    player.makedirs(AIR)
    player.write_file(f"{AIR}/{name}.conf",
                      f'network={{\n  ssid="{SSID}"\n  {security}\n  scan_freq=2412\n}}\n')
    station = player.lan.start_daemon(
        name, ["wpa_supplicant", "-i", "air0", "-D", "nl80211", "-c", f"{AIR}/{name}.conf"],
        ready="CTRL-EVENT-CONNECTED", timeout=20)
    stations = player.run(["iw", "dev", "wlan0", "station", "dump"], check=True).stdout
    assert f"Station {player.radios[1].address} (on wlan0)" in stations, stations
    client = player.lan.run(["busybox", "udhcpc", "-i", "air0", "-f", "-q", "-n",
                             "-t", "5", "-T", "1", "-s", "/bin/true"])
    station.stop()
    assert re.search(LEASE, client.stderr), client.stderr


def assert_access_point(player):
    """The kernel's view (the key management shows in which station can join)."""
    info = player.run(["iw", "dev", "wlan0", "info"], check=True).stdout
    assert "type AP" in info and "channel 1 (2412 MHz)" in info and f"ssid {SSID}\n" in info, info
    assert player.run(["pgrep", "-x", "udhcpd"]).stdout.strip() == \
        player.read_file("/var/run/udhcpd-wlan0.pid").strip()


def test_serves_stations_on_the_lan(wifi_player):
    player = wifi_player
    player.start_supplicant()
    player.start_registry({".omba1": SETTINGS})
    result = linkrig_ok(player, "wlan0", "start", "Failed")
    assert "Starting DHCP server for 'wlan0'\n" in result.stderr
    assert_access_point(player)
    # The LED was set once the server ran; the supplicant reports an access point.
    assert player.led("wifi") == {"trigger": "none", "brightness": "255"}
    probe = Path(linkrig_path()).parents[2] / "tests" / "supplicant_probe"
    assert player.run([probe, "link-state", "wlan0"], check=True).stdout.strip() == "4"

    join_from_the_lan(player, "open-station", None)

    # With a passphrase stored the access point comes back with WPA-PSK.
    passphrase = "air-Pass 42"
    player.set_setting(".omba1", "wp", obfuscated(passphrase))
    linkrig_ok(player, "wlan0", "reconfigure", "Failed")
    assert_access_point(player)
    join_from_the_lan(player, "psk-station", passphrase)
