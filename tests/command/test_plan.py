"""linkrig-plan beside the run it predicts: the plan must leave the player as it found it
and print no stored secret; the real run, against recording stand-ins (and a supplicant
double for wlan0), must run the programs and write the files the plan printed."""

import codecs
import contextlib
import os
import re
import shlex

import pytest
from conftest import stderr_without_time
from pki import PASSPHRASE, eap_tls_settings, obfuscated, pki  # noqa: F401
from supplicant_double import SupplicantDouble, plain

from player import linkrig_path, wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "eth1", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})]

# The programs as linkrig names them, and the files the stand-ins go over.
STAND_INS = {"/sbin/dhcpcd": "/sbin/dhcpcd", "/sbin/udhcpd": "/sbin/udhcpd",
             "tc": "/usr/sbin/tc", "/sbin/iptables": "/sbin/iptables", "/sbin/pppd": "/sbin/pppd"}
PSK, DIAL_PASSWORD = "air-Pass 42", "dial-Secret 7"
# The supplicant calls that change something.
CHANGES = {"AddNetwork", "RemoveNetwork", "RemoveAllNetworks", "SelectNetwork", "AddBlob",
           "RemoveBlob", "Scan", "CreateInterface", "Set"}
WIRED = {".net.eth1": {"ip": "c0a83c01", "nm": "ffffff00", "gw": "c0a83c02",
                       "dh": "c0a83c64:c0a83c6e", "dhgw": "c0a83c01", "ir": "f4240"}}
AP = {"wi": "Player AP", "wm": "1", "wf": "2412", "wp": obfuscated(PSK), "ip": "c0a84e01",
      "nm": "ffffff00", "dh": "c0a84e64:c0a84e6e"}
DIAL = {".omba2": {"dn": "0,555", "du": "me", "dp": DIAL_PASSWORD}}


def eap_tls(pki):
    settings = eap_tls_settings(pki)
    return {".omba1": dict(wi="Office", **settings)}, [PASSPHRASE, settings["wp"], settings["wk"]]


# name: (interface, action, settings and secrets, what the player needs first)
CASES = {
    "wired-static-start": ("eth1", "start", lambda pki: (WIRED, []), "eth1-address"),
    "wired-static-stop": ("eth1", "stop", lambda pki: (WIRED, []), "eth1-address"),
    "wired-dhcp-start": ("eth1", "start", lambda pki: ({}, []), None),
    "host-start": ("host", "start", lambda pki: ({".omba": {"forwarding": "2", "hn": "planned"}},
                                                 []), "default-route"),
    "dial-up-start": ("ppp0", "start", lambda pki: (DIAL, [DIAL_PASSWORD]), "modem"),
    "wpa-psk-start": ("wlan0", "start", lambda pki: (
        {".omba1": {"wi": "Home", "wp": obfuscated(PSK)}}, [PSK, obfuscated(PSK)]), "supplicant"),
    "access-point-start": ("wlan0", "start", lambda pki: ({".omba1": AP}, [PSK, obfuscated(PSK)]),
                           "supplicant"),
    "eap-tls-start": ("wlan0", "start", eap_tls, "supplicant"),
}


def runs(lines):
    """{program: [argument vector, ...]} of the programs started or run."""
    found = {}
    for line in lines:
        if line.startswith("run "):
            program, *args = shlex.split(line[4:])
        elif line.startswith("start ") and line.endswith(")"):
            program, *args = shlex.split(line[6:line.rindex(" (detached")])
        else:
            continue
        found.setdefault(program, []).append(args)
    return found


def written(lines):
    """{path: (mode, text)} of the files created, the last text of each."""
    matches = (re.fullmatch(r'write (\S+) \(mode (\d+)\) (".*")', line) for line in lines)
    # The quoting is C's: \n, \t, \", \\ and \xNN.
    return {m[1]: (m[2], codecs.decode(m[3][1:-1], "unicode_escape")) for m in matches if m}


