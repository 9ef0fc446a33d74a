"""The Debian packages as a firmware integrator gets them (scripts/package.sh): what they
hold and need, the armhf program under qemu-arm, the amd64 package installed into a simulated
player, and the boot and hot-plug glue it ships, driven there by the real udevd and dhcpcd."""

import os
import re
import shlex
import subprocess
from pathlib import Path

import pytest

from player import wait_for

ROOT = Path(__file__).resolve().parents[2]
PACKAGES = Path(os.environ.get("LINKRIG_PACKAGES", ROOT / "build" / "packages"))
SYSROOT = os.environ.get("LINKRIG_ARMHF_SYSROOT", "/var/cache/linkrig/armhf-sysroot")
TRIPLETS = {"amd64": "x86_64-linux-gnu", "armhf": "arm-linux-gnueabihf"}
EXAMPLES = "/usr/share/doc/linkrig/examples"
USAGE = "Usage: linkrig <interface> init|add|start|stop|reconfigure|checklink\n"
# Where a player installs the glue: boot script, udev rule and the program it runs, dhcpcd hook.
GLUE = [("linkrig.init", "/etc/init.d/linkrig", "755"),
        ("90-linkrig.rules", "/etc/udev/rules.d/90-linkrig.rules", "644"),
        ("linkrig-hotplug", "/usr/lib/udev/linkrig-hotplug", "755"),
        ("dhcpcd-hook", "/usr/lib/dhcpcd/dhcpcd-hooks/90-linkrig", "644")]


# What `cmake --install` puts in a staging root; the packages add a changelog and compress.
INSTALLED = sorted(["/usr/sbin/linkrig", "/usr/sbin/linkrig-plan",
                    "/usr/share/doc/linkrig/copyright", "/usr/share/man/man8/linkrig.8",
                    "/usr/share/man/man8/linkrig-plan.8"] + [f"{EXAMPLES}/{g[0]}" for g in GLUE])


