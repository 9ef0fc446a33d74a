import sys
from pathlib import Path

# The simulated player lives in tools/, the test doubles in tests/support.
ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401


def stderr_without_time(result):
    """Standard error without the line of the network time query of every "host start"."""
    return "".join(line for line in result.stderr.splitlines(keepends=True)
                   if not line.startswith("linkrig: No network time: "))


def echo(ifname, action):
    """The first line of every run's standard error."""
    return f"linkrig: {ifname} {action}\n"


def ip_forward(player):
    # Read from inside: /proc/sys/net shows the reader's network namespace.
    return player.run(["cat", "/proc/sys/net/ipv4/ip_forward"], check=True).stdout.strip()

