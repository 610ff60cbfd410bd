#!/usr/bin/env python3
"""Compares the exact figures of two builds of the library, to judge a change or a flag.

    compare.py BUILD OTHER    directories of Release builds with -DTAVIDL_BUILD_BENCH=ON

Prints the second one's figures relative to the first one's.
"""

import os
import sys

from measure import OBJECTS, PROTOCOLS, counts, mean, stripped_sizes


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: compare.py BUILD OTHER")
    first, second = (counts(build)[0] for build in sys.argv[1:])
    print(f"{'instructions of a call':<26}{'mean':>8}{'least':>8}{'most':>8}")
    for encoding in PROTOCOLS:
        shares = [second[cell] / first[cell] for cell in first
                  if cell[0] == "ours" and cell[2] == encoding]
        print(f"  {encoding:<24}{mean(shares):8.3f}{min(shares):8.3f}{max(shares):8.3f}")
    first, second = (stripped_sizes(os.path.join(build, OBJECTS["ours"]))[0]
                     for build in sys.argv[1:])
    print(f"{'text':<26}{second / first:8.3f}   {first} and {second} bytes")


if __name__ == "__main__":
    main()
