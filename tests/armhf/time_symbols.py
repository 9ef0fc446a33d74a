"""A 32-bit program of ours calls glibc's 64-bit time functions only, never the 32-bit ones,
which fail from 2038-01-19 on.

    time_symbols.py READELF LIBC PROGRAM...

The 32-bit functions are those of which the target's glibc also has a 64-bit-time form
(__clock_gettime64 beside clock_gettime), less those whose time-bearing requests are numbered
per layout (ioctl, fcntl, prctl, socket options and messages without a time-out): a caller
built with 32-bit time passes the old numbers and gets the old layout, which is exact."""

import re
import subprocess
import sys

# The 64-bit-time entry points came with glibc 2.34.
TIME64 = re.compile(r"^_+(\w+?)(_time)?64(_r)?$")
NUMBERED_PER_LAYOUT = {"ioctl", "fcntl", "fcntl64", "prctl", "getsockopt", "setsockopt",
                       "recvmsg", "sendmsg", "sendmmsg"}
WANTED = {"__clock_gettime64", "__settimeofday64"}


def dynamic_symbols(readelf, path, defined):
    """{name: version} of the dynamic symbols the file defines (or imports)."""
    out = subprocess.run([readelf, "--dyn-syms", "-W", path], check=True,
                         capture_output=True, text=True).stdout
    symbols = {}
    for line in out.splitlines():
        fields = line.split()
        if len(fields) < 8 or not fields[0].endswith(":"):
            continue
        if (fields[6] != "UND") == defined and "@" in fields[7]:
            name, _, version = fields[7].partition("@")
            symbols[name] = version.lstrip("@")
    return symbols


def main(readelf, libc, *programs):
    time64, time32 = set(), set()
    for name, version in dynamic_symbols(readelf, libc, True).items():
        match = TIME64.match(name)
        if version == "GLIBC_2.34" and match:
            time64.add(name)
            base = match.group(1) + (match.group(3) or "")
            time32.update({base, base[:-2]} if base.endswith("64") else {base})
    if "__clock_gettime64" not in time64:
        sys.exit(f"{libc} has no 64-bit time functions")
    time32 -= NUMBERED_PER_LAYOUT
    failed, found = False, set()
    for program in programs:
        imports = dynamic_symbols(readelf, program, False)
        old = sorted(name for name in imports if name in time32)
        found |= time64 & imports.keys()
        if old:
            print(f"{program} imports 32-bit time functions: {', '.join(old)}")
            failed = True
    print(f"64-bit time functions imported: {', '.join(sorted(found))}")
    if not WANTED <= found:
        print(f"missing: {', '.join(sorted(WANTED - found))}")
        failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
