#!/usr/bin/python3
"""Changes one place of a library or program at a time, and sees whether a test notices.

    mutation.py BUILD TARGET [--runs=N [--seed=N]] [--noticed=N] [--list] [FILE[:LINE]...]

BUILD is what script/proof builds: its tests run with each changed version in turn. TARGET is
libTavIDL, Host or tavctl: mutation_targets.py has their sources and tests. All changes are made, in
the whole target, in the named files, or in single lines. A change that no test notices is listed.
equivalent.toml has those that none can notice. --runs leaves these out, and makes at most N random
ones of the others. Fails if fewer than N % are noticed; without that option, mutation_targets.py says
how many. The last line has the same form as in the other programs here.
"""

import argparse
import concurrent.futures
import filecmp
import glob
import os
import random
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import tomllib

from clang import cindex

from mutants import Finder
from mutation_targets import TARGETS

HERE = os.path.dirname(os.path.abspath(__file__))
# A test that takes longer counts as a hang: in processor time, and compared with what the same test
# takes without a change.
PROCESSOR_SECONDS = 60
TIMES_LONGER, SECONDS_LONGER = 4, 30
JOBS = 2 * os.cpu_count()  # many tests mostly wait
BYTES = 2 << 30  # a test that does not end could also use up all memory


class Variant:
    """Builds a copy of the sources with one change at a time, and tests the result."""

    def __init__(self, build, name, target, flags="", **environment):
        directory = os.path.join(build, "mutation", name)
        self.source = os.path.join(directory, "source")
        self.directory = os.path.join(directory, "build")
        self.target = target
        self.places = {"build": build, "source": os.getcwd()}
        self.environment = environment
        # The sanitizer reserves more than there is.
        self.memory = "unlimited" if environment else BYTES
        self.lock = threading.Lock()  # one change is built while others are tested
        self.changed = None  # a file, and its text without the change
        self.unchanged_product = None
        self.seconds = {}  # for each test
        self.copy_sources()
        subprocess.run(
            ("cmake", "-S", self.source, "-B", self.directory, "-G", "Ninja",
             "-DCMAKE_BUILD_TYPE=Debug", f"-DCMAKE_CXX_FLAGS_DEBUG=-O0 -w {flags}",
             "-DTAVIDL_BUILD_TOOLS=ON",
             f"-DCMAKE_PROJECT_TavIDL_INCLUDE={HERE}/mutation.cmake"),
            check=True, stdout=subprocess.DEVNULL)

    def copy_sources(self):
        """Only files that differ, so that only these are compiled again."""
        for folder in ("cmake", "doc", "idl", "TavIDL", "tools"):
            for original in glob.glob(folder + "/**", recursive=True):
                copy = os.path.join(self.source, original)
                if os.path.isdir(original):
                    os.makedirs(copy, exist_ok=True)
                elif not os.path.exists(copy) or not filecmp.cmp(original, copy, shallow=False):
                    shutil.copyfile(original, copy)
        shutil.copyfile("CMakeLists.txt", os.path.join(self.source, "CMakeLists.txt"))

    def write(self, file, text):
        with open(os.path.join(self.source, file), "w", encoding="utf-8") as opened:
            opened.write(text)

    def build(self, mutant, result):
        """Returns whether it compiles. `result` is a directory for the product."""
        with self.lock:
            if self.changed:
                self.write(*self.changed)
            if mutant:
                with open(os.path.join(self.source, mutant.file), encoding="utf-8") as opened:
                    self.changed = mutant.file, opened.read()
                self.write(mutant.file, mutant.applied(self.changed[1]))
            ended = subprocess.run(
                ("cmake", "--build", self.directory, "--target", self.target.cmake_target),
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
            if ended.returncode == 0:
                product = glob.glob(self.target.product, root_dir=self.directory)
                subprocess.run(("cp", "-d", "--parents", *product, result), cwd=self.directory,
                               check=True)
        return ended.returncode == 0

    def product(self, directory):
        contents = []
        for file in sorted(glob.glob(self.target.product, root_dir=directory)):
            with open(os.path.join(directory, file), "rb") as opened:
                contents.append(opened.read())
        return contents

    def passes(self, test, changed, output=subprocess.DEVNULL):
        places = {**self.places, "changed": changed}
        environment = {name: value.format(**places)
                       for name, value in self.target.environment.items()}
        limited = ("prlimit", f"--cpu={PROCESSOR_SECONDS}", f"--data={self.memory}",
                   # In the background, or after nohup, some signals are ignored.
                   "env", "--default-signal", *test.format(**places).split())
        with tempfile.TemporaryDirectory() as scratch:
            with subprocess.Popen(limited, cwd=scratch, start_new_session=True,
                                  env={**os.environ, **self.environment, **environment},
                                  stdin=subprocess.DEVNULL, stdout=output,
                                  stderr=subprocess.STDOUT) as process:
                try:
                    return process.wait(self.seconds.get(test)) == 0
                except subprocess.TimeoutExpired:
                    return False
                finally:
                    try:  # also what the test has started
                        os.killpg(process.pid, signal.SIGKILL)
                    except ProcessLookupError:
                        pass

    def try_unchanged(self, tests):
        with tempfile.TemporaryDirectory() as changed:
            if not self.build(None, changed):
                sys.exit("mutation: the unchanged sources do not compile")
            self.unchanged_product = self.product(changed)

            def try_one(test):
                begin = time.monotonic()
                with tempfile.TemporaryFile("w+") as output:
                    if not self.passes(test, changed, output):
                        output.seek(0)
                        sys.exit(f"{output.read()[-2000:]}\n"
                                 f"mutation: without a change, {test} fails")
                self.seconds[test] = TIMES_LONGER * (time.monotonic() - begin) + SECONDS_LONGER

            with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
                list(pool.map(try_one, tests))

    def noticed_by(self, mutant, tests):
        """Returns whether the change compiles to anything else, and the first test that notices
        it, or None."""
        with tempfile.TemporaryDirectory() as changed:
            # The same product comes from a part that the preprocessor leaves out, for example.
            if not self.build(mutant, changed) or self.product(changed) == self.unchanged_product:
                return False, None
            return True, next((test for test in tests if not self.passes(test, changed)), None)


def arguments():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("build", type=os.path.abspath)
    parser.add_argument("target", choices=TARGETS)
    parser.add_argument("places", nargs="*")
    parser.add_argument("--runs", type=int)
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    parser.add_argument("--noticed", type=int)
    parser.add_argument("--list", action="store_true")
    return parser.parse_intermixed_args()


def mutants_in(places, target, build):
    """All changes in files or lines."""
    commands = cindex.CompilationDatabase.fromDirectory(build)
    for place in places:
        file, _, line = place.partition(":")
        for mutant in Finder(file, target.headers.get(file, file), commands).mutants():
            if not line or mutant.line == int(line):
                yield mutant


def excused():
    with open(os.path.join(HERE, "equivalent.toml"), "rb") as file:
        return {(entry["file"], entry["change"]) for entry in tomllib.load(file)["mutant"]}


def main():
    options = arguments()
    target = TARGETS[options.target]
    places = options.places or target.files()
    mutants = every = list(mutants_in(places, target, options.build))
    equivalent = excused()
    if options.runs:
        mutants = [mutant for mutant in every if mutant.key() not in equivalent]
        if options.runs < len(mutants):
            print(f"{options.runs} of {len(mutants)} changes: --seed={options.seed}", flush=True)
            mutants = sorted(random.Random(options.seed).sample(mutants, options.runs))
    if options.list:
        for mutant in mutants:
            print(f"{mutant.file}:{mutant.line}: {mutant.what}")
        return

    plain = Variant(options.build, options.target, target)
    plain.try_unchanged(sorted({test for m in mutants for test in target.tests_of(m.file)}))
    if target.sanitized_tests:
        runtime = subprocess.run(("g++", "-print-file-name=libasan.so"), check=True,
                                 capture_output=True, text=True).stdout.strip()
        sanitized = Variant(options.build, options.target + "-sanitized", target,
                            "-fsanitize=address", LD_PRELOAD=runtime,
                            ASAN_OPTIONS="detect_leaks=0")
        sanitized.try_unchanged(target.sanitized_tests)

    def noticed_by(mutant):
        compiles, test = plain.noticed_by(mutant, target.tests_of(mutant.file))
        if compiles and test is None and target.sanitized_tests:
            _, test = sanitized.noticed_by(mutant, target.sanitized_tests)
        return mutant, compiles, test

    tried, alive, excusable = [], [], set()
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        for mutant, compiles, test in pool.map(noticed_by, mutants):
            where = f"{mutant.file}:{mutant.line}"
            tried += [mutant] if compiles else []
            if test:
                print(f"{test}: {where}: {mutant.what}", flush=True)
            elif compiles and mutant.key() in equivalent:
                excusable.add(mutant.key())
            elif compiles:
                alive.append(mutant)
                again = shlex.join((sys.argv[0], sys.argv[1], options.target, where))
                print(f"nothing notices {where}: {mutant.what}\n  {again}", flush=True)

    # What is not there any more, and what a test notices. The latter needs all changes of a file: two
    # of them can look the same, and only one be noticed.
    needed = {mutant.key() for mutant in every} if options.runs else excusable
    needless = {key for key in equivalent - needed if key[0] in places}
    for file, what in needless:
        print(f"FAILED: not needed in equivalent.toml: {file}: {what}")
    share = 100 * (len(tried) - len(alive)) / max(len(tried), 1)
    failures = len(needless)
    enough = options.noticed or target.noticed
    if share < enough:
        failures += len(alive)
        print(f"FAILED: less than {enough} % are noticed")
    noticed = f", {share:.1f} % noticed" if alive else ""
    print(f"proof: {len(tried)} runs, {failures} failures{noticed}")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
