"""A whole player in the QEMU guest, as the boot test and the boot benchmark set it up: the
installed package with its glue (boot script, udev rule with the real systemd-udevd, dhcpcd
hook), the real daemons on the player (registry, wpa_supplicant, Avahi) and on the far end
(DHCP servers, a VLAN, hostapd on a simulated radio), and these ports:

- eth0, a DHCP client of the far end, with VLAN 12 on it (also a DHCP client); the lease's
  default route makes it the NAT port;
- eth1, with a static address, serving DHCP to the far end;
- wlan0, joining a WPA2 network of hostapd on the lan's radio air0.

Every linkrig run goes through a wrapper that logs its arguments, times, status and standard
error (RUNS, ERRORS), so that a test can tell which runs waited."""

import subprocess
import time
from pathlib import Path

EXAMPLES = "/usr/share/doc/linkrig/examples"
GLUE = [("linkrig.init", "/etc/init.d/linkrig", "755"),
        ("90-linkrig.rules", "/etc/udev/rules.d/90-linkrig.rules", "644"),
        ("linkrig-hotplug", "/usr/lib/udev/linkrig-hotplug", "755"),
        ("dhcpcd-hook", "/usr/lib/dhcpcd/dhcpcd-hooks/90-linkrig", "644")]
ADMIN = "/run/player/dpkg"
RUNS, ERRORS = "/run/player/linkrig-runs", "/run/player/linkrig-errors"
WRAPPER = f"""#!/bin/sh
started=$(date +%s.%N)
/usr/sbin/linkrig.bin "$@" 2>>{ERRORS}
status=$?
echo "$started $(date +%s.%N) $status $*" >> {RUNS}
exit $status
"""
SSID, PSK = "Player Air", "air-Pass 42"
HOST_NAME = "player-one"
HWVARS = {"VL_HWFLAGS": "0x10", "VL_FORMAT": "1", "VL_SERIAL": "S1"}
# The far end's servers: (lan interface, subnet, router?); a short lease, so that it renews
# within the test.
SERVERS = [("peer-eth0", "192.168.50", True), ("peer-eth0.12", "192.168.52", False),
           ("air0", "192.168.77", False)]
LEASE_SECONDS = 20


def settings(obfuscated_psk):
    return {".omba": {"vlans": "0,12", "hn": HOST_NAME, "forwarding": "2"},
            ".net.eth1": {"ip": "c0a83c01", "nm": "ffffff00", "dh": "c0a83c64:c0a83c6e"},
            ".omba1": {"wi": SSID, "wp": obfuscated_psk}}


def far_end(player):
    """The lan: the VLAN, the DHCP servers, hostapd on air0."""
    lan = player.lan
    lan.run(["ip", "link", "add", "link", "peer-eth0", "name", "peer-eth0.12", "type", "vlan",
             "id", "12"], check=True)
    lan.run(["ip", "link", "set", "peer-eth0.12", "up"], check=True)
    for peer, subnet, router in SERVERS:
        lan.run(["ip", "addr", "add", f"{subnet}.1/24", "dev", peer], check=True)
        base = "/run/player/" + peer.replace(".", "-")
        player.write_file(base + ".conf", "".join(line + "\n" for line in [
            f"interface {peer}", f"start {subnet}.100", f"end {subnet}.149",
            f"pidfile {base}.pid", f"lease_file {base}.leases", "option subnet 255.255.255.0",
            f"min_lease {LEASE_SECONDS}", f"option lease {LEASE_SECONDS}"]
            + ([f"option router {subnet}.1"] if router else [])))
        lan.start_daemon(peer, ["busybox", "udhcpd", "-f", base + ".conf"])
    player.makedirs("/run/air")
    player.write_file("/run/air/hostapd.conf", "".join(line + "\n" for line in [
        "interface=air0", "driver=nl80211", f"ssid={SSID}", "hw_mode=g", "channel=1", "wpa=2",
        "wpa_key_mgmt=WPA-PSK", "rsn_pairwise=CCMP", f"wpa_passphrase={PSK}"]))
    lan.start_daemon("hostapd", ["hostapd", "/run/air/hostapd.conf"], ready="AP-ENABLED")


def make(make_player, radios):
    """A started player with eth0, eth1 and the radio wlan0 (air0 on its lan), probing of
    addresses off (it costs dhcpcd five seconds an address, linkrig or not)."""
    player = make_player(ports=("eth0", "eth1"), hwvars=HWVARS, may_set_clock=True)
    radios.give(player, 0, "wlan0")
    radios.give(player.lan, 1, "air0")
    player.skip_address_probing()
    far_end(player)
    return player


