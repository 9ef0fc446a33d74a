#!/usr/bin/python3
"""The cost of one linkrig run, action by action, in a simulated player.

    /usr/bin/python3 tools/bench/bench.py --build-dir build/bench [--armhf-build DIR]

scripts/bench.sh builds and runs this. For each scenario a fresh player is
set up and linkrig runs once under valgrind's callgrind (instructions: exact
and repeatable; the dynamic loader and the library constructors count, the
programs linkrig starts do not) and --runs times under /usr/bin/time (peak
RSS, the median). Programs that would do lasting work (dhcpcd, udhcpd, tc,
iptables, pppd) are shell stand-ins: a child that linkrig waits for counts
in its peak RSS, and a shell stays below linkrig. With --armhf-build the
armhf linkrig runs once more under qemu-arm, one instruction per translation
block and each block's execution logged: the number of log lines is its
instruction count (the emulator's own memory says nothing about linkrig's).
Needs root; leaves nothing behind.
"""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests" / "support")]

from player import Player  # noqa: E402
from supplicant_double import SupplicantDouble  # noqa: E402

WORK = "/run/player/bench"
HWVARS = {"VL_HWFLAGS": "0x10", "VL_FORMAT": "1", "VL_SERIAL": "B3NCH01",
          "VL_OEM_ID": "Velmora", "VL_OEM_MODEL": "Bench"}
HOST = {"hn": "player", "forwarding": "2"}
WIRED = {".omba": dict(HOST, ir="f4240")}  # eth0: DHCP client, inbound policing
DIALUP = {".omba": HOST, ".omba2": {"dn": "0,555*1#", "du": "me", "dp": "pw"}}
SSID = "Bench Air"
PASSPHRASE = "bench-Pass 42"
STAND_INS = ("/sbin/dhcpcd", "/sbin/udhcpd", "/usr/sbin/tc", "/sbin/iptables")
IP_CHECK = ["ip", "-br", "link", "show", "dev", "eth0"]


class Scenario:
    """One linkrig action in a player set up for it. setup(player) prepares
    the player and returns what check(player, result, ready) needs; check
    raises when the run did not do what the scenario stands for."""

    def __init__(self, name, args, setup, check, ports=("eth0",), reference=None):
        self.name, self.args, self.setup, self.check = name, args, setup, check
        self.ports, self.reference = ports, reference


def stand_ins(player):
    return {Path(path).name: player.replace_program(path, light=True) for path in STAND_INS}


def wired(player):
    player.start_registry(WIRED)
    return stand_ins(player)


def stopped_after_start(player):
    ready = wired(player)
    expect(player.linkrig("eth0", "start"), 0)
    return ready


def wireless(player, passphrase):
    player.start_registry({".omba": HOST, ".omba1": {"wi": SSID, "wp": passphrase}})
    ready = stand_ins(player)
    ready["double"] = SupplicantDouble(player, interfaces=("wlan0",))
    return ready


def host(player):
    player.start_registry(WIRED)
    player.run(["ip", "addr", "add", "192.168.5.2/24", "dev", "eth0"], check=True)
    player.run(["ip", "route", "add", "default", "via", "192.168.5.1"], check=True)
    return stand_ins(player)


def dialup(player):
    player.makedirs("/var/volatile/etc")
    player.start_registry(DIALUP)
    player.start_modem()
    return {"pppd": player.replace_program("/usr/sbin/pppd", light=True)}


def expect(result, status, *texts):
    if result.returncode != status or any(t not in result.stderr for t in texts):
        raise RuntimeError(f"unexpected run of {result.args[-2:]} (exit {result.returncode}):\n"
                           + result.stderr)
    if "Failed" in result.stderr or "EXCEPTION" in result.stderr:
        raise RuntimeError(f"a step failed:\n{result.stderr}")


def called(ready, *names):
    for name in names:
        if not ready[name].calls():
            raise RuntimeError(f"{name} was not run")


def check_wireless(player, result, ready):
    expect(result, 0)
    called(ready, "dhcpcd")
    if not ready["double"].calls("AddNetwork"):
        raise RuntimeError("no network was added to the supplicant")


