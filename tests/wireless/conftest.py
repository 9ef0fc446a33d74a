import os
import sys
from pathlib import Path

import pytest

# The simulated player lives in tools/, the test doubles in tests/support.
ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401

PROBE = Path(os.environ.get("LINKRIG_BUILD_DIR", ROOT / "build")) / "tests" / "supplicant_probe"


@pytest.fixture(scope="session")
def probe():
    """Runs supplicant_probe in a player: probe(player, *args) is (status, stdout, stderr)."""
    if not os.access(PROBE, os.X_OK):
        pytest.skip(f"supplicant_probe is not built ({PROBE}); set LINKRIG_BUILD_DIR")

    def run(p, *args):
        r = p.run([str(PROBE), *args])
        assert "Sanitizer" not in r.stderr and "runtime error" not in r.stderr, r.stderr
        return r.returncode, r.stdout, r.stderr
    return run
