"""The stored host name, set in the player's own UTS namespace (that the host's
name stays is the player's self-test) and announced through a real avahi-daemon
on the player's bus."""

import pytest
from conftest import echo, stderr_without_time

pytestmark = pytest.mark.usefixtures("linkrig_binary")


@pytest.mark.parametrize("action, hwvars, stored, expected", [
    ("start", {}, "lobby-screen", "lobby-screen"),
    ("reconfigure", {}, "lobby-screen", "lobby-screen"),
    ("start", {"VL_HWFLAGS": "0x10"}, "", "Velmora-"),  # an empty name: the serial's
    ("start", {"VL_HWFLAGS": "0x10", "VL_FORMAT": "1", "VL_SERIAL": "SN0042"}, "",
     "Velmora-SN0042"),
])
def test_sets_kernel_and_avahi_names(make_player, action, hwvars, stored, expected):
    player = make_player(hwvars=hwvars)
    avahi = player.start_avahi()
    player.start_registry({".omba": {"hn": stored}})
    result = player.linkrig("host", action)
    assert (result.returncode, stderr_without_time(result)) == (0, echo("host", action))
    assert (player.hostname(), player.avahi_host_name()) == (expected, expected)
    assert f"Changing host name to '{expected}'." in avahi.log()


# Avahi announces "player" from the start; it compares names ignoring case.
@pytest.mark.parametrize("announced, stored", [("lobby", "lobby"), (None, "Player")])
def test_avahi_refusal_ends_the_run_after_the_kernel_name(player, announced, stored):
    avahi = player.start_avahi()
    if announced:
        # Avahi already announces the name the kernel does not have yet.
        player.run(["busctl", "--system", "call", "org.freedesktop.Avahi", "/",
                    "org.freedesktop.Avahi.Server", "SetHostName", "s", announced], check=True)
    player.start_registry({".omba": {"hn": stored}})
    result = player.linkrig("host", "start")
    assert result.returncode == 2
    assert stderr_without_time(result) == echo("host", "start") + (
        f"linkrig: EXCEPTION: Failed to set avahi host name to '{stored}': "
        "The requested operation is invalid because redundant\n")
    assert player.hostname() == stored
    assert avahi.running()


def test_unusable_name_is_reported_and_the_next_start_works(player):
    player.start_registry({".omba": {"hn": "x" * 65}})
    result = player.linkrig("host", "start")
    assert (result.returncode, stderr_without_time(result)) == (
        2, echo("host", "start") + "linkrig: EXCEPTION: sethostbyname: Invalid argument\n")
    assert player.hostname() == "player"
    player.set_setting(".omba", "hn", "x" * 64)
    assert player.linkrig("host", "start").returncode == 0
    assert player.hostname() == "x" * 64