def scenarios(passphrase):
    return [
        Scenario("eth0 checklink", ["eth0", "checklink"], lambda p: None,
                 lambda p, r, _: expect(r, 0), reference=IP_CHECK),
        Scenario("eth0 start", ["eth0", "start"], wired,
                 lambda p, r, ready: (expect(r, 0, "Adding inbound bandwidth shaping"),
                                      called(ready, "dhcpcd", "tc"))),
        Scenario("eth0 stop", ["eth0", "stop"], stopped_after_start,
                 lambda p, r, ready: (expect(r, 0, "Removing bandwidth shaper"),
                                      called(ready, "tc"))),
        Scenario("wlan0 start", ["wlan0", "start"], lambda p: wireless(p, passphrase),
                 check_wireless, ports=("eth0", "wlan0")),
        Scenario("host start", ["host", "start"], host,
                 lambda p, r, ready: (expect(r, 0, "Configuring it for NAT"),
                                      called(ready, "iptables"))),
        Scenario("ppp0 start", ["ppp0", "start"], dialup,
                 lambda p, r, ready: expect(r, 0)),
    ]


def callgrind(argv):
    """argv under callgrind, writing one log and one profile per process
    (forks before exec have their own) to WORK."""
    return ["valgrind", "--tool=callgrind", "--trace-children=no",
            f"--callgrind-out-file={WORK}/profile.%p", f"--log-file={WORK}/callgrind.%p"] + argv


def collected(player, keep=None):
    """Instructions of the first process, from the callgrind logs in WORK
    (a fork that went on to run another program has no count); its profile
    is copied to the file keep."""
    logs = {}
    for name in player.listdir(WORK):
        if name.startswith("callgrind."):
            text = player.read_file(f"{WORK}/{name}")
            parent = re.search(r"Parent PID: (\d+)", text)
            count = re.search(r"Collected : (\d+)", text)
            logs[int(name.split(".")[1])] = (int(parent.group(1)),
                                             int(count.group(1)) if count else None)
            player.remove_file(f"{WORK}/{name}")
    first = [(pid, count) for pid, (parent, count) in logs.items() if parent not in logs]
    if len(first) != 1 or first[0][1] is None:
        raise RuntimeError(f"cannot tell the measured process from the callgrind logs: {logs}")
    if keep:
        Path(keep).write_bytes(player.read_file(f"{WORK}/profile.{first[0][0]}", binary=True))
    return first[0][1]


def timed(argv):
    return ["/usr/bin/time", "-f", "%M", "-o", f"{WORK}/time"] + argv


def peak_rss(player):
    return int(player.read_file(f"{WORK}/time").split()[-1]) * 1024


def emulated(sysroot, argv):
    """argv under qemu-arm with each executed instruction logged to a pipe
    whose lines are counted into WORK/count."""
    script = ('mkfifo "$0/trace" && { grep -c "^Trace" < "$0/trace" > "$0/count" & } && '
              'qemu-arm -L "$1" -singlestep -d exec,nochain -D "$0/trace" "$2" "$3" "$4"; '
              'rc=$?; wait; rm "$0/trace"; exit $rc')
    return ["sh", "-c", script, WORK, sysroot] + argv


def run_once(scenario, linkrig_argv, wrap, read, check=True):
    """Sets up a player for scenario, runs the wrapped linkrig_argv there,
    checks the run and returns read(player), with check=False
    (read(player), the failure or None)."""
    with Player(ports=scenario.ports, hwvars=HWVARS) as player:
        ready = scenario.setup(player)
        try:
            player.makedirs(WORK)
            result = player.run(wrap(linkrig_argv + scenario.args), timeout=600)
            if check:
                scenario.check(player, result, ready)
                return read(player)
            try:
                scenario.check(player, result, ready)
                failure = None
            except RuntimeError as e:
                failure = str(e)
            return read(player), failure
        finally:
            if ready and "double" in ready:
                ready["double"].__exit__(None, None, None)


def run_reference(argv, wrap, read, runs=1):
    with Player(ports=("eth0",), hwvars=HWVARS) as player:
        player.makedirs(WORK)
        values = []
        for _ in range(runs):
            player.run(wrap(argv), check=True)
            values.append(read(player))
        return values


