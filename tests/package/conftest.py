import sys
from pathlib import Path

# The simulated player lives in tools/.
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401
