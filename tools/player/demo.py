#!/usr/bin/python3
"""Shows linkrig at work in a simulated player, step by step.

    sudo /usr/bin/python3 tools/player/demo.py [--build-dir DIR]

Builds nothing: it runs DIR/apps/linkrig/linkrig (default: $LINKRIG_BUILD_DIR,
else /work/main/build).  Needs root (namespaces); leaves nothing behind.
"""

import argparse
import base64
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from player import Player, linkrig_path, wait_for  # noqa: E402

SAMPLE_SETTINGS = {
    ".omba": {"hn": "velmora-demo", "forwarding": "2", "mtu": "578", "ci": "demo-client"},
    "networking": {},
}
LAN_DHCP = ("interface peer-eth0\nstart 192.168.50.100\nend 192.168.50.150\n"
            "pidfile /run/player/lan-udhcpd.pid\nlease_file /run/player/lan.leases\n"
            "option subnet 255.255.255.0\noption router 192.168.50.1\noption dns 192.168.50.1\n")


def heading(text):
    print(f"\n== {text}")


def show_command(player, argv, result):
    print(f"$ {shlex.join(argv)}")
    for name, text in (("stdout", result.stdout), ("stderr", result.stderr)):
        for line in text.splitlines():
            print(f"  {name}| {line}")
    print(f"  exit status {result.returncode}")


def linkrig(player, *args):
    result = player.linkrig(*args)
    show_command(player, ["linkrig"] + list(args), result)
    return result


def plan(player, *args):
    """linkrig-plan, the same run only printed."""
    program = os.path.join(os.path.dirname(linkrig_path()), "linkrig-plan")
    result = player.run(player.clock_guard() + [program] + list(args))
    show_command(player, ["linkrig-plan"] + list(args), result)
    return result


def show_links(player):
    for port in player.ports:
        mine, far = player.link_state(port), player.lan.link_state(port)
        print(f"  {port:6} {'up' if mine['up'] else 'down':4} carrier={int(mine['carrier'])}"
              f" operstate={mine['operstate']:6}   far end {player.lan.peer(port)}:"
              f" {'up' if far['up'] else 'down'}")


def show_leds(player):
    for name in player.leds:
        state = player.led(name)
        print(f"  LED {name:8} " + " ".join(f"{k}={v}" for k, v in sorted(state.items())))


def scene_link_check():
    heading("A player with Ethernet (VL_HWFLAGS=0x10) and a WiFi port, both cables in")
    started = time.monotonic()
    with Player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"}) as player:
        print(f"  (player ready in {time.monotonic() - started:.2f} s)")
        show_links(player)
        show_leds(player)
        linkrig(player, "eth0", "checklink")
        linkrig(player, "host", "checklink")

        heading("The eth0 cable is pulled (far end down)")
        player.set_peer_link("eth0", up=False)
        show_links(player)
        linkrig(player, "eth0", "checklink")
        linkrig(player, "host", "checklink")

        heading("The wlan0 cable is pulled too: no port has link")
        player.set_peer_link("wlan0", up=False)
        show_links(player)
        linkrig(player, "host", "checklink")

        heading("Actions that do nothing, and wrong calls")
        linkrig(player, "wlan0", "init")
        linkrig(player, "eth1", "remove")
        linkrig(player, "eth0", "restart")
        linkrig(player, "a/b", "checklink")
        linkrig(player)
        show_leds(player)
        kmsg = player.kmsg()
        if kmsg:
            print("  /dev/kmsg:\n" + "".join(f"    {line}" for line in kmsg.splitlines(True)))


def show(player, title, argv):
    print(f"  {title}:")
    for line in player.run(argv).stdout.strip().splitlines() or ["(none)"]:
        print(f"    {line}")


def show_state(player):
    show(player, "eth0 addresses", ["ip", "-4", "-br", "addr", "show", "eth0"])
    show(player, "routes", ["ip", "-4", "route"])
    show(player, "DHCP daemons", ["sh", "-c", "pgrep -o -a -x dhcpcd; pgrep -o -a -x udhcpd"])
    show(player, "NAT rules", ["sh", "-c", "iptables-save -t nat | grep -- '^-A' || true"])
    # Read from inside: the forwarding switch belongs to the player's network namespace.
    forwarding = player.run(["cat", "/proc/sys/net/ipv4/ip_forward"]).stdout.strip()
    print(f"  ip_forward: {forwarding}"
          f"   host name: {player.hostname()}")
    show_leds(player)


