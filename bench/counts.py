#!/usr/bin/env python3
"""Prints what whole calls cost, as ratios to what the Thrift compiler makes.

    counts.py BUILD     the directory of a Release build with -DTAVIDL_BUILD_BENCH=ON

A call is the client's send, the processor, and the client's receive, over memory buffers.
Instructions are callgrind's: exact for one machine's compiler and libraries.
"""

import os
import sys

from measure import ENCODINGS, counts, mean, text_size


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: counts.py BUILD")
    build = sys.argv[1]
    instructions, allocations = counts(os.path.join(build, "bench/bench_counts"))
    ours = [cell[1:] for cell in instructions if cell[0] == "ours"]

    def ratio(cell, other):
        return instructions[("ours", *cell)] / instructions[(other, *cell)]

    print("instructions, geometric means   of generated   of templates   dearest call of generated")
    for encoding in ENCODINGS:
        cells = [cell for cell in ours if cell[1] == encoding]
        print(f"  {encoding:<30}" +
              "".join(f"{mean([ratio(cell, other) for cell in cells]):12.3f}   "
                      for other in ("generated", "templates")) +
              f"{max(ratio(cell, 'generated') for cell in cells):25.3f}")
    more = [cell for cell in ours
            if allocations[("ours", *cell)] > allocations[("generated", *cell)]]
    print(f"calls that allocate more often than generated ones: {len(more)} of {len(ours)}")
    library, generated = (text_size(os.path.join(build, name))
                          for name in ("TavIDL/libTavIDL.so", "bench/libbench_generated.so"))
    print(f"text, stripped: {library} bytes, {library / generated:.3f} of generated")


if __name__ == "__main__":
    main()
