"""A wireless start on a player whose supplicant is not running (joins over
real radios are the guest's scenarios)."""

import pytest

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})]


def test_absent_supplicant_fails_the_wireless_start(player):
    player.start_registry({".omba1": {"wi": "Home"}})
    result = player.linkrig("wlan0", "start")
    assert result.returncode == 2
    assert "Failed to initiate WiFi network join: " in result.stderr
    assert result.stderr.endswith(
        "linkrig: EXCEPTION: InitialiseWifi(wlan0): ConfigureWifiOrDot1x failed: 1\n")
