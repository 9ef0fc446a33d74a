"""Test harness: a simulated player in Linux namespaces (see sandbox.py)."""

from .sandbox import Daemon, Lan, Player, PlayerError, linkrig_path, wait_for

__all__ = ["Daemon", "Lan", "Player", "PlayerError", "linkrig_path", "wait_for"]
