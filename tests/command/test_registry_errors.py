"""Actions that read stored settings fail cleanly when the registry is absent or answers
with an error, and work again once it is back."""

import pytest

MOCK = ["/usr/bin/python3", "-m", "dbusmock", "--system", "com.ombalabs.Registry",
        "/com/ombalabs/Registry", "com.ombalabs.Registry"]
MOCK_CALL = ["busctl", "--system", "call", "com.ombalabs.Registry", "/com/ombalabs/Registry",
             "org.freedesktop.DBus.Mock"]


@pytest.mark.player(ports=("eth0", "eth1"))
@pytest.mark.parametrize("iface,action", [("eth1", "start"), ("eth1", "stop"), ("host", "update")])
def test_absent_registry_ends_the_action_with_status_2(player, iface, action):
    result = player.linkrig(iface, action)
    assert result.returncode == 2, result.stderr
    lines = result.stderr.splitlines()
    assert lines[0] == f"linkrig: {iface} {action}"
    assert lines[-1].startswith("linkrig: EXCEPTION: ")
    assert "com.ombalabs.Registry" in lines[-1]

    player.start_registry({".omba": {"hn": "player"}})
    assert player.linkrig("host", "update").returncode == 0


@pytest.mark.parametrize("error,text", [
    ("com.ombalabs.Registry.Errors.InvalidName", "Invalid name: InvalidName"),
    ("com.ombalabs.Registry.Errors.Full", "Registry full"),
    ("org.example.Broken", "the store is on fire"),
])
def test_registry_error_reply_is_reported(player, error, text):
    player.start_daemon("registry-mock", MOCK, ready=lambda p: p.run(
        MOCK_CALL[:5] + ["org.freedesktop.DBus.Introspectable", "Introspect"]).returncode == 0)
    code = f"raise dbus.exceptions.DBusException('the store is on fire', name='{error}')"
    player.run(MOCK_CALL + ["AddMethod", "sssss", "com.ombalabs.Registry", "Read", "ss", "s",
                            code], check=True)
    result = player.linkrig("host", "update")
    assert result.returncode == 2
    assert result.stderr.splitlines()[-1] == f"linkrig: EXCEPTION: {text}"
