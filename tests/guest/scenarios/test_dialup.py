"""A real dial-up link: linkrig's pppd dials through chat to a simulated modem
whose far end answers with pppd on the lan, and ppp0 comes up between them."""

import json
import time

import pytest

from player import wait_for

pytestmark = pytest.mark.usefixtures("linkrig_binary")

FAR, NEAR = "10.64.64.1", "10.64.64.2"
PID_FILE = "/var/run/dialup.pid"


def ppp0(side):
    """ip's JSON record of ppp0 on that side, or None without one."""
    shown = side.run(["ip", "-j", "-d", "addr", "show", "dev", "ppp0"])
    return json.loads(shown.stdout)[0] if shown.returncode == 0 else None


def point_to_point(record):
    """(local, peer) IPv4 addresses of an interface record."""
    return [(a["local"], a.get("address")) for a in record["addr_info"] if a["family"] == "inet"]


def test_dialup_link_up_and_down(make_player):
    p = make_player(ports=("eth0",))
    p.makedirs("/var/volatile/etc")
    p.start_registry({".omba2": {"dn": "5551234", "du": "me", "dp": "secret"}})
    # Debian's /etc/ppp/options (modem, crtscts, lock) stands: a
    # pseudo-terminal neither waits for carrier nor minds flow control.
    modem = p.start_modem(ppp=f"{FAR}:{NEAR}")

    assert p.linkrig("ppp0", "start").returncode == 0
    near = wait_for(lambda: (lambda r: r if r and point_to_point(r) else None)(ppp0(p)),
                    timeout=30, interval=0.1, what="ppp0 to get an address")
    assert modem.transcript() == [{"command": "ATZ", "answer": "OK"},
                                  {"command": "ATDT5551234", "answer": "CONNECT"}]
    assert near["link_type"] == "ppp" and {"UP", "LOWER_UP"} <= set(near["flags"])
    assert point_to_point(near) == [(NEAR, FAR)]  # noipdefault: the far end chose it
    far = ppp0(p.lan)
    assert far and point_to_point(far) == [(FAR, NEAR)]
    assert p.run(["busybox", "ping", "-c", "1", "-W", "5", FAR]).returncode == 0
    dialler = int(p.read_file(PID_FILE))
    assert p.pids("pppd") == sorted([dialler, modem.simulator.pid])

    # The PPP driver answers neither the ethtool nor the wireless link query.
    check = p.linkrig("ppp0", "checklink")
    assert (check.returncode, check.stdout) == (0, "ppp0: Link is up\n")
    again = p.linkrig("ppp0", "init")
    assert (again.returncode, again.stderr) == (
        2, "linkrig: ppp0 init\nlinkrig: Interface already connected\n")
    assert int(p.read_file(PID_FILE)) == dialler

    started = time.monotonic()
    stop = p.linkrig("ppp0", "stop")
    took = time.monotonic() - started
    # pppd ended on SIGTERM, within the 5 s after which it would be killed.
    assert (stop.returncode, stop.stderr) == (0, "linkrig: ppp0 stop\n"), f"{took:.1f} s"
    assert not p.exists(PID_FILE) and ppp0(p) is None
    wait_for(lambda: not modem.simulator.running(), timeout=10, what="the far end's pppd to end")
    assert ppp0(p.lan) is None and p.pids("pppd") == []
    check = p.linkrig("ppp0", "checklink")
    assert (check.returncode, check.stdout) == (1, "ppp0: Link is down\n")
