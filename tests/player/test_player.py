"""Self-tests of the simulated player. Its system bus at the standard path, its links
and its boot environment are every command test's: test_frontend's tables of link
states and hardware flags fail when any of them does."""

import os
import socket
import subprocess

import pytest

from player import Player


def test_led_timer_trigger_emulation(player):
    led, off = "/sys/class/leds/ethernet", {"trigger": "none", "brightness": "0"}
    assert player.led("ethernet") == off
    player.write_file(f"{led}/trigger", "timer")
    assert player.led("ethernet") == dict(off, trigger="timer", delay_on="500", delay_off="500")
    player.write_file(f"{led}/trigger", "none")
    assert player.led("ethernet") == off
    # Delays a writer sets right after the trigger are kept, as with the kernel's files.
    player.run(["sh", "-c", f"cd {led} && printf timer > trigger && printf 255 > brightness"
                            " && printf 900 > delay_off && printf 100 > delay_on"], check=True)
    assert player.led("ethernet") == {"trigger": "timer", "brightness": "255",
                                      "delay_on": "100", "delay_off": "900"}
    assert player.led("wifi") == off


def test_changes_stay_inside(player):
    host_name = socket.gethostname()
    player.run(["sh", "-c", "hostname renamed && echo x > /var/run/player-probe && echo y >"
                " /etc/player-probe && ln -s pts/0 /dev/player-probe && echo hello > /dev/kmsg"],
               check=True)
    assert (player.hostname(), player.read_file("/run/player-probe")) == ("renamed", "x\n")
    assert "hello\n" in player.kmsg() and socket.gethostname() == host_name
    assert not any(os.path.lexists(f"/{d}/player-probe") for d in ("run", "etc", "dev"))


def test_stand_ins_of_one_directory_all_hold(player):
    # More stand-ins in one directory than overlays stack; both kinds record alike.
    stand_ins = [player.replace_program("/usr/sbin/tc", exit_code=3, light=True),
                 player.replace_program("/sbin/dhcpcd", exit_code=4),
                 player.replace_program("/usr/sbin/pppd", exit_code=5, light=True),
                 player.replace_program("/usr/sbin/chat", missing=True)]
    for stand_in, status in zip(stand_ins[:3], (3, 4, 5)):
        for args in (["a b", ""], ["-x", "\t\n"]):
            assert player.run([stand_in.path] + args).returncode == status
        assert stand_in.calls() == [["a b", ""], ["-x", "\t\n"]]
    assert not player.exists("/usr/sbin/chat")
    assert player.run(["ip", "-V"]).returncode == 0  # the rest of the directory is there


def test_timeout_kills_the_program(player):
    with pytest.raises(subprocess.TimeoutExpired):
        player.run(["sleep", "60"], timeout=0.3)
    assert "sleep" not in player.run(["ps", "-eo", "comm"]).stdout


def test_nothing_left_after_close():
    def host():
        netns = subprocess.run(["ip", "netns", "list"], capture_output=True, text=True).stdout
        return open("/proc/self/mountinfo").read(), netns
    before = host()
    with pytest.raises(KeyError), Player(ports=("eth0", "wlan0")) as player:
        player.start_daemon("near", ["sh", "-c", "echo ready; exec sleep 600"], ready="ready")
        player.lan.start_daemon("far", ["sleep", "600"])
        player.spawn(["sh", "-c", "sleep 600 & sleep 600"])
        player.run(["sh", "-c", "sleep 600 >/dev/null 2>&1 &"], check=True)  # orphan
        assert len(player.leftovers()) >= 6
        raise KeyError("test failure inside the player")
    assert (player.leftovers(), host()) == ([], before)
