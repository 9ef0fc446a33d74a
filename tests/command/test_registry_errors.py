"""Actions that read stored settings fail cleanly when the registry is absent, and work
again once it is back. (Its error replies, translated, are the registry client tests'.)"""

import pytest


@pytest.mark.player(ports=("eth0", "eth1"))
@pytest.mark.parametrize("iface,action", [("eth1", "start"), ("eth1", "stop"), ("host", "update")])
def test_absent_registry_ends_the_action_with_status_2(player, iface, action):
    result = player.linkrig(iface, action)
    assert result.returncode == 2, result.stderr
    lines = result.stderr.splitlines()
    assert lines[0] == f"linkrig: {iface} {action}"
    assert lines[-1].startswith("linkrig: EXCEPTION: ") and "com.ombalabs.Registry" in lines[-1]

    player.start_registry({".omba": {"hn": "player"}})
    assert player.linkrig("host", "update").returncode == 0
