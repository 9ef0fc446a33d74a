"""A tiny NTP server that answers every request in one chosen way, for tests.

    ntp_responder.py MODE [--address ADDR] [--port PORT] [--offset SECONDS | --at TIME]

MODE is one of
  good        a valid server reply (stratum 2) with this machine's clock moved
              by --offset seconds (a float; default 0), or with the Unix time --at
              when it started, running on from there (without reading the wall
              clock, which a 32-bit Python cannot past 2038);
  kod         a kiss-of-death: stratum 0, kiss code "RATE";
  wrong-mode  a reply in mode 5 (broadcast) instead of 4 (server);
  no-echo     a reply whose originate timestamp is not the request's;
  truncated   a good reply cut to 47 bytes;
  silent      no reply at all.
Listens on ADDR (default every address) and PORT (default 123), prints
"ready" once bound, and one line "request from HOST:PORT" per request.
"""

import argparse
import socket
import struct
import sys
import time

NTP_TO_UNIX = 2208988800
MODES = ("good", "kod", "wrong-mode", "no-echo", "truncated", "silent")


def timestamp(unix_ns):
    """The 64-bit NTP timestamp of a Unix time (its seconds wrap in 2036)."""
    seconds, nanoseconds = divmod(unix_ns, 1_000_000_000)
    return struct.pack("!II", (seconds + NTP_TO_UNIX) % 2**32, (nanoseconds << 32) // 10**9)


def reply(mode, request, now_ns):
    """The answer to one request at the time now_ns, or None."""
    if mode == "silent" or len(request) < 48:
        return None
    now = timestamp(now_ns)
    kod = mode == "kod"
    first = (3 if kod else 0) << 6 | 4 << 3 | (5 if mode == "wrong-mode" else 4)
    origin = request[40:48]
    if mode == "no-echo":
        origin = origin[:7] + bytes([origin[7] ^ 1])
    packet = (struct.pack("!BBbbII4s", first, 0 if kod else 2, 6, -20, 0, 0,
                          b"RATE" if kod else b"LOCL")
              + now + origin + now + now)
    return packet[:47] if mode == "truncated" else packet


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("mode", choices=MODES)
    parser.add_argument("--address", default="0.0.0.0")
    parser.add_argument("--port", type=int, default=123)
    parser.add_argument("--offset", type=float, default=0.0)
    parser.add_argument("--at", type=float)
    args = parser.parse_args()
    if args.at is None:
        offset_ns = int(args.offset * 1e9)
        clock = time.time_ns
    else:
        offset_ns = int(args.at * 1e9) - time.monotonic_ns()
        clock = time.monotonic_ns
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind((args.address, args.port))
    print("ready", flush=True)
    while True:
        request, peer = sock.recvfrom(2048)
        print(f"request from {peer[0]}:{peer[1]}", flush=True)
        answer = reply(args.mode, request, clock() + offset_ns)
        if answer is not None:
            sock.sendto(answer, peer)


if __name__ == "__main__":
    sys.exit(main())
