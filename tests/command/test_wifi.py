"""Wireless and wired 802.1X bring-up against a double of the supplicant's
D-Bus service on the player's bus (no WiFi hardware here)."""

import base64
import subprocess

import dbus
import pytest

from supplicant_double import BUS_NAME, INTERFACE_IFACE, SupplicantDouble

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})]


def test_open_network_is_handed_to_a_new_supplicant_interface(player):
    player.start_registry({".omba1": {"wi": "Home"}})
    with SupplicantDouble(player) as double:
        result = player.linkrig("wlan0", "start")
        assert result.returncode == 0, result.stderr
        assert "wlan0: No security configuration; using defaults.\n" in result.stderr
        assert [c.typed()[0] for c in double.calls("CreateInterface")] == [
            {"Ifname": ("s", "wlan0"), "Driver": ("s", "nl80211")}]
        assert [c.typed()[0] for c in double.calls("AddNetwork")] == [
            {"scan_ssid": ("i", 1), "ssid": ("s", "Home"), "key_mgmt": ("s", "NONE"),
             "disabled": ("i", 0), "priority": ("i", 1)}]


def test_eap_tls_sends_certificate_and_key_as_blobs(player, tmp_path):
    subprocess.run(
        "certtool --generate-privkey --key-type=ecdsa --outfile k.pem && "
        "printf 'cn = \"player-7\"\\n' > t && certtool --generate-self-signed "
        "--load-privkey k.pem --template t --outder --outfile c.der",
        shell=True, cwd=tmp_path, check=True, capture_output=True)
    cert, key = (tmp_path / "c.der").read_bytes(), (tmp_path / "k.pem").read_bytes()
    stored = {"wi": "Corp", "ww": "tls"}
    stored["wt"] = "[base64]" + base64.b64encode(cert).decode()
    stored["wk"] = "[base64]" + base64.b64encode(key).decode()
    player.start_registry({".omba1": stored})
    with SupplicantDouble(player, interfaces=("wlan0",)) as double:
        result = player.linkrig("wlan0", "start")
        assert result.returncode == 0, result.stderr
        assert "wlan0: WPA/Enterprise: (from certificate) Identity player-7\n" in result.stderr
        assert key.decode() not in result.stderr
        blobs = {c.typed()[0][1]: c.typed()[1][1] for c in double.calls("AddBlob")}
        assert blobs == {"client_cert": cert, "private_key": key}
        (network,) = [c.typed()[0] for c in double.calls("AddNetwork")]
        assert network["identity"] == ("s", "player-7")
        assert network["eap"] == ("s", "TLS")
        assert network["client_cert"] == ("s", "blob://client_cert")
        assert "CreateInterface" not in double.members()


def test_wired_port_without_8021x_loses_old_networks_only(player):
    player.start_registry({".omba": {}})
    with SupplicantDouble(player, interfaces=("eth0",)) as double:
        eth0 = double.bus.get_object(BUS_NAME, double.interface_path("eth0"))
        dbus.Interface(eth0, INTERFACE_IFACE).AddNetwork({"ssid": "old"})
        double.clear_calls()
        result = player.linkrig("eth0", "start")
        assert result.returncode == 0, result.stderr
        members = double.members()
        assert members.count("RemoveNetwork") == 1
        assert "CreateInterface" not in members and "AddNetwork" not in members


def test_absent_supplicant_fails_the_wireless_start(player):
    player.start_registry({".omba1": {"wi": "Home"}})
    result = player.linkrig("wlan0", "start")
    assert result.returncode == 2
    assert "Failed to initiate WiFi network join: " in result.stderr
    assert result.stderr.endswith(
        "linkrig: EXCEPTION: InitialiseWifi(wlan0): ConfigureWifiOrDot1x failed: 1\n")
