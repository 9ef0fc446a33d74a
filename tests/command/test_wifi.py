"""Wireless and wired 802.1X bring-up against a double of the supplicant's
D-Bus service on the player's bus (no WiFi hardware here)."""

import base64
import subprocess

import pytest

from supplicant_double import SupplicantDouble

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})]


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
        assert (network["identity"], network["eap"], network["client_cert"]) == (
            ("s", "player-7"), ("s", "TLS"), ("s", "blob://client_cert"))
        assert "CreateInterface" not in double.members()


def test_absent_supplicant_fails_the_wireless_start(player):
    player.start_registry({".omba1": {"wi": "Home"}})
    result = player.linkrig("wlan0", "start")
    assert result.returncode == 2
    assert "Failed to initiate WiFi network join: " in result.stderr
    assert result.stderr.endswith(
        "linkrig: EXCEPTION: InitialiseWifi(wlan0): ConfigureWifiOrDot1x failed: 1\n")
