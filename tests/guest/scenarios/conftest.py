"""System tests that need kernel features this machine lacks (802.1Q VLANs,
PPP, the police action, WiFi radios): they run inside the QEMU guest that
tools/guest/run.sh boots, each in a simulated player as elsewhere."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[3]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from player.fixtures import linkrig_binary, make_player, player, pytest_configure  # noqa: E402,F401
from player.radios import Radios  # noqa: E402


def pytest_collection_modifyitems(config, items):
    if "linkrig.stage2=" in Path("/proc/cmdline").read_text():  # in the guest
        return
    skip = pytest.mark.skip(reason="needs the guest kernel: run through tools/guest/run.sh")
    here = Path(__file__).parent
    for item in items:
        if here in Path(item.fspath).parents:
            item.add_marker(skip)


@pytest.fixture
def wifi_player(make_player):
    """wlan0 a simulated radio, a second one "air0" on the lan (both in player.radios)."""
    with Radios(2) as radios:
        player = make_player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})
        radios.give(player, 0, "wlan0")
        radios.give(player.lan, 1, "air0")
        player.skip_address_probing()
        player.radios = radios
        yield player
        player.close()


@pytest.fixture
def no_probing(player):
    player.skip_address_probing()


def linkrig_ok(player, ifname, action, *bad):
    """A run that succeeds and prints none of the bad texts."""
    result = player.linkrig(ifname, action)
    assert result.returncode == 0 and not any(b in result.stderr for b in bad), result.stderr
    return result


def serve(player, peer, subnet):
    """busybox udhcpd on the lan's peer, leasing subnet.100 to subnet.149."""
    base = "/run/player/" + peer.replace(".", "-")
    player.write_file(base + ".conf", f"interface {peer}\nstart {subnet}.100\nend {subnet}.149\n"
                                      f"pidfile {base}.pid\nlease_file {base}.leases\n"
                                      "option subnet 255.255.255.0\n")
    player.lan.start_daemon(peer, ["busybox", "udhcpd", "-f", base + ".conf"])
