import os
import sys
from pathlib import Path

import dbus
import dbus.bus
import pytest

# The simulated player lives in tools/.
ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))

from player.fixtures import assert_no_leftovers, make_player, player, pytest_configure  # noqa: E402,F401
from player.sandbox import PYTHON, Player  # noqa: E402

PROBE = Path(os.environ.get("LINKRIG_BUILD_DIR", ROOT / "build")) / "tests" / "registry_probe"
NAME, OBJECT = "com.ombalabs.Registry", "/com/ombalabs/Registry"


def probe(p, *args, env=None):
    """Runs registry_probe in the player; returns (status, standard output)."""
    result = p.run([str(PROBE), *args], env=env)
    assert "Sanitizer" not in result.stderr and "runtime error" not in result.stderr, result.stderr
    return result.returncode, result.stdout


@pytest.fixture(scope="module")
def mock_world():
    """dbusmock as the registry on a player's bus: its Mock interface, with .player."""
    with Player() as p:
        bus = dbus.bus.BusConnection(
            f"unix:path=/proc/{p._require_pid()}/root/run/dbus/system_bus_socket")
        p.start_daemon("registry-mock", [PYTHON, "-m", "dbusmock", "--system", NAME, OBJECT, NAME],
                       ready=lambda _: bus.name_has_owner(NAME))
        mock = dbus.Interface(bus.get_object(NAME, OBJECT), "org.freedesktop.DBus.Mock")
        mock.player = p
        yield mock
        bus.close()
    assert_no_leftovers([p])


@pytest.fixture
def mock(mock_world):
    """The registry double with no methods and an empty call log."""
    mock_world.Reset()
    mock_world.ClearCalls()
    return mock_world
