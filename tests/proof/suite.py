#!/usr/bin/env python3
"""Runs the tests of a build many times, to find those that depend on luck: in random order, four at
a time, while all processors are busy with something else; then each alone.

    suite.py BUILD [--repeat=N] [--only=TEXT]

Each test runs N times (20) in the first part, and once in the second. `--only` is a regular
expression for the tests' names. The last line has the same form as in the other programs here; a
run is one execution of one test.
"""

import os
import re
import subprocess
import sys


def run(build, only, *options):
    """Returns how many tests ran, and the lines of those that failed."""
    ended = subprocess.run(["ctest", "--test-dir", build, "-R", only, *options], check=False,
                           stdout=subprocess.PIPE, text=True, errors="replace")
    lines = re.findall(r"^ *\d+/\d+ Test +#\d+: .*|^ +Test +#\d+: .*", ended.stdout, re.MULTILINE)
    failed = [line.strip() for line in lines if " Passed " not in line]
    if ended.returncode != 0 and not failed:
        failed = [ended.stdout[-1000:] or "ctest has failed"]
    return len(lines), failed


def busy():
    """Keeps a processor busy until it is killed."""
    return subprocess.Popen([sys.executable, "-c", "while True: pass"])


def main():
    build, *words = sys.argv[1:] or [None]
    options = dict(word.lstrip("-").partition("=")[::2] for word in words)
    if build is None or set(options) - {"repeat", "only"}:
        sys.exit(__doc__)
    only = options.get("only", "")
    repeat = options.get("repeat", "20")

    hogs = [busy() for _ in range(os.cpu_count())]
    try:
        runs, failed = run(build, only, "-j4", "--schedule-random", "--repeat",
                           f"until-fail:{repeat}")
    finally:
        for hog in hogs:
            hog.kill()
            hog.wait()
    alone, failed_alone = run(build, only, "-j1", "--schedule-random")
    for what, lines in ((f"-j4 --schedule-random --repeat until-fail:{repeat}", failed),
                        ("-j1 --schedule-random", failed_alone)):
        for line in lines:
            print(f"FAILED: {line}\n  ctest --test-dir {build} -R '{only}' {what}")
    failures = len(failed) + len(failed_alone)
    print(f"proof: {runs + alone} runs, {failures} failures")
    sys.exit(1 if failures or not runs else 0)


if __name__ == "__main__":
    main()
