"""The Debian packages as a firmware integrator gets them (scripts/package.sh): what they
hold and need, and the amd64 package installed into a simulated player. Each package, with the
glue it ships, boots a whole player in the guest of its architecture (tests/guest/scenarios)."""

import os
import re
import shlex
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PACKAGES = Path(os.environ.get("LINKRIG_PACKAGES", ROOT / "build" / "packages"))
SYSROOT = os.environ.get("LINKRIG_ARMHF_SYSROOT", "/var/cache/linkrig/armhf-sysroot")
TRIPLETS = {"amd64": "x86_64-linux-gnu", "armhf": "arm-linux-gnueabihf"}
EXAMPLES = "/usr/share/doc/linkrig/examples"
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
