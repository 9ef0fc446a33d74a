import os
import sys
from pathlib import Path

import pytest

# The simulated player lives in tools/, the test doubles in tests/support.
ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401

BUILD = Path(os.environ.get("LINKRIG_BUILD_DIR", "/work/main/build"))
PROBE = BUILD / "tests" / "supplicant_probe"


@pytest.fixture(scope="session")
def supplicant_probe():
    if not os.access(PROBE, os.X_OK):
        pytest.skip(f"supplicant_probe is not built ({PROBE}); set LINKRIG_BUILD_DIR")
    return str(PROBE)
