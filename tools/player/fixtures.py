"""pytest fixtures for tests that run against a simulated player.

    def test_x(player): ...                         # default player
    @pytest.mark.player(ports=("eth0", "wlan0"))    # or choose its options
    def test_y(player): ...
    def test_z(make_player):                        # several, or options
        p = make_player(hwvars={"VL_HWFLAGS": "0"})  # chosen in the test

Every player a test made is closed after it, and the test fails if any
process of it is still alive then.
"""

import os

import pytest

from .sandbox import Player, linkrig_path


def assert_no_leftovers(players):
    """Fails when a process of any of these (closed) players still lives."""
    stray = [pid for p in players for pid in p.leftovers()]
    assert not stray, f"processes left behind by players: {stray}"


@pytest.fixture
def make_player():
    players = []

    def make(**options):
        player = Player(**options)
        players.append(player)
        return player.start()

    try:
        yield make
    finally:
        for player in players:
            player.close()
    assert_no_leftovers(players)


@pytest.fixture
def player(request, make_player):
    marker = request.node.get_closest_marker("player")
    return make_player(**(marker.kwargs if marker else {}))


@pytest.fixture(scope="session")
def linkrig_binary():
    path = linkrig_path()
    if not os.access(path, os.X_OK):
        pytest.skip(f"linkrig is not built ({path}); set LINKRIG_BUILD_DIR")
    return path


def pytest_configure(config):
    config.addinivalue_line("markers", "player(**options): options of the player fixture")