def snapshot(player):
    """What a run could change; not the IPv6 link-local addresses the kernel adds when it
    will, nor /run/lock (reading the boot environment leaves its lock file there), nor /tmp
    and /var/cache, the host's, which any other process changes."""
    state = player.run(["sh", "-c", """
        for p in /proc/[0-9]*; do echo "process ${p#/proc/} $(cat $p/comm 2>/dev/null)"; done
        find /etc /var /run -path /run/player -prune -o -path /run/lock -prune \\
            -o -path /var/cache -prune \\
            -o -printf 'file %p %y %s %m %T@\\n'
        ip -d -o link show; ip -4 -o addr show; ip route show; iptables-save | grep -v '^#'
        hostname; cat /proc/sys/net/ipv4/ip_forward
        grep -H . /sys/class/leds/*/trigger
    """]).stdout.splitlines()
    transient = ("sh", "cat", "find", "ip", "iptables-save", "grep", "tc", "hostname", "nsenter",
                 "setpriv")
    return sorted(line for line in state
                  if not (line.startswith("process ") and line.split()[2] in transient))


def prepare(player, need, settings):
    player.start_registry(settings)
    player.skip_address_probing()
    if need == "eth1-address":  # already up with its address: the server starts at once
        player.run(["ip", "addr", "add", "192.168.60.1/24", "dev", "eth1"], check=True)
    elif need == "default-route":
        player.run(["ip", "addr", "add", "192.168.5.2/24", "dev", "eth0"], check=True)
        player.run(["ip", "route", "add", "default", "via", "192.168.5.1"], check=True)
    elif need == "modem":
        player.makedirs("/var/volatile/etc")
        player.start_modem()
    return {name: player.replace_program(path) for name, path in STAND_INS.items()}


@pytest.mark.parametrize("case", CASES)
def test_plan_then_the_run_it_predicts(player, pki, case):
    ifname, action, make, need = CASES[case]
    settings, secrets = make(pki)
    stand_ins = prepare(player, need, settings)
    with (SupplicantDouble(player, interfaces=("wlan0",)) if need == "supplicant"
          else contextlib.nullcontext()) as double:
        before = snapshot(player)
        plan = player.run(player.clock_guard() + [
            os.path.join(os.path.dirname(linkrig_path()), "linkrig-plan"), ifname, action])
        assert sorted(set(snapshot(player)) ^ set(before)) == []
        assert {p: s.calls() for p, s in stand_ins.items() if s.calls()} == {}
        assert not double or not set(double.members()) & CHANGES, double.members()
        assert [s for s in secrets if s in plan.stdout + plan.stderr] == []

        assert plan.stdout.startswith(f"# linkrig-plan {ifname} {action}\n")
        assert plan.stdout.endswith(f"# exit status {plan.returncode}\n")
        predicted = [line for line in plan.stdout.splitlines() if not line.startswith("#")]
        real = player.linkrig(ifname, action)
        assert real.returncode == plan.returncode
        assert stderr_without_time(plan) == stderr_without_time(real)

        programs = runs(predicted)
        assert set(programs) <= set(STAND_INS), programs
        for name, stand_in in stand_ins.items():
            # A detached program may record itself after the run has ended.
            wait_for(lambda: len(stand_in.calls()) >= len(programs.get(name, [])),
                     what=f"{name} to be run")
            assert programs.get(name, []) == stand_in.calls(), name
        for path, (mode, text) in written(predicted).items():
            real_text = player.read_file(path)
            for secret in secrets:
                real_text = real_text.replace(secret, "<redacted>")
            assert (mode, text) == (player.run(["stat", "-c", "%04a", path]).stdout.strip(),
                                    real_text), path
        if double:
            check_supplicant(predicted, double)


def rendered(value):
    """A property value as the plan prints it."""
    if isinstance(value, str):
        return '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'
    return "0x" + bytes(value).hex() if isinstance(value, (bytes, bytearray)) else str(value)


def check_supplicant(predicted, double):
    """The networks and blobs the plan named are the ones the run added."""
    planned = [line.split(": ", 1)[1] for line in predicted
               if line.startswith("supplicant wlan0: ")]
    added = ["add network {" + ", ".join(
        f"{key}=" + ("<redacted>" if key in ("psk", "private_key_passwd", "password")
                     else rendered(value)) for key, value in plain(call.args[0]).items()) + "}"
             for call in double.calls("AddNetwork")]
    assert sorted(line for line in planned if line.startswith("add network ")) == sorted(added)
    assert [line for line in planned if line.startswith("blob ")] == [
        f"blob {call.args[0]} ({len(plain(call.args[1]))} bytes)"
        for call in double.calls("AddBlob")]
