"""The player as a WiFi station on a simulated radio: the real wpa_supplicant, driven by
linkrig, joins hostapd on a second radio on the lan, dhcpcd gets its lease over the air, and
the wireless LED follows."""

import re

import pytest
from conftest import linkrig_ok, serve

from pki import eap_server, eap_tls_settings, obfuscated, peap_settings, pki  # noqa: F401
from player import wait_for

pytestmark = pytest.mark.usefixtures("linkrig_binary")

SSID = "Lab Air"
PSK = "air-Pass 42"
AIR = "/run/air"
DEADLINE = 20.0

ENTERPRISE = ["wpa=2", "wpa_key_mgmt=WPA-EAP", "rsn_pairwise=CCMP", "ieee8021x=1"]
# The access point's hostapd.conf lines and the player's stored settings.
KINDS = {
    "open": (lambda pki, lan: [], lambda pki: {}),
    "wpa2-psk": (lambda pki, lan: ["wpa=2", "wpa_key_mgmt=WPA-PSK", "rsn_pairwise=CCMP",
                                   f"wpa_passphrase={PSK}"],
                 lambda pki: {"wp": obfuscated(PSK)}),
    "eap-tls": (lambda pki, lan: ENTERPRISE + eap_server(lan, AIR, pki), eap_tls_settings),
    "peap": (lambda pki, lan: ENTERPRISE + eap_server(lan, AIR, pki), peap_settings),
}


def blinking(on):
    return {"trigger": "timer", "brightness": "255", "delay_on": str(on),
            "delay_off": str(1000 - on)}


def start_access_point(player, lines):
    player.makedirs(AIR)
    player.write_file(f"{AIR}/hostapd.conf", "\n".join(
        ["interface=air0", "driver=nl80211", f"ssid={SSID}", "hw_mode=g", "channel=1"]
        + lines + [""]))
    return player.lan.start_daemon("hostapd", ["hostapd", f"{AIR}/hostapd.conf"],
                                   ready="AP-ENABLED")


def wait_connected(player, supplicant):
    wait_for(lambda: "wlan0: CTRL-EVENT-CONNECTED" in supplicant.log(), DEADLINE,
             what="wlan0 to join")
    assert player.supplicant_state("wlan0") == "completed"


def link_check(player):
    check = player.linkrig("wlan0", "checklink")
    return check.returncode, check.stdout


def addresses(player):
    return re.findall(r"inet (\S+)", player.run(["ip", "-4", "addr", "show", "wlan0"]).stdout)


@pytest.mark.parametrize("kind", sorted(KINDS))
def test_joins_and_gets_a_lease_over_the_air(wifi_player, pki, kind):
    player = wifi_player
    ap_lines, settings = KINDS[kind]
    access_point = start_access_point(player, ap_lines(pki, player.lan))
    player.lan.run(["ip", "addr", "add", "192.168.77.1/24", "dev", "air0"], check=True)
    serve(player, "air0", "192.168.77")
    supplicant = player.start_supplicant()
    player.start_registry({".omba1": dict(wi=SSID, **settings(pki))})
    linkrig_ok(player, "wlan0", "start", "Failed")
    wait_connected(player, supplicant)
    wait_for(lambda: any(a.startswith("192.168.77.1") for a in addresses(player)), DEADLINE,
             interval=0.1, what="a lease over the air")

    station, ap = player.radios[0].address, player.radios[1].address
    link = player.run(["iw", "dev", "wlan0", "link"], check=True).stdout
    assert f"Connected to {ap}" in link and f"SSID: {SSID}\n" in link, link
    log = access_point.log()
    assert f"AP-STA-CONNECTED {station}" in log, log
    if kind != "open":
        assert f"EAPOL-4WAY-HS-COMPLETED {station}" in log, log
    if kind in ("eap-tls", "peap"):
        assert f"CTRL-EVENT-EAP-SUCCESS {station}" in log, log
    linkrig_ok(player, "wlan0", "update", "Failed")
    assert player.led("wifi") == {"trigger": "none", "brightness": "255"}


def test_led_blinks_until_associated_and_addressed(wifi_player):
    player = wifi_player
    start_access_point(player, [])  # no DHCP server behind it
    supplicant = player.start_supplicant()
    player.start_registry({".omba1": {"wi": "Nobody Here"}})
    linkrig_ok(player, "wlan0", "start", "Failed")
    linkrig_ok(player, "wlan0", "update", "Failed")
    assert player.supplicant_state("wlan0") in ("scanning", "disconnected", "inactive")
    assert player.led("wifi") == blinking(100)
    assert "Not connected" in player.run(["iw", "dev", "wlan0", "link"], check=True).stdout
    assert link_check(player) == (1, "wlan0: Link is down\n")

    player.set_setting(".omba1", "wi", SSID)
    linkrig_ok(player, "wlan0", "reconfigure", "Failed")
    wait_connected(player, supplicant)
    assert link_check(player) == (0, "wlan0: Link is up\n")
    linkrig_ok(player, "wlan0", "update", "Failed")
    assert player.led("wifi") == blinking(500)
    assert not [a for a in addresses(player) if not a.startswith("169.254.")]