def measure(args, passphrase):
    linkrig = [str(Path(args.build_dir) / "apps" / "linkrig" / "linkrig")]
    rows = []
    for scenario in scenarios(passphrase):
        if args.only and scenario.name not in args.only:
            continue
        keep = args.profiles and f"{args.profiles}/{scenario.name.replace(' ', '-')}.out"
        row = {"scenario": scenario.name,
               "instructions": run_once(scenario, linkrig, callgrind,
                                        lambda p: collected(p, keep)),
               "peak_rss": statistics.median(run_once(scenario, linkrig, timed, peak_rss)
                                             for _ in range(args.runs))}
        if args.armhf_build:
            arm = [str(Path(args.armhf_build) / "apps" / "linkrig" / "linkrig")]
            row["armhf_instructions"], failure = run_once(
                scenario, arm, lambda argv: emulated(args.sysroot, argv),
                lambda p: int(p.read_file(f"{WORK}/count")), check=False)
            if failure:
                # The emulator lacks a few requests (the ethtool link query).
                row["armhf_failure"] = failure
                print(f"  {scenario.name} (armhf, emulated): {failure}", file=sys.stderr)
        print(f"  {scenario.name}: {row['instructions'] / 1e6:.2f} M instructions", file=sys.stderr)
        rows.append(row)
        if scenario.reference:
            name = " ".join(scenario.reference)
            rows.append({"scenario": name, "reference_for": scenario.name,
                         "instructions": run_reference(scenario.reference, callgrind,
                                                       collected)[0],
                         "peak_rss": statistics.median(run_reference(
                             scenario.reference, timed, peak_rss, args.runs))})
    return rows


def stripped_size(binary, strip="strip"):
    out = "/tmp/linkrig-bench-stripped"
    subprocess.run([strip, "-o", out, binary], check=True)
    try:
        return os.path.getsize(out)
    finally:
        os.remove(out)


def obfuscated(build_dir, text):
    return subprocess.run([str(Path(build_dir) / "tests" / "obfuscate_passphrase"), "A", text],
                          check=True, capture_output=True, text=True).stdout.strip()


def table(rows, sizes):
    arm = any("armhf_instructions" in r for r in rows)
    head = "| scenario | instructions (M) | ratio to ip | peak RSS (MiB) |"
    rule = "| --- | ---: | ---: | ---: |"
    if arm:
        head += " armhf instructions (M) |"
        rule += " ---: |"
    lines = [head, rule]
    for r in rows:
        ratio = ""
        ref = next((x for x in rows if x.get("reference_for") == r["scenario"]), None)
        if ref:
            ratio = f"{r['instructions'] / ref['instructions']:.1f}"
        elif r.get("reference_for"):
            ratio = "1.0"
        line = (f"| {'`' + r['scenario'] + '`' if r.get('reference_for') else r['scenario']} "
                f"| {r['instructions'] / 1e6:.2f} | {ratio} | {r['peak_rss'] / 2**20:.1f} |")
        if arm:
            value = r.get("armhf_instructions")
            mark = "*" if r.get("armhf_failure") else ""
            line += f" {value / 1e6:.2f}{mark} |" if value else " |"
        lines.append(line)
    lines.append("")
    for r in rows:
        if r.get("armhf_failure"):
            last = r["armhf_failure"].strip().splitlines()[-1]
            lines += [f"\\* {r['scenario']} ended otherwise under qemu-arm: \"{last}\"", ""]
    lines.append("Stripped linkrig: " + ", ".join(f"{arch} {size / 1024:.0f} KiB ({size} bytes)"
                                                 for arch, size in sizes))
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", required=True, help="the x86-64 build (linkrig and tools)")
    parser.add_argument("--armhf-build", help="an armhf build to count under qemu-arm too")
    parser.add_argument("--sysroot", default=os.environ.get(
        "LINKRIG_ARMHF_SYSROOT", "/var/cache/linkrig/armhf-sysroot"))
    parser.add_argument("--runs", type=int, default=3, help="timed runs per scenario")
    parser.add_argument("--only", action="append", help="a scenario name (repeatable)")
    parser.add_argument("--json", help="also write the rows to this file")
    parser.add_argument("--profiles", help="keep each scenario's callgrind profile in this folder"
                        " (tools/bench/by_object.py reads them)")
    args = parser.parse_args()
    args.build_dir = os.path.abspath(args.build_dir)
    if args.profiles:
        os.makedirs(args.profiles, exist_ok=True)
    if args.armhf_build:
        args.armhf_build = os.path.abspath(args.armhf_build)
    if os.geteuid() != 0:
        sys.exit("bench: the simulated player needs root")
    os.environ["LINKRIG_BUILD_DIR"] = args.build_dir
    rows = measure(args, obfuscated(args.build_dir, PASSPHRASE))
    sizes = [("x86-64", stripped_size(f"{args.build_dir}/apps/linkrig/linkrig"))]
    if args.armhf_build:
        sizes.append(("armhf", stripped_size(f"{args.armhf_build}/apps/linkrig/linkrig",
                                             "arm-linux-gnueabihf-strip")))
    if args.json:
        Path(args.json).write_text(json.dumps({"rows": rows, "stripped": dict(sizes)}, indent=1)
                                   + "\n")
    print(table(rows, sizes))


if __name__ == "__main__":
    main()
