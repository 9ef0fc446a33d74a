"""Simulated WiFi radios for players: mac80211_hwsim of a kernel that has it
(the QEMU guest of tools/guest).

    with Radios(2) as radios:                       # the module freshly loaded
        radios.give(player, 0, "wlan0")              # radio 0: the player's wlan0
        radios.give(player.lan, 1, "air0")           # radio 1: air0 on the lan
        ...
    # the module unloaded again

Every radio hears every other one, wherever it is.  A radio moves between
network namespaces as a whole (its wiphy with its interface) and can only be
moved from the namespace it is in, so it is handed out once, straight from
the initial namespace.  The radios carry a custom world regulatory domain in
which no channel needs passive scanning, and scan by themselves: a full scan
takes about one and a half seconds in the guest instead of four.
"""

import os
import subprocess
from pathlib import Path

from . import init as _init
from .sandbox import Lan, wait_for

MODULE = "mac80211_hwsim"
DEVICES = Path("/sys/devices/virtual") / MODULE
# The module's regulatory test mode "custom world": each radio gets a domain
# of its own with 2.4 GHz channels 1-11 and 14 and some 5 GHz ones, none of
# them passive; the kernel's world domain stays as it is.
REGTEST_CUSTOM_WORLD = 5
# More than one channel context makes the module scan by itself, spending
# 30 ms on a channel where mac80211's own scan spends about twice that.
CHANNELS = 2
LOAD_TIMEOUT = 10.0


class RadioError(RuntimeError):
    pass


def _run(argv):
    result = subprocess.run(argv, capture_output=True, text=True)
    if result.returncode != 0:
        raise RadioError(f"{' '.join(argv)} failed ({result.returncode}): {result.stderr.strip()}")
    return result.stdout


class Radio:
    """One simulated radio: its wiphy name ("phy3"), the name of its
    interface where it now is, and that interface's MAC address."""

    def __init__(self, index, phy, ifname, address):
        self.index, self.phy, self.ifname, self.address = index, phy, ifname, address
        self.side = None

    def __repr__(self):
        return f"Radio({self.index}, {self.phy!r}, {self.ifname!r})"


def _radios_in_sysfs():
    """The radios of the loaded module in the initial namespace, in order:
    [(index, phy, interface, MAC address)]."""
    found = []
    for device in DEVICES.glob("hwsim*"):
        try:
            (phy,) = os.listdir(device / "ieee80211")
            (ifname,) = os.listdir(device / "net")
            address = (device / "net" / ifname / "address").read_text().strip()
        except (OSError, ValueError):
            return None
        found.append((int(device.name[len("hwsim"):]), phy, ifname, address))
    return sorted(found)


def unload():
    """Removes the module (and with it every radio, wherever it is)."""
    _run(["modprobe", "-r", MODULE])
    wait_for(lambda: not Path("/sys/module", MODULE).exists(), timeout=LOAD_TIMEOUT,
             what=f"{MODULE} to go")


class Radios:
    """count fresh radios: the module is reloaded so that nothing of an
    earlier user (interface types, channels, keys) is left on them."""

    def __init__(self, count=2):
        self.count = count
        self.radios = []

    def __enter__(self):
        return self.load()

    def __exit__(self, *exc):
        unload()
        return False

    def __getitem__(self, index):
        return self.radios[index]

    def load(self):
        unload()
        _run(["modprobe", MODULE, f"radios={self.count}", "support_p2p_device=0",
              f"regtest={REGTEST_CUSTOM_WORLD}", f"channels={CHANNELS}"])
        found = wait_for(lambda: (lambda r: r if r and len(r) == self.count else None)(
            _radios_in_sysfs()), timeout=LOAD_TIMEOUT, what=f"{self.count} radios")
        if [entry[0] for entry in found] != list(range(self.count)):
            raise RadioError(f"unexpected radios: {found}")
        self.radios = [Radio(*entry) for entry in found]
        return self

    def give(self, side, index, name):
        """Moves radio `index` into a player (side = the Player) or onto its
        lan (side = player.lan) and names its interface `name` there (it is
        left down).  Returns the Radio."""
        radio = self.radios[index]
        if radio.side is not None:
            raise RadioError(f"radio {index} was already given away")
        player = side.player
        pid = player._require_pid()
        if isinstance(side, Lan):
            # The lan's name exists only in the player's mount namespace.
            target = ["name", f"/proc/{pid}/root/run/netns/{_init.LAN_NETNS}"]
            sysfs = f"{_init.LAN_SYSFS}/class/net"
        else:
            target = [str(pid)]
            sysfs = "/sys/class/net"
        # Named while still here, the interface keeps its name when it moves
        # (unless the name is taken there).
        name_here = radio.ifname == name or not Path("/sys/class/net", name).exists()
        if name_here and radio.ifname != name:
            _run(["ip", "link", "set", radio.ifname, "name", name])
            radio.ifname = name
        _run(["iw", "phy", radio.phy, "set", "netns"] + target)
        radio.side = side
        if not name_here:
            side.run(["ip", "link", "set", radio.ifname, "name", name], check=True)
            radio.ifname = name
        if not player.exists(f"{sysfs}/{name}"):
            raise RadioError(f"{radio.phy} moved, but {name} is not there (name taken?)")
        return radio


__all__ = ["Radios", "Radio", "RadioError", "unload", "MODULE"]
