"""The registry client (through registry_probe) in a player: against the development
service, and against a dbusmock double where faults are injected."""

import json
import subprocess
import threading
import time

import pytest

from conftest import probe
from player import wait_for

# name, arguments, in signature, out signature
OPERATIONS = [
    ("ReadAllJson", [], "", "s"),
    ("WriteJson", ["{}"], "s", ""),
    ("Read", ["networking", "eth0"], "ss", "s"),
    ("Write", ["networking", "eth0", "dhcp"], "sss", ""),
    ("KeyExists", ["networking", "eth0"], "ss", "b"),
    ("SectionExists", ["networking"], "s", "b"),
    ("DeleteKey", ["networking", "eth0"], "ss", ""),
    ("DeleteSection", ["networking"], "s", ""),
    ("DeleteAll", [], "", ""),
    ("SectionList", [], "", "as"),
    ("KeyList", ["networking"], "s", "a{ss}"),
    ("Flush", [], "", ""),
]

INVALID_NAME = "EXCEPTION InvalidName: Invalid name: InvalidName\n"
FULL = "EXCEPTION Full: Registry full\n"
INVALID_JSON = "EXCEPTION InvalidJson: Invalid JSON format:Invalid JSON\n"
INVALID_ARGS = "EXCEPTION DBus org.freedesktop.DBus.Error.InvalidArgs: "
ARRAY_EXPECTED = INVALID_ARGS + "array expected\n"
DICT_EXPECTED = INVALID_ARGS + "dictionary value expected\n"
TYPE_MISMATCH = INVALID_ARGS + "type mismatch\n"
INVALID_ENCODING = "EXCEPTION InvalidEncoding: Input data not valid UTF-8\n"

# Each step's expected output; a dict is the store, as ReadAllJson and the file show it.
ROUND_TRIP = [
    (["SectionExists", "networking"], "false\n"),
    (["Write", "networking", "eth0", "dhcp"], ""),
    (["Write", "networking", "ws", "Grüße ✓"], ""),
    (["Write", ".omba", "hn", "player-1"], ""),
    (["Read", "networking", "eth0"], "dhcp\n"),
    (["Read", "networking", "missing"], "\n"),
    (["KeyExists", "networking", "eth0"], "true\n"),
    (["KeyExists", "networking", "missing"], "false\n"),
    (["SectionExists", "networking"], "true\n"),
    (["SectionList"], ".omba\nnetworking\n"),
    (["KeyList", "networking"], "eth0=dhcp\nws=Grüße ✓\n"),
    (["WriteJson", '{"wlan0": {"wm": "1"}, ".omba": {"hn": "player-2"}}'], ""),
    (["ReadAllJson"], {".omba": {"hn": "player-2"}, "wlan0": {"wm": "1"},
                       "networking": {"eth0": "dhcp", "ws": "Grüße ✓"}}),
    (["DeleteKey", "networking", "eth0"], ""),
    (["DeleteSection", "wlan0"], ""),
    (["Flush"], ""),
    (["ReadAllJson"], {".omba": {"hn": "player-2"}, "networking": {"ws": "Grüße ✓"}}),
    (["DeleteAll"], ""),
    (["SectionList"], ""),
    (["ReadAllJson"], {}),
]


def test_every_operation_round_trips_through_the_service(player):
    player.start_registry({})
    for args, expected in ROUND_TRIP:
        status, output = probe(player, *args)
        if isinstance(expected, dict):  # the store, as the probe and the file show it
            assert (status, json.loads(output), player.settings()) == (0, expected, expected)
        else:
            assert (status, output) == (0, expected), args


@pytest.mark.parametrize("args, limit, expected", [
    (["Write", "bad name", "k", "v"], None, INVALID_NAME),
    (["Read", "networking", ""], None, INVALID_NAME),
    (["KeyList", "a/b"], None, INVALID_NAME),
    (["WriteJson", '{"ok": {"bad key": "v"}}'], None, INVALID_NAME),
    (["Write", "s", "k", "x" * 200], 100, FULL),
    (["WriteJson", json.dumps({"t": {"k": "x" * 200}})], 100, FULL),
    (["WriteJson", "{not json"], None, INVALID_JSON),
    (["WriteJson", '["a list"]'], None, INVALID_JSON),
    (["WriteJson", '{"s": {"k": 1}}'], None, INVALID_JSON),
])
def test_service_errors_reach_the_caller_and_change_nothing(player, args, limit, expected):
    player.start_registry({}, limit=limit)
    assert probe(player, "Write", "s", "seed", "1") == (0, "")
    assert probe(player, *args) == (2, expected)
    assert probe(player, "KeyList", "s") == (0, "seed=1\n")


