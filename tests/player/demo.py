#!/usr/bin/python3
"""Shows linkrig at work in a simulated player, step by step.

    sudo /usr/bin/python3 tests/player/demo.py [--build-dir DIR]

Builds nothing: it runs DIR/apps/linkrig/linkrig (default: $LINKRIG_BUILD_DIR,
else /work/main/build).  Needs root (namespaces); leaves nothing behind.
"""

import argparse
import os
import shlex
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from player import Player, linkrig_path  # noqa: E402


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


def scene_no_ethernet():
    heading("A player whose hardware has no Ethernet (VL_HWFLAGS=0)")
    with Player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0"}) as player:
        show_links(player)
        linkrig(player, "eth0", "checklink")
        linkrig(player, "eth0", "start")


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
    scene_no_ethernet()
    print("\nAll players closed; nothing of them is left running.")


if __name__ == "__main__":
    main()
