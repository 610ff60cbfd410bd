#!/usr/bin/env python3
"""Runs tests many times, to find those that depend on luck: in random order, four at a time, while
all processors are busy with something else; then each alone.

    suite.py [--all] [--only=TEXT] [--repeat=N]

Builds the preset `release` first. Takes the tests of programs and of libthrift's servers, without
those of pages, packages and other languages and the other programs here, and runs them twice in the
first part and once in the second; with `--all` all tests, and 20 times in the first part.
`--only` is a regular expression for the names of other tests. The last line has the same form as in
the other programs here; a run is one execution of one test.
"""

import os
import re
import subprocess
import sys


PRESET = "release"
OF_PROGRAMS = "^(tavctl_|host[.]|examples_test|readme_test|servers_test)"


def build():
    for command in (("cmake", "--preset", PRESET), ("cmake", "--build", "--preset", PRESET)):
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def run(only, *options):
    """Returns how many tests ran, and the lines of those that failed."""
    ended = subprocess.run(["ctest", "--test-dir", f"build/{PRESET}", "-R", only, *options],
                           check=False, stdout=subprocess.PIPE, text=True, errors="replace")
    lines = re.findall(r"^ *\d+/\d+ Test +#\d+: .*|^ +Test +#\d+: .*", ended.stdout, re.MULTILINE)
    failed = [line.strip() for line in lines if " Passed " not in line]
    if ended.returncode != 0 and not failed:
        failed = [ended.stdout[-1000:] or "ctest has failed"]
    return len(lines), failed


def busy():
    """Keeps a processor busy until it is killed."""
    return subprocess.Popen([sys.executable, "-c", "while True: pass"])


def main():
    options = dict(word.lstrip("-").partition("=")[::2] for word in sys.argv[1:])
    if set(options) - {"all", "only", "repeat"}:
        sys.exit(__doc__)
    only = options.get("only", "" if "all" in options else OF_PROGRAMS)
    repeat = options.get("repeat", "20" if "all" in options else "2")

    build()
    hogs = [busy() for _ in range(os.cpu_count())]
    try:
        runs, failed = run(only, "-j4", "--schedule-random", "--repeat",
                           f"until-fail:{repeat}")
    finally:
        for hog in hogs:
            hog.kill()
            hog.wait()
    alone, failed_alone = run(only, "-j1", "--schedule-random")
    for what, lines in ((f"-j4 --schedule-random --repeat until-fail:{repeat}", failed),
                        ("-j1 --schedule-random", failed_alone)):
        for line in lines:
            print(f"FAILED: {line}\n  ctest --test-dir build/{PRESET} -R '{only}' {what}")
    failures = len(failed) + len(failed_alone)
    print(f"proof: {runs + alone} runs, {failures} failures")
    sys.exit(1 if failures or not runs else 0)


if __name__ == "__main__":
    main()
