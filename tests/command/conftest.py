import sys
from pathlib import Path

# The harness package lives beside this directory (tests/player).
sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401
