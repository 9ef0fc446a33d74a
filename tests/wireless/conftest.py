import os
import sys
from pathlib import Path

import pytest

# The harness package lives beside this directory (tests/player).
sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401

BUILD = Path(os.environ.get("LINKRIG_BUILD_DIR", "/work/main/build"))
PROBE = BUILD / "tests" / "supplicant_probe"


@pytest.fixture(scope="session")
def supplicant_probe():
    if not os.access(PROBE, os.X_OK):
        pytest.skip(f"supplicant_probe is not built ({PROBE}); set LINKRIG_BUILD_DIR")
    return str(PROBE)
