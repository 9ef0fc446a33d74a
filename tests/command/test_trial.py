"""Changed settings on trial against a management server (a TCP listener) on the far end:
confirmed, rolled back, left in place when the network is at fault, resumed across starts; the
record of each run and the known-good set."""

import json
import re
import signal

import pytest

from player import wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0",), hwvars={"VL_HWFLAGS": "0x10", "VL_SERIAL": "S1"})]

# 192.168.50.2/24 untagged, beside the server; this kernel has no VLAN 12 to give.
GOOD = {"ip": "c0a83202", "nm": "ffffff00", "vlans": "0,12"}
OTHER = {"ip": "c0a83203", "nm": "ffffff00"}  # 192.168.50.3/24, as good
WRONG = {"ip": "0a090902", "nm": "ffffff00"}  # 10.9.9.2/24, cut off from it
SECONDS = 5  # dhcpcd takes its time on a loaded machine, more so under the sanitizers
RECORD = "/run/linkrig/eth0.json"
KNOWN = "/var/lib/linkrig/eth0.json"
WATCHER = "/var/run/linkrig-eth0.confirm.pid"


@pytest.fixture
def player(player):
    player.skip_address_probing()
    player.lan.run(["ip", "addr", "add", "192.168.50.1/24", "dev", "peer-eth0"], check=True)
    server = player.lan.start_daemon(
        "server", ["socat", "TCP-LISTEN:7000,fork,reuseaddr", "SYSTEM:true"])
    player.start_registry({".omba": dict(GOOD), "networking": {
        "confirm_target": "192.168.50.1:7000", "confirm_seconds": str(SECONDS)}})
    yield player
    # No watcher outlives its test.
    wait_for(lambda: not player.pids("linkrig"), timeout=4 * SECONDS + 10, what="the watcher")
    server.stop()


def run(player, action, settings=None):
    for key, value in (settings or {}).items():
        player.set_setting(".omba", key, value)
    result = player.linkrig("eth0", action)
    assert result.returncode == 0, result.stderr
    return result


def record(player):
    return json.loads(player.read_file(RECORD))


def decided(player, timeout=2 * SECONDS + 15):
    """The trial's end as the record says it."""
    wait_for(lambda: record(player)["trial"]["state"] != "trying", timeout=timeout,
             what="the trial's end")
    wait_for(lambda: not player.pids("linkrig"), timeout=10, what="the watcher to end")
    return record(player)["trial"]["state"]


def has_address(player, address):
    return f"inet {address}/24 " in player.run(["ip", "-4", "addr", "show", "eth0"]).stdout


def reaches_server(player):
    return player.run(["socat", "-u", "OPEN:/dev/null", "TCP:192.168.50.1:7000,connect-timeout=2"]
                      ).returncode == 0


def confirmed_start(player):
    run(player, "start")
    assert decided(player) == "confirmed"


def test_right_change_confirmed_wrong_one_rolled_back(player):
    confirmed_start(player)
    got = record(player)
    assert re.match(r"Unable to configure VLAN 12 for eth0: ", got["outcomes"]["vlans"]["12"])
    got["outcomes"]["vlans"]["12"] = "failed"
    assert {k: v for k, v in got.items() if k not in ("fingerprint", "trial")} == {
        "interface": "eth0", "action": "start", "exit_status": 0, "outcomes": {
            "addressing": "ok", "join": "ok", "shaper": "ok", "vlans": {"12": "failed"}}}
    # Hashed, never kept: no stored value.
    assert not any(value in player.read_file(RECORD) for value in GOOD.values())
    good = json.loads(player.read_file(KNOWN))
    assert player.run(["stat", "-c", "%a", KNOWN]).stdout == "600\n"
    assert good["good"]["fingerprint"] == record(player)["fingerprint"] and "pending" not in good

    run(player, "reconfigure", WRONG)
    # Within the window and a few seconds: the known-good set reaches the server at once.
    assert decided(player, timeout=SECONDS + 8) == "rolled back"
    assert has_address(player, "192.168.50.2") and not has_address(player, "10.9.9.2")
    assert reaches_server(player)
    trial = record(player)["trial"]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", trial["decided"]), trial

    # The same stored settings again: the known-good set at once, and no trial.
    result = run(player, "reconfigure")
    assert "linkrig: eth0: the stored settings were rolled back before; applying the " \
        "known-good set\n" in result.stderr
    assert record(player)["trial"]["state"] == "rolled back" and not player.pids("linkrig")
    assert record(player)["fingerprint"] == good["good"]["fingerprint"]

    # A right change is confirmed and becomes the known-good set.
    run(player, "reconfigure", OTHER)
    assert decided(player) == "confirmed" and has_address(player, "192.168.50.3")
    assert json.loads(player.read_file(KNOWN))["good"]["fingerprint"] == \
        record(player)["fingerprint"]


