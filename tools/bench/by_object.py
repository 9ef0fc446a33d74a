#!/usr/bin/python3
"""Self cost (instructions) per ELF object from a callgrind output file.

    /usr/bin/python3 tools/bench/by_object.py callgrind.out [N]

Shows where a run's instructions go: the dynamic loader, each library, linkrig.
Lists the N most costly objects (default 15), and with --functions their
most costly functions too.
"""

import collections
import re
import sys


def parse(path):
    """{object: {function: self cost}} from a callgrind out file (name
    compression resolved; a call's inclusive cost line is not self cost)."""
    names = {"ob": {}, "fn": {}, "fl": {}}
    cost = collections.defaultdict(lambda: collections.defaultdict(int))
    ob = fn = None
    after_call = False
    events_index = 0
    with open(path, errors="replace") as f:
        for line in f:
            line = line.rstrip("\n")
            m = re.match(r"^(c?)(ob|fn|fl|fi|fe)=(?:\((\d+)\))?\s*(.*)$", line)
            if m:
                called, kind, ident, name = m.groups()
                key = "fl" if kind in ("fi", "fe") else kind
                if ident:
                    if name:
                        names[key][ident] = name
                    name = names[key].get(ident, ident)
                if not called:
                    if kind == "ob":
                        ob = name
                    elif kind == "fn":
                        fn = name
                continue
            if line.startswith("calls="):
                after_call = True
                continue
            if line and (line[0].isdigit() or line[0] in "+-*"):
                if after_call:
                    after_call = False
                    continue
                parts = line.split()
                if len(parts) > 1 + events_index:
                    cost[ob][fn] += int(parts[1 + events_index])
    return cost


def main():
    args = [a for a in sys.argv[1:] if not a.startswith("--")]
    functions = "--functions" in sys.argv
    cost = parse(args[0])
    limit = int(args[1]) if len(args) > 1 else 15
    total = sum(sum(f.values()) for f in cost.values())
    print(f"total {total / 1e6:.2f} M")
    for ob, fns in sorted(cost.items(), key=lambda i: -sum(i[1].values()))[:limit]:
        print(f"{sum(fns.values()) / 1e6:8.3f} M  {ob}")
        if functions:
            for fn, c in sorted(fns.items(), key=lambda i: -i[1])[:8]:
                print(f"          {c / 1e6:8.3f} M  {fn}")


if __name__ == "__main__":
    main()
