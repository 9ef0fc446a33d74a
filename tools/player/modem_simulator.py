"""A Hayes modem on the far end of a terminal line, for dial-up tests.

    modem_simulator.py LINE TRANSCRIPT [--dial ANSWER] [--then COMMAND...]

Opens the terminal LINE, puts it in raw mode and answers commands ended by a
carriage return: "ATZ" and any other "AT..." command with "OK", "ATDT<number>"
with ANSWER ("CONNECT" unless told otherwise; "BUSY", "NO CARRIER", ...), an
empty command with nothing, anything else with "ERROR".  After "CONNECT" the
line is in data mode: nothing more is answered, or with --then the simulator
becomes COMMAND (everything after --then), which finds the line open as its
standard input (a pppd answering the call; name LINE in its arguments).
Every command and its answer is appended to TRANSCRIPT as one JSON object
per line.  Prints "ready" once it listens.
"""

import argparse
import json
import os
import termios
import tty


def answer(command, dial_answer):
    if command == "":
        return None
    if command.upper().startswith("ATDT"):
        return dial_answer
    if command.upper().startswith("AT"):
        return "OK"
    return "ERROR"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("line")
    parser.add_argument("transcript")
    parser.add_argument("--dial", default="CONNECT")
    parser.add_argument("--then", nargs=argparse.REMAINDER, default=[])
    args = parser.parse_args()

    fd = os.open(args.line, os.O_RDWR | os.O_NOCTTY)
    # TCSANOW: flushing (TCSAFLUSH) could eat what the dialler already sent.
    tty.setraw(fd, termios.TCSANOW)
    open(args.transcript, "w").close()
    print("ready", flush=True)

    pending = b""
    connected = False
    while True:
        try:
            data = os.read(fd, 4096)
        except OSError:  # the other side of the line went away
            break
        if not data:
            break
        if connected:
            continue
        pending += data
        while b"\r" in pending and not connected:
            raw, pending = pending.split(b"\r", 1)
            command = raw.replace(b"\n", b"").decode(errors="replace").strip()
            reply = answer(command, args.dial)
            with open(args.transcript, "a") as f:
                f.write(json.dumps({"command": command, "answer": reply}) + "\n")
            if reply is not None:
                os.write(fd, f"\r\n{reply}\r\n".encode())
            connected = reply == "CONNECT"
        if connected and args.then:
            # The line stays open through the exec: were it closed even for
            # a moment, socat would see the hangup and end the line.
            os.dup2(fd, 0)
            os.execvp(args.then[0], args.then)


if __name__ == "__main__":
    main()
