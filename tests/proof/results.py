#!/usr/bin/env python3
"""Runs rows of the table in doc/reliability.md, and writes their figures into it.

    results.py BUILD SIZE [ROW...]    all rows if none is named

SIZE is ci, release, or the number of runs of random rows. Rows that are not run keep their
figures, and so do those of which ci runs only what changed. Fails if one of those that are run
fails.
"""

import datetime
import os
import re
import resource
import subprocess
import sys
from typing import NamedTuple

from mutation_targets import TARGETS

PAGE = "doc/reliability.md"
BEGIN, END = "<!-- results: proof -->\n", "<!-- end of results -->\n"
SIZES = ("ci", "release")
HEADER = ("Row", "Size", "Runs", "Processor time", "Found", "When", "Commit")


class Row(NamedTuple):
    """What is run; {build} stands for the build directory."""
    name: str
    command: tuple
    release: tuple = ()  # added before a release
    ci: tuple = ()  # added in CI
    changed_files: tuple = ()  # of these, those that changed since the row's last run are added in CI


def program(name):
    return ("{build}/tests/proof/proof_" + name,)


def mutation(name, target, **options):
    return Row(name, ("tests/proof/mutation.py", "{build}", target),
               changed_files=TARGETS[target].files(), **options)


# Always the same ones of a file, so that CI's result does not depend on luck.
FEW_CHANGES = ("--runs=40", "--seed=1")
# Few of them fail only if tests are missing: if 90 % of all are noticed, 75 % of 40 are in 679 of 680
# samples.
MOST_OF_FEW = (*FEW_CHANGES, "--noticed=75")

ROWS = (
    Row("allocations", program("allocations")),
    Row("allocations-armhf", ("tests/proof/preset.sh", "armhf", "allocations")),
    Row("calls", program("calls")),
    Row("messages", program("messages")),
    Row("differential", program("differential"), release=("--runs=100000000",)),
    Row("python-peer", ("tests/proof/python_peer.py", "{build}"), release=("--runs=1000000",)),
    Row("fuzzing", ("tests/proof/fuzz.py",), release=("--runs=125000000", "--seconds=7200")),
    mutation("mutation", "libTavIDL", ci=FEW_CHANGES),
    mutation("mutation-host", "Host", release=("--runs=200",), ci=MOST_OF_FEW),
    mutation("mutation-tavctl", "tavctl", release=("--runs=200",), ci=MOST_OF_FEW),
    Row("coverage", ("tests/proof/coverage.py",)),
    Row("system-calls", program("system_calls")),
    Row("host-allocations", program("host_allocations")),
    Row("host-allocations-armhf", ("tests/proof/preset.sh", "armhf", "host_allocations")),
    Row("soak", program("soak"), release=("--runs=10000000",)),
    Row("threads", program("threads"), release=("--runs=10000000",)),
    Row("threads-sanitized", ("tests/proof/preset.sh", "tsan", "threads"),
        release=("--runs=10000000",)),
    Row("hostile-peers", ("tests/proof/host/hostile.py", "{build}/tools/tavctl/tavctl",
                          "{build}/examples"), release=("--all",)),
    Row("test-suite", ("tests/proof/suite.py",), release=("--all",)),
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


def git(*command):
    return subprocess.run(("git", *command), check=False, capture_output=True,
                          text=True).stdout.strip()


def commit():
    changed = git("status", "--porcelain", "--untracked-files=no", "--", ".", ":!" + PAGE)
    return git("rev-parse", "--short", "HEAD") + (" and changes" if changed else "")


def seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def arguments(row, size):
    """What is added to a row's command; None if there is nothing to run."""
    if row.changed_files and size == "ci":
        measured = table().get(row.name, [""])[-1].removesuffix(" and changes")
        if not measured or not git("rev-parse", "--verify", "--quiet", measured + "^{commit}"):
            return row.ci
        files = git("diff", "--name-only", measured, "--", *row.changed_files).split()
        return (*row.ci, *files) if files else None
    if not row.release or size == "ci":
        return row.ci
    if size == "release":
        return row.release
    return (f"--runs={size}",) if row.release[0].startswith("--runs=") else ()


def measure(row, build, size):
    """Runs a row. Returns its new cells of the table, if any, and whether it passed."""
    print(f"-- {row.name}", flush=True)
    added = arguments(row, size)
    if added is None:
        print("nothing has changed")
        return None, True
    command = [part.format(build=build) for part in row.command] + list(added)
    at, before = commit(), seconds()
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        last = ""
        for last in process.stdout:
            print(last, end="", flush=True)
    counts = re.fullmatch(r"proof: (\d+) runs, (\d+) failures(?:, (.+))?\n", last)
    good = process.returncode == 0 and counts is not None
    found = (counts[3] or "nothing" if good else f"{counts[2]} failures" if counts
             else f"it ended with status {process.returncode}")
    if row.changed_files and size == "ci":
        return None, good
    label = (size if size in SIZES else "a part") if row.release else "all"
    return (row.name, label, f"{int(counts[1]):,}" if counts else "?",
            f"{seconds() - before:,.0f} s", found, datetime.date.today().isoformat(), at), good


def main():
    if len(sys.argv) < 3 or not (sys.argv[2] in SIZES or sys.argv[2].isdigit()):
        sys.exit(__doc__)
    build, size, *names = sys.argv[1:]
    unknown = set(names) - {row.name for row in ROWS}
    if unknown:
        sys.exit(f"proof: no row {', '.join(unknown)} (rows: {', '.join(r.name for r in ROWS)})")
    bad = []
    for row in ROWS:
        if not names or row.name in names:
            cells, good = measure(row, build, size)
            if cells:
                write({**table(), row.name: cells})
            bad += [] if good else [row.name]
    sys.exit(f"proof: failed: {', '.join(bad)}" if bad else 0)


if __name__ == "__main__":
    main()
