"""System tests that need kernel features this machine lacks (802.1Q VLANs,
PPP, the police action, WiFi radios): they run inside the QEMU guest that
tools/guest/run.sh boots, each in a simulated player as elsewhere."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[3]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401


def in_guest():
    with open("/proc/cmdline") as f:
        return "linkrig.stage2=" in f.read()


def pytest_collection_modifyitems(config, items):
    if in_guest():
        return
    skip = pytest.mark.skip(reason="needs the guest kernel: run through tools/guest/run.sh")
    for item in items:
        item.add_marker(skip)
