#!/usr/bin/python3
"""The boot of a whole player (tools/player/whole_player.py), against its floor, in the QEMU
guest:

    tools/guest/run.sh /usr/bin/python3 tools/bench/boot.py --packages DIR [--rounds N]

scripts/bench.sh --boot builds the package and runs this. Each round sets up two fresh
players with the same far end and daemons: one boots through the boot script with the
installed package (the real linkrig, the glue, the dhcpcd hook), the other starts the same
daemons by hand with the same settings, no linkrig at all (the floor). Each time runs from
the start until every port is configured. Prints the times and their ratio (medians).
"""

import argparse
import json
import statistics
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from pki import obfuscated  # noqa: E402
from player import Player  # noqa: E402
from player import whole_player as whole  # noqa: E402
from player.radios import Radios  # noqa: E402


VERBOSE = False


def one(kind, deb):
    with Radios(2) as radios:
        players = []

        def make(**options):
            players.append(Player(**options))
            return players[-1].start()
        try:
            player = whole.make(make, radios)
            if kind == "linkrig":
                whole.install(player, deb)
                whole.start_daemons(player, obfuscated(whole.PSK))
                result, took = whole.boot(player)
                if result.returncode != 0 or result.stderr:
                    raise RuntimeError(f"the boot script failed: {result.stderr}")
                if VERBOSE:
                    runs = whole.run_log(player)
                    first = min(r[0] for r in runs)
                    for start, end, status, args in runs:
                        print(f"  {start - first:6.2f} {end - first:6.2f} {status} {' '.join(args)}")
                    print(player.read_file(whole.ERRORS))
            else:
                whole.start_daemons(player, obfuscated(whole.PSK), supplicant=False)
                took = whole.floor(player)
            return took
        finally:
            for player in players:
                player.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--packages", required=True)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--json")
    parser.add_argument("--verbose", action="store_true", help="each boot's runs and errors")
    args = parser.parse_args()
    global VERBOSE
    VERBOSE = args.verbose
    deb = whole.package(args.packages)
    if deb is None:
        sys.exit(f"boot: no amd64 package in {args.packages}")
    times = {"linkrig": [], "floor": []}
    for _ in range(args.rounds):
        for kind in times:
            times[kind].append(one(kind, deb))
            print(f"boot: {kind} {times[kind][-1]:.2f} s", flush=True)
    boot, floor = (statistics.median(times[k]) for k in ("linkrig", "floor"))
    print(f"boot: median {boot:.2f} s with linkrig, floor {floor:.2f} s, "
          f"ratio {boot / floor:.2f} ({args.rounds} rounds)")
    if args.json:
        Path(args.json).write_text(json.dumps({"times": times, "ratio": boot / floor}))


if __name__ == "__main__":
    main()