def scene_wired_cycle():
    heading("A wired start: the real dhcpcd gets a lease from a DHCP server on the far end")
    hwvars = {"VL_HWFLAGS": "0x10", "VL_FORMAT": "1", "VL_SERIAL": "D3M0042",
              "VL_OEM_ID": "Velmora", "VL_OEM_MODEL": "Demo"}
    with Player(ports=("eth0",), hwvars=hwvars) as player:
        player.start_registry(SAMPLE_SETTINGS)
        print("  stored settings (development registry on the player's system bus):")
        print("    " + json.dumps(SAMPLE_SETTINGS))
        player.skip_address_probing()
        player.lan.run(["ip", "addr", "add", "192.168.50.1/24", "dev", "peer-eth0"], check=True)
        player.write_file("/run/player/lan-udhcpd.conf", LAN_DHCP)
        player.lan.start_daemon("lan-udhcpd", ["busybox", "udhcpd", "-f",
                                               "/run/player/lan-udhcpd.conf"])
        print("  far end: peer-eth0 192.168.50.1/24 serving 192.168.50.100-150")
        show_leds(player)

        print("  First what the start would do, printed by linkrig-plan, which changes nothing;")
        print("  then the start it predicts.")
        plan(player, "eth0", "start")
        linkrig(player, "eth0", "start")
        def leased():
            return "192.168.50.1" in player.run(["ip", "-4", "addr", "show", "eth0"]).stdout
        wait_for(leased, timeout=20, what="a lease on eth0")
        print("  (lease received)")
        show_state(player)

        heading("The lease's hot-plug event: update refreshes the LED and masquerades eth0")
        linkrig(player, "eth0", "update")
        show_state(player)

        heading("linkrig host start: host name, forwarding and NAT from the stored settings")
        linkrig(player, "host", "start")
        show_state(player)

        heading("linkrig eth0 stop: the client goes, forwarding and NAT are reset")
        linkrig(player, "eth0", "stop")
        wait_for(lambda: not player.run(["pgrep", "-x", "dhcpcd"]).stdout, timeout=10,
                 what="dhcpcd to end")
        show_state(player)


def scene_no_ethernet():
    heading("A player whose hardware has no Ethernet (VL_HWFLAGS=0)")
    with Player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0"}) as player:
        show_links(player)
        linkrig(player, "eth0", "checklink")
        linkrig(player, "eth0", "start")


DOT1X_PKI = """
    set -e
    openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 30 -subj /CN=demo-ca
    openssl req -newkey rsa:2048 -nodes -keyout server.key -out server.csr -subj /CN=authenticator
    openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out server.pem -days 30
    openssl req -newkey rsa:2048 -nodes -keyout client.key -out client.csr -subj /CN=player-7
    openssl x509 -req -in client.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out client.pem -days 30
"""
HOSTAPD_WIRED = """interface=peer-eth0
driver=wired
ieee8021x=1
eapol_version=2
eap_server=1
eap_user_file=/run/player/eap_users
ca_cert=/run/player/ca.pem
server_cert=/run/player/server.pem
private_key=/run/player/server.key
"""


def scene_dot1x():
    heading("Wired 802.1X: EAP-TLS against hostapd on the far end")
    top = Path(tempfile.mkdtemp(prefix="demo-dot1x-"))
    try:
        subprocess.run(["sh", "-c", DOT1X_PKI], cwd=top, check=True, capture_output=True)
        pki = {f.name: f.read_bytes() for f in top.iterdir()}
    finally:
        shutil.rmtree(top)
    with Player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10"}) as player:
        for name in ("ca.pem", "server.pem", "server.key"):
            player.write_file(f"/run/player/{name}", pki[name], mode=0o600)
        player.write_file("/run/player/eap_users", '"player-7" TLS\n')
        player.write_file("/run/player/hostapd.conf", HOSTAPD_WIRED)
        player.lan.start_daemon("hostapd", ["hostapd", "/run/player/hostapd.conf"],
                                ready="interface state UNINITIALIZED->ENABLED")
        print("  far end: hostapd (driver wired, its own EAP server) on peer-eth0")
        supplicant = player.start_supplicant()
        print("  player: wpa_supplicant -u on the player's system bus")
        stored = {key: "[base64]" + base64.b64encode(pki[name]).decode()
                  for key, name in (("wa", "ca.pem"), ("wt", "client.pem"), ("wk", "client.key"))}
        player.start_registry({".omba": stored})
        print("  stored: CA certificate (wa), client certificate (wt), private key (wk)")
        linkrig(player, "eth0", "start")
        wait_for(lambda: player.supplicant_state("eth0") == "completed", timeout=20,
                 what="802.1X to complete on eth0")
        print(f"  supplicant state of eth0: {player.supplicant_state('eth0')}")
        for line in supplicant.log().splitlines():
            if "CTRL-EVENT-EAP" in line:
                print(f"    {line}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", help="build directory holding apps/linkrig/linkrig")
    args = parser.parse_args()
    if args.build_dir:
        os.environ["LINKRIG_BUILD_DIR"] = args.build_dir
    if not os.access(linkrig_path(), os.X_OK):
        sys.exit(f"no linkrig at {linkrig_path()}: build it first or pass --build-dir")
    if os.geteuid() != 0:
        sys.exit("the simulated player needs root")
    print(f"linkrig under test: {linkrig_path()}")
    scene_link_check()
    scene_wired_cycle()
    scene_no_ethernet()
    scene_dot1x()
    print("\nAll players closed; nothing of them is left running.")


if __name__ == "__main__":
    main()
