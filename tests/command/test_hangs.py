"""Daemons and programs that hang: each run still ends within the bound of its wait, with a
clear line and the status of the failure, and leaves nothing the next run cannot repair."""

import time

import pytest

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})]

MOCK = ["/usr/bin/python3", "-m", "dbusmock", "--system"]
REPLY_TIMEOUT = 25  # libdbus's default, per call


def never_answering(player, name, method, signature, out):
    """A service on the player's bus (object and interface named alike) that never answers."""
    path = "/" + name.replace(".", "/")
    call = ["busctl", "--system", "call", name, path]
    player.start_daemon(f"mock-{name}", MOCK + [name, path, name], ready=lambda p: p.run(
        call + ["org.freedesktop.DBus.Introspectable", "Introspect"]).returncode == 0)
    player.run(call + ["org.freedesktop.DBus.Mock", "AddMethod", "sssss", name, method,
                       signature, out, "time.sleep(3600)"], check=True)


def timed(player, *args):
    started = time.monotonic()
    result = player.linkrig(*args, timeout=400)
    return result, time.monotonic() - started


def test_registry_that_never_answers(player):
    never_answering(player, "com.ombalabs.Registry", "Read", "ss", "s")
    result, took = timed(player, "eth0", "start")
    assert result.returncode == 2
    assert result.stderr.splitlines()[-1].startswith("linkrig: EXCEPTION: "), result.stderr
    assert REPLY_TIMEOUT - 1 < took < REPLY_TIMEOUT + 10


def test_supplicant_that_never_answers(player):
    player.start_registry({".omba1": {"wi": "Home"}})
    never_answering(player, "fi.w1.wpa_supplicant1", "GetInterface", "s", "o")
    result, took = timed(player, "wlan0", "start")
    assert result.returncode == 2
    assert "Failed to initiate WiFi network join: " in result.stderr
    assert result.stderr.endswith(
        "linkrig: EXCEPTION: InitialiseWifi(wlan0): ConfigureWifiOrDot1x failed: 1\n")
    # The join, then the LED's look at the link state: two calls, each bounded.
    assert took < 2 * REPLY_TIMEOUT + 10


def test_dhcp_client_that_never_exits(player):
    player.start_registry({})
    player.replace_program("/sbin/dhcpcd", delay=100000)
    result, took = timed(player, "eth0", "start")
    assert "Abort due to timeout on waitpid\n" in result.stderr
    assert result.returncode in (-6, 134)  # SIGABRT
    assert 299 < took < 320
    # The stuck client went with the run, and so did the run's lock.
    assert not [pid for pid in player.pids("python3")
                if "dhcpcd" in player.read_file(f"/proc/{pid}/cmdline")]
    assert player.run(["flock", "-n", "/var/run/linkrig-eth0.lock", "true"]).returncode == 0