def install(player, deb):
    """The package, its glue where a player has it, the wrapper, and udevd with the
    distribution's rules hidden: only the glue's rule runs."""
    player.make_writable("/usr")
    # dpkg with the machine's package status but none of its file lists: reading those (some
    # 160,000 names over the guest's 9p root) took it over two minutes under emulation. It
    # warns about each list it lacks.
    result = player.run(["sh", "-e", "-c", f"""
        mkdir -p {ADMIN}/info {ADMIN}/updates {ADMIN}/triggers
        cp /var/lib/dpkg/status {ADMIN}/status
        dpkg --admindir={ADMIN} -i {deb} 2>/dev/null"""], timeout=300)
    assert result.returncode == 0 and "Setting up linkrig" in result.stdout, result.stdout
    for name, path, mode in GLUE:
        player.run(["install", "-D", "-m", mode, f"{EXAMPLES}/{name}", path], check=True)
    player.run(["mv", "/usr/sbin/linkrig", "/usr/sbin/linkrig.bin"], check=True)
    player.write_file("/usr/sbin/linkrig", WRAPPER, mode=0o755)
    player.run(["mount", "-t", "tmpfs", "rules", "/usr/lib/udev/rules.d"], check=True)
    player.start_daemon("udevd", ["/lib/systemd/systemd-udevd"],
                        ready=lambda p: p.exists("/run/udev/control"))


def start_daemons(player, obfuscated_psk, supplicant=True):
    player.start_registry(settings(obfuscated_psk))
    player.start_avahi()
    if supplicant:
        player.start_supplicant()


def addresses(player, ifname):
    out = player.run(["ip", "-4", "-o", "addr", "show", "dev", ifname]).stdout
    return [line.split()[3] for line in out.splitlines()]


def missing(player):
    """What is not yet as a booted player has it; empty once every port is configured."""
    wants = {"eth0": "192.168.50.1", "eth0.12": "192.168.52.1", "eth1": "192.168.60.1/24",
             "wlan0": "192.168.77.1"}
    left = [f"{ifname} {prefix}" for ifname, prefix in wants.items()
            if not any(a.startswith(prefix) for a in addresses(player, ifname))]
    if not player.exists("/var/run/udhcpd-eth1.pid"):
        left.append("the DHCP server on eth1")
    return left


def wait_configured(player, started, timeout=60.0):
    """Seconds from started until every port is configured."""
    while True:
        left = missing(player)
        if not left:
            return time.monotonic() - started
        if time.monotonic() - started > timeout:
            raise TimeoutError(f"not configured after {timeout} s: {', '.join(left)}\n"
                               + diagnosis(player))
        time.sleep(0.05)


def diagnosis(player):
    """What the runs, the supplicant and the kernel log say, for a failure's message."""
    def text(path):
        return player.read_file(path) if player.exists(path) else "(none)\n"
    return (f"runs:\n{text(RUNS)}errors:\n{text(ERRORS)}"
            f"wlan0: {player.supplicant_state('wlan0')}\n"
            f"{player.run(['ip', '-br', 'addr']).stdout}kmsg:\n{player.kmsg()}")


def boot(player):
    """Runs the boot script; returns its result and the seconds until every port was
    configured."""
    started = time.monotonic()
    result = player.run(["/etc/init.d/linkrig", "start"], timeout=120)
    return result, wait_configured(player, started)


# The same daemons started by hand with the same settings, and no linkrig: the floor.
FLOOR = f"""
hostname {HOST_NAME}
ip link add link eth0 name eth0.12 type vlan id 12
ip link set eth0 up
ip link set eth0.12 up
echo 1 > /proc/sys/net/ipv4/ip_forward
iptables -t nat -A POSTROUTING -o eth0 -j MASQUERADE
dhcpcd -b eth0
dhcpcd -b eth0.12
dhcpcd -b -Sip_address=192.168.60.1 -Ssubnet_mask=255.255.255.0 eth1
wpa_supplicant -B -i wlan0 -D nl80211 -c /run/player/floor-wpa.conf
dhcpcd -b wlan0
until ip -4 addr show dev eth1 | grep -q 192.168.60.1/; do sleep 0.05; done
udhcpd /run/player/floor-udhcpd.conf
"""


def floor(player):
    """Starts the daemons by hand; returns the seconds until every port was configured."""
    player.write_file("/run/player/floor-wpa.conf",
                      f'network={{\n ssid="{SSID}"\n psk="{PSK}"\n}}\n')
    player.write_file("/run/player/floor-udhcpd.conf", "".join(line + "\n" for line in [
        "interface eth1", "pidfile /var/run/udhcpd-eth1.pid", "start 192.168.60.100",
        "end 192.168.60.110", "option subnet 255.255.255.0"]))
    started = time.monotonic()
    player.run(["sh", "-e", "-c", FLOOR], check=True, timeout=120)
    return wait_configured(player, started)


def architecture():
    return subprocess.run(["dpkg", "--print-architecture"], check=True, capture_output=True,
                          text=True).stdout.strip()


def package(directory):
    """The package in directory for this machine's architecture."""
    found = sorted(Path(directory).glob(f"linkrig_*_{architecture()}.deb"))
    return found[-1] if found else None


def run_log(player):
    """The linkrig runs so far, in the order they started: (start, end, status, argument
    list)."""
    if not player.exists(RUNS):
        return []
    runs = []
    for line in player.read_file(RUNS).splitlines():
        start, end, status, *args = line.split()
        runs.append((float(start), float(end), int(status), args))
    return sorted(runs, key=lambda run: run[0])

