"""The SNTP client (through sntp_probe) in a player against the time servers
on its lan: the real chronyd, the scripted responder, a silent name server."""

import os
from pathlib import Path

import pytest

PROBE = Path(os.environ.get("LINKRIG_BUILD_DIR", "/work/main/build")) / "tests" / "sntp_probe"
LAN, PLAYER = "192.168.80.1", "192.168.80.2"


@pytest.mark.parametrize("server, answer, error, most_ms", [
    ("chronyd", LAN, None, 1000),
    ("kod", LAN, f"kiss-of-death from {LAN}: RATE", 1000),
    # Nothing listens: refused at once, three times.
    (None, LAN, f"no reply from {LAN}: Connection refused", 1000),
    # A name server that never answers: the resolver alone would wait 10 s.
    ("silent-dns", "time.example", "looking up time.example took too long", 5000),
])
def test_probe_against_servers(player, server, answer, error, most_ms):
    if not os.access(PROBE, os.X_OK):
        pytest.skip(f"sntp_probe is not built ({PROBE}); set LINKRIG_BUILD_DIR")
    player.run(["ip", "addr", "add", f"{PLAYER}/24", "dev", "eth0"], check=True)
    player.lan.run(["ip", "addr", "add", f"{LAN}/24", "dev", "peer-eth0"], check=True)
    daemon = None
    if server == "chronyd":
        daemon = player.start_ntp_server(address=LAN)
    elif server == "kod":
        daemon = player.start_ntp_responder("kod", address=LAN)
    elif server == "silent-dns":
        player.write_file("/etc/resolv.conf", f"nameserver {LAN}\n")
        daemon = player.start_ntp_responder("silent", address=LAN, port=53)

    result = player.run([str(PROBE), answer], timeout=15)
    values = dict(line.split("=", 1) for line in result.stdout.splitlines())
    assert int(values["took_ms"]) < most_ms, values
    if error is None:
        assert result.returncode == 0, values
        assert abs(int(values["offset_ns"])) < 50_000_000, values
    else:
        assert (result.returncode, values["error"]) == (1, error)
    if server in ("kod", "silent-dns"):
        # No retry after a kiss-of-death; the lookup asked at least once.
        requests = daemon.log().count("request from")
        assert requests == 1 if server == "kod" else requests >= 1, daemon.log()
    if server == "silent-dns":
        assert int(values["took_ms"]) >= 1900, values