def test_far_end_down_leaves_the_change_not_confirmed(player):
    confirmed_start(player)
    good = json.loads(player.read_file(KNOWN))["good"]
    player.set_peer_link("eth0", up=False)
    run(player, "reconfigure", OTHER)
    assert decided(player, timeout=2 * SECONDS + 30) == "not confirmed"
    known = json.loads(player.read_file(KNOWN))
    assert known["good"] == good and known["rejected"] == [] and "pending" not in known
    # The change stays, and holds once the cable is back.
    player.set_peer_link("eth0", up=True)
    wait_for(lambda: has_address(player, "192.168.50.3"), timeout=15, what="the changed address")
    assert not has_address(player, "192.168.50.2")


def test_trial_cut_short_then_two_starts_end_on_the_known_good_set(player):
    confirmed_start(player)
    run(player, "reconfigure", WRONG)
    # Killed as a power cut would; each start then finds the trial pending.
    player.run(["kill", "-KILL", player.read_file(WATCHER)], check=True)
    first = run(player, "start")
    assert record(player)["trial"]["state"] == "trying", first.stderr
    assert json.loads(player.read_file(KNOWN))["pending"]["boots"] == 1
    second = run(player, "start")
    assert "linkrig: eth0: not confirmed after 2 starts; applying the known-good set\n" \
        in second.stderr
    assert record(player)["trial"]["state"] == "rolled back" and not player.pids("linkrig")
    wait_for(lambda: has_address(player, "192.168.50.2"), timeout=15, what="the good address")
    assert reaches_server(player)


BAD = [("confirm_target", "192.168.50.1", 'confirm_target "192.168.50.1" is not HOST:PORT'),
       ("confirm_target", "[::1:7000", 'confirm_target "[::1:7000" is not HOST:PORT'),
       ("confirm_target", "server:70000", 'confirm_target "server:70000" is not HOST:PORT'),
       ("confirm_seconds", "soon",
        'confirm_seconds "soon" is not a number of seconds from 1 to 86400')]


def test_bad_terms_give_one_line_and_no_trial(player):
    for key, value, line in BAD:
        player.set_setting("networking", key, value)
        result = run(player, "reconfigure", OTHER if key == "confirm_seconds" else GOOD)
        assert result.stderr.count("no trial") == 1, result.stderr
        assert f"linkrig: {line}; no trial\n" in result.stderr
        assert record(player)["trial"] == {"state": "none"} and not player.pids("linkrig")
        assert not player.exists(KNOWN)
        player.set_setting("networking", key, {"confirm_target": "192.168.50.1:7000"}.get(key, ""))
    # A known-good file that does not parse is said and taken as absent; a stop ends the trial
    # without judgement.
    player.makedirs("/var/lib/linkrig")
    player.write_file(KNOWN, "{")
    result = run(player, "reconfigure", WRONG)
    assert re.search(r"^linkrig: /var/lib/linkrig/eth0\.json is corrupt \(.+\); taken as absent$",
                     result.stderr, re.M), result.stderr
    assert record(player)["trial"]["state"] == "trying"
    run(player, "stop")
    assert not player.pids("linkrig") and "pending" not in json.loads(player.read_file(KNOWN))
    assert record(player)["trial"] == {"state": "none"}
