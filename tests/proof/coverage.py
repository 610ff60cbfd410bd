#!/usr/bin/env python3
"""Measures which lines, branches and conditions of libTavIDL and Host the tests reach.

    coverage.py

Separately for each instantiation of each template: regions of code, both directions of each branch,
and for libTavIDL modified condition/decision coverage, which needs clang 18 or later. Everything
must be reached except what uncovered.toml lists, with reasons. The last line has the same form as
in the other programs here; a run is one thing to reach.
"""

import glob
import json
import os
import subprocess
import sys
import tomllib

HERE = os.path.dirname(os.path.abspath(__file__))
BUILD = os.path.abspath("build/proof-coverage")
CLANG = "19"
FLAGS = "-fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc"
TESTS = ("records/records_test", "broker/broker_test", "emp/emp_test", "event/event_test",
         "wire/wire_test", "interop/interop_test", "proof/unknown_fields_test",
         "proof/proof_calls", "proof/proof_messages", "proof/proof_allocations",
         "proof/proof_differential --runs=20000", "modules/program_test",
         "host/host_client_test", "host/host_server_test", "proof/proof_system_calls",
         "proof/proof_host_allocations", "proof/proof_soak --runs=5000",
         "proof/proof_threads --runs=5000")
LIBRARIES = ("TavIDL/libTavIDL.so", "TavIDL/host/libTavIDLHost.so")


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, **options)


def build():
    run("cmake", "-S", ".", "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
        f"-DCMAKE_CXX_COMPILER=clang++-{CLANG}", f"-DCMAKE_CXX_FLAGS={FLAGS}",
        "-DTAVIDL_BUILD_TESTS=ON", "-DTAVIDL_BUILD_HOST=ON", "-DTAVIDL_TEST_LANGUAGES=OFF",
        stdout=subprocess.DEVNULL)
    run("cmake", "--build", BUILD, "--target",
        *(os.path.basename(test.split()[0]) for test in TESTS), stdout=subprocess.DEVNULL)


def program(test):
    return os.path.join(BUILD, "tests", test.split()[0])


def profile():
    """Runs the tests. Returns all functions of the libraries with their counts."""
    profiles = os.path.join(BUILD, "profiles")
    for old in glob.glob(profiles + "/*"):
        os.remove(old)
    for test in TESTS:
        print(f"-- {test}", flush=True)
        run(program(test), *test.split()[1:], stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env={**os.environ, "LLVM_PROFILE_FILE": os.path.join(profiles, "%m.profraw")})
    merged = os.path.join(BUILD, "all.profdata")
    run(f"llvm-profdata-{CLANG}", "merge", "-o", merged, *glob.glob(profiles + "/*"))
    # Only programs have the inline functions that the libraries themselves do not use.
    objects = [os.path.join(BUILD, library) for library in LIBRARIES] + [program(t) for t in TESTS]
    found = run(f"llvm-cov-{CLANG}", "export", "-dump", "-instr-profile", merged, objects[0],
                *(f"-object={each}" for each in objects[1:]), capture_output=True)
    # llvm-cov leaves out functions that do not match their counts. Objects also name the inline
    # functions that they do not use, with the hash 0.
    left_out = [line for line in found.stderr.splitlines()
                if line.startswith("hash-mismatch") and not line.endswith("hash = 0x0")]
    if left_out:
        sys.exit("\n".join(left_out))
    sources = os.path.abspath("TavIDL") + "/"
    data = json.loads(found.stdout[found.stdout.index('{"data"'):])["data"][0]
    return [function for function in data["functions"]
            if function["filenames"][0].startswith(sources)]


def goals(function, file):
    """What there is to reach: where, what, in which instantiation, and whether it was reached."""
    # In Host, any instantiation will do.
    whole = file.startswith("host/")
    name = "" if whole else function["name"]
    for line, column, _, _, count, _, _, kind in function["regions"]:
        if kind == 0:
            yield (file, line, column, "code", name), count > 0
    for line, column, _, _, true, false, *_ in function["branches"]:
        yield (file, line, column, "true", name), true > 0
        yield (file, line, column, "false", name), false > 0
    for record in [] if whole else function.get("mcdc_records", []):
        for number, reached in enumerate(record[-1], 1):
            yield (file, *record[:2], f"condition {number} decides alone", name), reached


def text_of(file, line):
    with open(os.path.join("TavIDL", file), encoding="utf-8") as source:
        return source.read().splitlines()[line - 1].strip()


def main():
    if len(sys.argv) != 1:
        sys.exit(__doc__)
    with open(os.path.join(HERE, "uncovered.toml"), "rb") as file:
        known = {(entry["file"], entry["line"], entry["what"])
                 for entry in tomllib.load(file).get("place", [])}
    build()
    reached = {}
    for function in profile():
        file = os.path.relpath(function["filenames"][0], "TavIDL")
        for goal, good in goals(function, file):
            reached[goal] = reached.get(goal, False) or good
    failures, used = [], set()
    for file, line, column, what, name in sorted(goal for goal in reached if not reached[goal]):
        key = (file, text_of(file, line), what)
        if key in known:
            used.add(key)
        else:
            readable = run(f"llvm-cxxfilt-{CLANG}", name.split(":")[-1], stdout=subprocess.PIPE)
            failures.append(f"{file}:{line}:{column}: {what}: {key[1]} {readable.stdout}".strip())
    failures += [f"not needed in uncovered.toml: {file}: {line}: {what}"
                 for file, line, what in known - used]
    for failure in failures:
        print(f"FAILED: {failure}")
    print(f"proof: {len(reached)} runs, {len(failures)} failures")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
