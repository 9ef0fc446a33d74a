"""Wired 802.1X: the real wpa_supplicant ("wired" driver on eth0) against hostapd's own EAP
server on the far end of the cable; and the wait for a port that shows up late or never."""

import threading
import time
from pathlib import Path

import pytest

from pki import PASSPHRASE, eap_server, eap_tls_pkcs12_settings, eap_tls_settings, \
    peap_settings, pki  # noqa: F401
from player import linkrig_path, wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})]

BUILD = Path(linkrig_path()).parents[2]
WRONG = "not-the-password"
AUTH_DEADLINE = 20.0
FAR = "/run/dot1x"


def start(player, pki, settings):
    """hostapd on the far end, the supplicant, then the start; returns (supplicant, result)."""
    lines = ["interface=peer-eth0", "driver=wired", "ieee8021x=1", "eapol_version=2"]
    player.write_file(f"{FAR}/hostapd.conf", "\n".join(
        lines + eap_server(player.lan, FAR, pki) + [""]))
    player.lan.start_daemon("hostapd", ["hostapd", f"{FAR}/hostapd.conf"],
                            ready="interface state UNINITIALIZED->ENABLED")
    supplicant = player.start_supplicant()
    player.start_registry({".omba": settings})
    result = player.linkrig("eth0", "start")
    assert result.returncode == 0, result.stderr
    assert PASSPHRASE not in result.stdout + result.stderr
    return supplicant, result


def link_state(player):
    return player.run([BUILD / "tests" / "supplicant_probe", "link-state", "eth0"]).stdout.strip()


CASES = {"eap-tls-pem": eap_tls_settings, "eap-tls-pkcs12": eap_tls_pkcs12_settings,
         "peap": peap_settings}


@pytest.mark.parametrize("case", sorted(CASES))
def test_authenticates_against_the_far_end(player, pki, case):
    start(player, pki, CASES[case](pki))
    wait_for(lambda: link_state(player) == "3", AUTH_DEADLINE, interval=0.2, what="eth0 authorised")
    assert player.supplicant_state("eth0") == "completed"


NO_CA = "eth0: WPA/Enterprise: no CA certificate stored; the server cannot be verified, " \
    "so the network will not be joined\n"


# Without a CA certificate the server cannot be checked: no join at all.
@pytest.mark.parametrize("settings, line, event", [
    (lambda pki: peap_settings(pki, password=WRONG), "", "CTRL-EVENT-EAP-FAILURE"),
    (lambda pki: dict(peap_settings(pki), wa=""), NO_CA, "CTRL-EVENT-EAP-STARTED"),
    (lambda pki: dict(eap_tls_settings(pki), wa=""), NO_CA, "CTRL-EVENT-EAP-STARTED"),
], ids=["wrong-password", "peap-without-ca", "eap-tls-without-ca"])
def test_never_completes(player, pki, settings, line, event):
    supplicant, result = start(player, pki, settings(pki))
    assert WRONG not in result.stdout + result.stderr
    assert line in result.stderr
    wait_for(lambda: event in supplicant.log(), AUTH_DEADLINE, interval=0.2, what=event)
    for _ in range(10):  # two seconds
        assert link_state(player) != "3"
        time.sleep(0.2)
    assert player.supplicant_state("eth0") != "completed"


WAITING = "Waiting for interface to appear\n"


# The wired port is known from the feature flags alone, so its start waits for the port
# itself, polling twice a second for five seconds (the wireless one only counts once it exists).
@pytest.mark.parametrize("late, waits, status", [(2.0, (3, 5), 0), (None, (9, 11), 2)],
                         ids=["two-seconds-late", "never"])
@pytest.mark.player(ports=("wlan0",), hwvars={"VL_HWFLAGS": "0x10"})
def test_wired_port_that_appears_late(player, late, waits, status):
    player.start_registry({})
    appear = threading.Timer(late or 0, player.run, [["ip", "link", "add", "eth0", "type",
                                                      "veth", "peer", "name", "eth0-far"]])
    if late:
        appear.start()
    started = time.monotonic()
    result = player.linkrig("eth0", "start")
    elapsed = time.monotonic() - started
    if late:
        appear.join()
    assert waits[0] <= result.stderr.count(WAITING) <= waits[1], result.stderr
    assert result.returncode == status, result.stderr
    if not late:
        assert 4.8 <= elapsed <= 7.0
        assert result.stderr.endswith(
            "linkrig: EXCEPTION: InitialiseWifi(eth0): interface not present\n"), result.stderr
