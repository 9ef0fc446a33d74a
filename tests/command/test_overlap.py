"""Overlapping runs, as boot scripts and hot-plug events start them, with the real dhcpcd:
runs of one interface take turns, runs of unrelated interfaces do not wait for each other."""

import os
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

from player import wait_for

pytestmark = [pytest.mark.usefixtures("linkrig_binary"),
              pytest.mark.player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})]

ROUNDS = int(os.environ.get("LINKRIG_STORM_ROUNDS", "5"))
WAITING = "linkrig: waiting for another run to release /var/run/linkrig-eth0.lock\n"


def at_once(player, *runs):
    """Starts the runs together; returns their results in order."""
    barrier = threading.Barrier(len(runs))

    def one(args):
        barrier.wait()
        return player.linkrig(*args)
    with ThreadPoolExecutor(len(runs)) as pool:
        return list(pool.map(one, runs))


def settled(player, count):
    """dhcpcd's clients of eth0 once it has settled on count of them."""
    wait_for(lambda: len(player.dhcp_clients("eth0")) == count, timeout=15, interval=0.1,
             what=f"{count} dhcpcd for eth0")
    time.sleep(0.5)  # a late extra one would show now
    return player.dhcp_clients("eth0")


@pytest.fixture
def player(player):
    player.start_registry({})
    player.skip_address_probing()
    return player


def test_parallel_starts_leave_one_client(player):
    for _ in range(ROUNDS):
        results = at_once(player, *[("eth0", "start")] * 4)
        assert all(r.returncode == 0 for r in results), [r.stderr for r in results]
        assert len(settled(player, 1)) == 1
        # Each run that found the interface busy said so, once.
        assert all(r.stderr.count(WAITING) <= 1 for r in results)
        assert sum(WAITING in r.stderr for r in results) >= 1
        assert player.linkrig("eth0", "stop").returncode == 0
        settled(player, 0)


def test_storm_ending_with_a_stop_leaves_none(player):
    for _ in range(ROUNDS):
        # dhcpcd's hook runs updates at any moment: they never wait for the lock.
        runs = [("eth0", "start"), ("eth0", "stop"), ("eth0", "update")] * 2
        results = at_once(player, *runs)
        assert all(r.returncode == 0 for r in results), [r.stderr for r in results]
        assert not any(WAITING in r.stderr for r, args in zip(results, runs)
                       if args[1] == "update")
        assert len(player.dhcp_clients("eth0")) <= 1
        assert player.linkrig("eth0", "stop").returncode == 0
        settled(player, 0)


def test_unrelated_interfaces_do_not_wait_for_each_other(player):
    player.replace_program("/sbin/dhcpcd", delay=2)  # each run of the client takes 2 s
    started = time.monotonic()
    eth0, wlan0 = at_once(player, ("eth0", "start"), ("wlan0", "stop"))
    assert (eth0.returncode, wlan0.returncode) == (0, 0), eth0.stderr + wlan0.stderr
    assert time.monotonic() - started < 7  # 2 x 2 s for eth0, 2 s for wlan0, side by side
    # Only their host-wide changes take turns.
    assert "eth0.lock" not in wlan0.stderr and "wlan0.lock" not in eth0.stderr
    # checklink changes nothing and waits for nothing.
    busy = threading.Thread(target=player.linkrig, args=("eth0", "stop"))
    busy.start()
    wait_for(lambda: player.pids("python3"), what="the stop to run dhcpcd")
    check = player.linkrig("eth0", "checklink")
    busy.join()
    assert check.returncode == 0 and "waiting" not in check.stderr