@pytest.mark.parametrize("error, expected", [
    ("com.ombalabs.Registry.Errors.InvalidName", INVALID_NAME),
    ("com.ombalabs.Registry.Errors.Full", FULL),
    ("com.ombalabs.Registry.Errors.InvalidJson", INVALID_JSON),
    ("org.example.Storage.Broken", "EXCEPTION DBus org.example.Storage.Broken: disk on fire\n"),
])
@pytest.mark.parametrize("name, args, in_signature, out_signature", OPERATIONS)
def test_errors_are_translated_for_every_operation(mock, name, args, in_signature, out_signature,
                                                   error, expected):
    mock.AddMethod("", name, in_signature, out_signature,
                   f"raise dbus.exceptions.DBusException('disk on fire', name='{error}')")
    assert probe(mock.player, name, *args) == (2, expected)
    assert [call[1] for call in mock.GetCalls()] == [name]


@pytest.mark.parametrize("args, out_signature, code, expected", [
    (["SectionList"], "s", "ret = 'eth0'", ARRAY_EXPECTED),
    (["SectionList"], "", "", ARRAY_EXPECTED),
    (["SectionList"], "ai", "ret = [1]", TYPE_MISMATCH),
    (["SectionList"], "as", "ret = dbus.Array([], signature='s')", ""),
    (["SectionList"], "as", "ret = ['wlan0', 'eth0', '.omba']", "wlan0\neth0\n.omba\n"),
    (["KeyList", "x"], "s", "ret = 'a=b'", DICT_EXPECTED),
    (["KeyList", "x"], "as", "ret = ['a']", DICT_EXPECTED),
    (["KeyList", "x"], "a{sv}", "ret = {'a': 1}", TYPE_MISMATCH),
    (["KeyList", "x"], "a{ss}", "ret = dbus.Dictionary({}, signature='ss')", ""),
    (["KeyList", "x"], "a{ss}", "ret = {'b': '2', 'a': '1'}", "a=1\nb=2\n"),
    (["Read", "s", "k"], "i", "ret = 5", TYPE_MISMATCH),
])
def test_replies_are_checked_for_their_type(mock, args, out_signature, code, expected):
    mock.AddMethod("", args[0], "s" * (len(args) - 1), out_signature, code)
    assert probe(mock.player, *args) == (2 if expected.startswith("EXCEPTION") else 0, expected)


@pytest.mark.parametrize("args", [
    ["Write", "hex:ff", "k", "v"], ["Write", "s", "hex:6bc3", "v"],
    ["Write", "s", "k", "hex:eda080"], ["Write", "s", "k", "hex:610062"],
    ["Read", "s", "hex:c0af"], ["KeyExists", "hex:f8888080", "k"],
    ["SectionExists", "hex:fe"], ["DeleteKey", "s", "hex:80"], ["DeleteSection", "hex:e282"],
    ["KeyList", "hex:ff"], ["WriteJson", "hex:7bfe7d"],
], ids=lambda args: "-".join(args))
def test_invalid_utf8_is_refused_before_anything_is_sent(mock, args):
    # The double has no methods: a call sent would come back as an error of its own.
    assert probe(mock.player, *args) == (2, INVALID_ENCODING)


@pytest.mark.parametrize("address, error", [
    (None, "ServiceUnknown"), ("unix:path=/nonexistent/socket", "")])
def test_missing_service_or_bus_is_a_dbus_error(player, address, error):
    env = {"DBUS_SYSTEM_BUS_ADDRESS": address} if address else None
    error = "EXCEPTION DBus org.freedesktop.DBus.Error." + error
    assert probe(player, "Read", "s", "k", env=env)[1].startswith(error)


def test_concurrent_reads_are_answered_one_after_the_other(mock):
    mock.AddMethod("", "Read", "ss", "s", "time.sleep(0.5)\nret = args[0] + '/' + args[1]")
    # The bus routes every message past a monitor in order: the calls overlap
    # exactly when the second call passes before the first reply.
    monitor = mock.player.spawn(["dbus-monitor", "--system", "--profile"],
                                stdout=subprocess.PIPE, text=True)
    lines = []
    reader = threading.Thread(target=lambda: lines.extend(monitor.stdout))
    reader.start()
    try:  # the monitor is watching once it shows a call of ours
        wait_for(lambda: mock.ClearCalls() or any(
            line.endswith("\tClearCalls\n") for line in list(lines)), 20, 0.1, "dbus-monitor")
        status, output = probe(mock.player, "threads", "s", "k")
        time.sleep(0.2)
    finally:
        monitor.terminate()
        monitor.wait()
        reader.join()
    assert status == 0 and sorted(output.splitlines()) == ["thread 0: s/k", "thread 1: s/k"]

    calls, order = set(), []
    for fields in (line.rstrip("\n").split("\t") for line in lines):
        if fields[0] == "mc" and fields[-1] == "Read":
            calls.add((fields[3], fields[2]))  # sender, serial
            order.append("call")
        elif fields[0] == "mr" and (fields[4], fields[5]) in calls:
            order.append("reply")
    assert order == ["call", "reply", "call", "reply"]
