"""Inbound policing of eth0 on a kernel with the police action: the real tc
installs it, and a burst of UDP from the far end shows what it lets through."""

import re
import subprocess

import pytest

from player import wait_for
from player.sandbox import PYTHON

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"})]

ADDRESS = "192.168.60.1"
STATIC = {"ip": "c0a83c01", "nm": "ffffff00"}  # ADDRESS/24
# What dhcpcd applies (the same address given by hand has no noprefixroute).
APPLIED = f"inet {ADDRESS}/24 brd 192.168.60.255 scope global noprefixroute eth0"
PORT = 5001
DATAGRAMS, SIZE = 400, 1000
PACKET = SIZE + 28  # what the policer counts: IP and UDP headers too
FLOOD = "/run/player/flood"
INGRESS = "qdisc ingress ffff: parent ffff:fff1 ---------------- "
FILTERS = ["filter parent ffff: protocol ip pref 50 u32 chain 0",
           "filter parent ffff: protocol ip pref 50 u32 chain 0 fh 800: ht divisor 1",
           "filter parent ffff: protocol ip pref 50 u32 chain 0 fh 800::800 order 2048 key ht 800 "
           "bkt 0 *flowid :1 not_in_hw"]
# One line on standard input: prints "datagrams bytes" received so far.
RECEIVER = """
import socket, sys
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.setsockopt(socket.SOL_SOCKET, 33, 1 << 24)  # SO_RCVBUFFORCE: room for the whole flood
s.bind(("", int(sys.argv[1])))
s.setblocking(False)
print("ready", flush=True)
count = size = 0
for _ in sys.stdin:
    try:
        while True:
            size += len(s.recv(65536))
            count += 1
    except BlockingIOError:
        pass
    print(count, size, flush=True)
"""


@pytest.fixture
def player(player):
    player.skip_address_probing()
    return player


def linkrig(player, action):
    result = player.linkrig("eth0", action)
    assert result.returncode == 0, result.stderr
    assert "ConfigureShaper failed" not in result.stderr, result.stderr
    return result


def ingress_qdiscs(player):
    shown = player.run(["tc", "qdisc", "show", "dev", "eth0"], check=True).stdout
    return [line for line in shown.splitlines() if "ingress" in line]


def police(player):
    """The filter lines, the police action's line and the packets it has
    dropped so far (hit counts and the action's index left out)."""
    shown = player.run(["tc", "-s", "filter", "show", "dev", "eth0", "ingress"]).stdout
    lines = [re.sub(r"^police 0x[0-9a-f]+ | \(rule hit \d+ success \d+\)$", "", line.strip())
             for line in shown.splitlines() if line.strip().startswith(("filter", "police"))]
    dropped = re.findall(r"^ Sent \d+ bytes \d+ pkts \(dropped (\d+), ", shown, re.M)
    return lines, int(dropped[0]) if dropped else 0


class Receiver:
    """A UDP socket on the player, drained on request."""

    def __init__(self, player):
        self.proc = player.spawn([PYTHON, "-c", RECEIVER, str(PORT)], stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, text=True)

    def wait_ready(self):
        assert self.proc.stdout.readline() == "ready\n"

    def received(self):
        self.proc.stdin.write("\n")
        self.proc.stdin.flush()
        count, size = self.proc.stdout.readline().split()
        return int(count), int(size)

    def close(self):
        self.proc.stdin.close()
        self.proc.wait(10)


def flood(player, receiver):
    """Sends DATAGRAMS datagrams of SIZE bytes from the far end as fast as
    socat can; returns the bytes received and the datagrams the policer
    dropped, once each datagram is one or the other."""
    count0, size0 = receiver.received()
    dropped0 = police(player)[1]
    player.lan.run(["socat", "-u", "-b", SIZE, f"OPEN:{FLOOD}", f"UDP-SENDTO:{ADDRESS}:{PORT}"],
                   check=True)

    def accounted():
        count, size = receiver.received()
        dropped = police(player)[1]
        done = count - count0 + dropped - dropped0 >= DATAGRAMS
        return done and (count - count0, size - size0, dropped - dropped0)
    try:
        count, size, dropped = wait_for(accounted, timeout=20, what="every datagram counted")
    except TimeoutError:
        raise AssertionError(f"received {receiver.received()} of {DATAGRAMS} datagrams, "
                             f"policer dropped {police(player)[1]}")
    assert count + dropped == DATAGRAMS
    return size, dropped


def dhcpcd(player):
    return set(player.run(["pgrep", "-x", "dhcpcd"]).stdout.split())


def wait_applied(player, old_client=frozenset()):
    # A client being replaced takes the address away on its way out.
    def applied():
        client = dhcpcd(player)
        shown = player.run(["ip", "-4", "addr", "show", "eth0"], check=True).stdout
        return client and not client & old_client and APPLIED in shown
    wait_for(applied, timeout=20, what="dhcpcd to apply the address")


def test_traffic_beyond_the_rate_and_burst_is_dropped(player):
    receiver = Receiver(player)  # starts while the registry service does
    try:
        player.start_registry({".omba": dict(STATIC, hn="player", ir="f4240")})
        player.write_file(FLOOD, bytes(DATAGRAMS * SIZE))
        # By hand at first, for a flood without policing.
        player.run(["ip", "addr", "add", f"{ADDRESS}/24", "dev", "eth0"], check=True)
        mac = player.read_file("/sys/class/net/eth0/address").strip()
        # The kernel holds only a few datagrams while it resolves an address.
        player.lan.run(["ip", "-batch", "-"], check=True, input=f"""\
addr add 192.168.60.2/24 dev peer-eth0
neigh replace {ADDRESS} lladdr {mac} dev peer-eth0 nud permanent
""")
        receiver.wait_ready()
        assert flood(player, receiver) == (DATAGRAMS * SIZE, 0)

        linkrig(player, "start")
        assert ingress_qdiscs(player) == [INGRESS]
        assert police(player) == (FILTERS + ["rate 1Mbit burst 1000000b mtu 2Kb action drop "
                                             "overhead 0b"], 0)
        wait_applied(player)
        # The burst is in bytes: a bucket of 1,000,000 takes all 411,200 of the flood.
        assert flood(player, receiver) == (DATAGRAMS * SIZE, 0)

        client = dhcpcd(player)
        player.set_setting(".omba", "ir", "186a0")
        linkrig(player, "reconfigure")
        assert ingress_qdiscs(player) == [INGRESS]
        assert police(player) == (FILTERS + ["rate 100Kbit burst 100000b mtu 2Kb action drop "
                                             "overhead 0b"], 0)
        wait_applied(player, client)
        size, dropped = flood(player, receiver)
        # The bucket's worth gets through, and what refills it meanwhile.
        assert 100000 // PACKET * SIZE <= size < DATAGRAMS * SIZE // 2, (size, dropped)

        linkrig(player, "stop")
        assert ingress_qdiscs(player) == []
        assert police(player) == ([], 0)
    finally:
        receiver.close()
