#!/usr/bin/env python3
"""Runs rows of the table in doc/reliability.md, and writes their figures into it.

    results.py BUILD SIZE [ROW...]    SIZE is ci or release; all rows if none is named

Rows that are not run keep their figures. Fails if one of those that are run fails.
"""

import datetime
import os
import re
import resource
import subprocess
import sys
from typing import NamedTuple

PAGE = "doc/reliability.md"
BEGIN, END = "<!-- results: proof -->\n", "<!-- end of results -->\n"
HEADER = ("Row", "Size", "Runs", "Processor time", "Found", "When", "Commit")


class Row(NamedTuple):
    """A program of build/proof/tests/proof, and what it is run with before a release."""
    name: str
    release: tuple = ()


ROWS = (
    Row("allocations"),
    Row("calls"),
    Row("messages"),
    Row("differential", ("--runs=100000000",)),
)


def table():
    """The rows of the page's table, by their names."""
    with open(PAGE, encoding="utf-8") as file:
        text = file.read()
    lines = text.split(BEGIN)[1].split(END)[0].splitlines()[2:]
    cells = [[cell.strip() for cell in line.strip("|").split("|")] for line in lines]
    return {row[0]: row for row in cells}


def write(rows):
    lines = [HEADER, ["---"] * len(HEADER),
             *(rows[row.name] for row in ROWS if row.name in rows)]
    new = "".join("| " + " | ".join(line) + " |\n" for line in lines)
    with open(PAGE, encoding="utf-8") as file:
        before, rest = file.read().split(BEGIN)
    after = rest.split(END)[1]
    with open(PAGE, "w", encoding="utf-8") as file:
        file.write(before + BEGIN + new + END + after)


def commit():
    def git(*command):
        return subprocess.run(("git", *command), check=True, capture_output=True,
                              text=True).stdout.strip()
    changed = git("status", "--porcelain", "--untracked-files=no", "--", ".", ":!" + PAGE)
    return git("rev-parse", "--short", "HEAD") + (" and changes" if changed else "")


def seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def measure(row, build, size):
    """Runs a row. Returns its cells of the table, and whether it passed."""
    print(f"-- {row.name}", flush=True)
    command = [os.path.join(build, "tests/proof", f"proof_{row.name}")]
    at, before = commit(), seconds()
    with subprocess.Popen(command + list(row.release if size == "release" else ()),
                          stdout=subprocess.PIPE, text=True) as program:
        last = ""
        for last in program.stdout:
            print(last, end="", flush=True)
    counts = re.fullmatch(r"proof: (\d+) runs, (\d+) failures\n", last)
    good = program.returncode == 0 and counts is not None
    found = "nothing" if good else f"{counts[2]} failures" if counts else "ended before its end"
    full = size if row.release else "all"
    return (row.name, full, f"{int(counts[1]):,}" if counts else "?",
            f"{seconds() - before:,.0f} s", found, datetime.date.today().isoformat(), at), good


def main():
    if len(sys.argv) < 3 or sys.argv[2] not in ("ci", "release"):
        sys.exit(__doc__)
    build, size, *names = sys.argv[1:]
    unknown = set(names) - {row.name for row in ROWS}
    if unknown:
        sys.exit(f"proof: no row {', '.join(unknown)} (rows: {', '.join(r.name for r in ROWS)})")
    bad = []
    for row in ROWS:
        if not names or row.name in names:
            cells, good = measure(row, build, size)
            write({**table(), row.name: cells})
            bad += [] if good else [row.name]
    sys.exit(f"proof: failed: {', '.join(bad)}" if bad else 0)


if __name__ == "__main__":
    main()