def project_version():
    return re.search(r"project\(linkrig VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def package(arch, unpack_to=None):
    """The package's path, after unpacking it into unpack_to if given."""
    deb = PACKAGES / f"linkrig_{project_version()}_{arch}.deb"
    if not deb.exists():
        pytest.skip(f"no {deb.name} in {PACKAGES}: run scripts/package.sh")
    if unpack_to:
        run(["dpkg-deb", "-x", deb, unpack_to], check=True)
    return deb


def run(argv, **kwargs):
    return subprocess.run(argv, capture_output=True, text=True, **kwargs)


@pytest.fixture
def installed(player):
    """The player with the amd64 package installed by dpkg into its own /usr and /var."""
    player.make_writable("/usr")
    result = player.run(["dpkg", "-i", str(package("amd64"))])
    assert result.returncode == 0, result.stdout + result.stderr
    return player


@pytest.mark.parametrize("arch", ["amd64", "armhf"])
def test_contents_version_and_depends(arch, tmp_path):
    deb = package(arch, tmp_path)
    files = sorted(f"/{f.relative_to(tmp_path)}" for f in tmp_path.rglob("*") if f.is_file())
    assert files == sorted(["/usr/share/doc/linkrig/changelog.gz"] + [
        f + ".gz" if "/man/" in f else f for f in INSTALLED])
    fields = dict(line.split(": ", 1) for line in
                  run(["dpkg-deb", "--field", deb, "Version", "Architecture", "Depends"])
                  .stdout.splitlines())
    assert (fields["Version"], fields["Architecture"]) == (project_version(), arch)

    # Depends names exactly the packages of the libraries the program needs, with versions:
    # those it links, and those it loads when first used (named by their SONAMEs in it).
    program = tmp_path / "usr/sbin/linkrig"
    needed = re.findall(r"\(NEEDED\)\s+Shared library: \[(.+)\]",
                        run(["readelf", "-d", program], check=True).stdout)
    needed += sorted(set(re.findall(r"lib(?:gnutls|gcrypt)\.so\.\d+",
                                    program.read_bytes().decode("latin-1"))))
    env = dict(os.environ, DPKG_ADMINDIR=f"{SYSROOT}/.dpkg") if arch == "armhf" else None
    owners = run(["dpkg-query", "--search"] + [f"{d}/{TRIPLETS[arch]}/{so}" for so in needed
                                               for d in ("/lib", "/usr/lib")], env=env).stdout
    found = [line.split(": ", 1) for line in owners.splitlines()]
    assert {path.rsplit("/", 1)[1] for _, path in found} == set(needed)
    depends = dict(re.fullmatch(r"(\S+) \((>= .+)\)", d).groups()
                   for d in fields["Depends"].split(", "))
    assert set(depends) == {owner.split(":")[0] for owner, _ in found}


@pytest.mark.parametrize("args, status, stdout, stderr", [
    ((), 1, "", "linkrig: too few args\n" + USAGE),
    # Administratively down: no link, before any driver is asked.
    (("eth0", "checklink"), 1, "eth0: Link is down\n", "linkrig: eth0 checklink\n"),
    # qemu-arm passes neither the ethtool nor the wireless query on; a ppp link that is up
    # has link without them.
    (("ppp0", "checklink"), 0, "ppp0: Link is up\n", "linkrig: ppp0 checklink\n"),
])
@pytest.mark.player(ports=("eth0", "ppp0"), hwvars={"VL_HWFLAGS": "0x10"})
def test_armhf_program_under_qemu(player, tmp_path, args, status, stdout, stderr):
    if not os.path.isdir(f"{SYSROOT}/usr/lib/arm-linux-gnueabihf"):
        pytest.skip(f"no armhf sysroot in {SYSROOT}: run scripts/armhf.sh")
    package("armhf", tmp_path)
    player.set_link("eth0", up=False)
    result = player.run(["qemu-arm", "-L", SYSROOT, tmp_path / "usr/sbin/linkrig", *args])
    assert (result.returncode, result.stdout, result.stderr) == (status, stdout, stderr)


@pytest.mark.player(hwvars={"VL_HWFLAGS": "0x10", "VL_OEM_ID": "ACME", "VL_OEM_MODEL": "Box",
                            "VL_FORMAT": "1", "VL_SERIAL": "S1"})
def test_installed_package_starts_a_wired_port(installed):
    player = installed
    player.start_registry({".omba": {"hn": "player", "ip": "c0a83201", "nm": "ffffff00"}})
    dhcpcd = player.replace_program("/sbin/dhcpcd")
    result = player.run(["/usr/sbin/linkrig", "eth0", "start"])
    assert result.returncode == 0, result.stderr
    head = ["-I", "Velmora:S1", "-i", "ACME Box", "-o43", "-b"]
    assert dhcpcd.calls() == [head + ["-x", "eth0"], head + [
        "-Sip_address=192.168.50.1", "-Ssubnet_mask=255.255.255.0", "eth0"]]
    assert player.led("ethernet")["delay_on"] == "500"  # link, no address yet
    # The installed plan predicts the same runs of the client.
    plan = player.run(["/usr/sbin/linkrig-plan", "eth0", "start"])
    assert [line for line in plan.stdout.splitlines() if "dhcpcd" in line] == [
        "run /sbin/dhcpcd " + " ".join(shlex.quote(a) for a in call) for call in dhcpcd.calls()]
    # The installed manual page, as man finds it, renders without a warning.
    page = player.run(["sh", "-c", "man -w linkrig && MANWIDTH=80 man --warnings linkrig "
                                   ">/dev/null"])
    assert (page.stdout, page.stderr) == ("/usr/share/man/man8/linkrig.8.gz\n", "")
    # Nothing reached the host.
    assert not os.path.exists("/usr/sbin/linkrig") and run(["dpkg", "-s", "linkrig"]).returncode


@pytest.fixture
def glue(installed):
    """The installed glue where a player has it, a recording stand-in for linkrig, and the real
    udevd with the distribution's rules hidden: only the glue's rule runs, nothing on the host's."""
    player = installed
    for name, path, mode in GLUE:
        player.run(["install", "-D", "-m", mode, f"{EXAMPLES}/{name}", path], check=True)
    player.run(["mount", "-t", "tmpfs", "rules", "/usr/lib/udev/rules.d"], check=True)
    player.start_daemon("udevd", ["/lib/systemd/systemd-udevd"],
                        ready=lambda p: p.exists("/run/udev/control"))
    return player.replace_program("/usr/sbin/linkrig")


def new_calls(linkrig, argv, count=0):
    """Runs argv in the player, lets udev and any hook finish, and returns the linkrig runs
    it caused (waiting until there are at least count of them)."""
    before = len(linkrig.calls())
    linkrig.player.run(argv, check=True)
    linkrig.player.run(["udevadm", "settle", "--timeout=10"], check=True)
    wait_for(lambda: len(linkrig.calls()) >= before + count, 20, what=f"{count} linkrig runs")
    return linkrig.calls()[before:]


def veth(name):
    return ["ip", "link", "add", name, "type", "veth", "peer", "name", f"x{name}", "netns", "lan"]


@pytest.mark.player(ports=("eth0", "wlan0"), hwvars={"VL_HWFLAGS": "0x10"})
def test_boot_and_hotplug_glue(glue):
    linkrig, player = glue, glue.player
    # Before the boot script has run, a new port is only announced.
    assert new_calls(linkrig, veth("eth1")) == [["eth1", "add"]]
    # VLAN links and internal ones are not ports; ppp0 is the modem's.
    for name in ("eth0.7", "ipc0"):
        player.run(veth(name), check=True)
    player.write_file("/dev/modem", "")
    # The ports side by side, each "init" before its "start".
    boot = new_calls(linkrig, ["/etc/init.d/linkrig", "start"])
    ports = [[port, action] for port in ("eth0", "eth1", "wlan0") for action in ("init", "start")]
    assert (boot[0], sorted(boot[1:-1]), boot[-1]) == (["host", "start"], ports, ["ppp0", "init"])
    assert all(boot.index([port, "init"]) < boot.index([port, "start"]) for port, _ in ports)
    # After it, a new port is started too.
    assert new_calls(linkrig, veth("eth2")) == [["eth2", "add"], ["eth2", "start"]]
    assert new_calls(linkrig, veth("eth2.5")) == []
    assert new_calls(linkrig, ["ip", "link", "del", "eth2"]) == [["eth2", "remove"]]
    assert new_calls(linkrig, ["/etc/init.d/linkrig", "stop"]) == [
        ["ppp0", "stop"], ["eth0", "stop"], ["eth1", "stop"], ["wlan0", "stop"]]

    # The real dhcpcd, its lease from the lan, and its hook: the carrier first, then the lease.
    player.skip_address_probing()
    player.lan.run(["ip", "addr", "add", "192.168.50.1/24", "dev", "peer-eth0"], check=True)
    conf = "/run/player/lan-udhcpd.conf"
    player.write_file(conf, "interface peer-eth0\nstart 192.168.50.100\nend 192.168.50.150\n"
                      "pidfile /run/player/lan-udhcpd.pid\nlease_file /run/player/lan.leases\n"
                      "option subnet 255.255.255.0\noption router 192.168.50.1\n")
    player.lan.start_daemon("lan-udhcpd", ["busybox", "udhcpd", "-f", conf])
    assert new_calls(linkrig, ["dhcpcd", "-b", "eth0"], count=3) == [
        ["eth0", "checklink"], ["eth0", "update"], ["eth0", "update"]]
    assert "inet 192.168.50." in player.run(["ip", "-4", "addr", "show", "eth0"]).stdout
    assert new_calls(linkrig, ["ip", "-n", "lan", "link", "set", "peer-eth0", "down"],
                     count=2) == [["eth0", "checklink"], ["eth0", "update"]]
