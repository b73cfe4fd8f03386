#!/usr/bin/env python3
"""Instructions per function of a program run under qemu-arm with bench/insn_count.c's
per-block counts, as the difference of two runs divided by a count (so that set-up
cancels out, as in scripts/instructions.sh).

  qemu-arm -plugin build/libinsn_count.so,blocks=on -d plugin PROG ARGS... 2> run.txt
  scripts/arm_profile.py PROG run.txt [baseline.txt DIVISOR]

Blocks outside the program (the C library, the loader) are charged to "(outside)". qemu
loads a position-independent program at 0x40000000 (override with LUMIVEX_LOAD_BASE)."""
import bisect
import collections
import os
import subprocess
import sys


def symbols(program):
    out = subprocess.run(["nm", "-C", "--defined-only", "-n", program], check=True,
                         capture_output=True, text=True).stdout
    starts, names = [], []
    for line in out.splitlines():
        parts = line.split(" ", 2)
        if len(parts) == 3 and parts[1] in "tTwW" and not parts[2].startswith("$"):
            starts.append(int(parts[0], 16) & ~1)  # Thumb addresses carry a set low bit
            names.append(parts[2])
    return starts, names


def charge(path, starts, names, base):
    totals = collections.Counter()
    end = starts[-1] + 0x10000 if starts else 0
    with open(path) as f:
        for line in f:
            if not line.startswith("block "):
                continue
            _, addr, count = line.split()
            a = int(addr, 16) - base
            if a < 0 or a >= end:
                totals["(outside)"] += int(count)
                continue
            i = bisect.bisect_right(starts, a) - 1
            totals[names[i] if i >= 0 else "(outside)"] += int(count)
    return totals


def main():
    if len(sys.argv) not in (3, 5):
        sys.exit(__doc__)
    program, run = sys.argv[1], sys.argv[2]
    base = int(os.environ.get("LUMIVEX_LOAD_BASE", "0x40000000"), 16)
    starts, names = symbols(program)
    totals = charge(run, starts, names, base)
    divisor = 1
    if len(sys.argv) == 5:
        totals.subtract(charge(sys.argv[3], starts, names, base))
        divisor = int(sys.argv[4])
    for name, count in sorted(totals.items(), key=lambda kv: -kv[1]):
        if count / divisor < 500:
            break
        print(f"{count // divisor:>10}  {name[:110]}")


if __name__ == "__main__":
    main()
