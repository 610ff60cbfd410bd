#!/usr/bin/env python3
"""Measures which code of libTavIDL, Host and tavctl the tests reach.

    coverage.py

Regions of code, and both directions of each branch. For libTavIDL separately for each instantiation
of each template, with modified condition/decision coverage, which needs clang 18 or later. The
libraries have to be reached by their own tests; tavctl by its tests, which start it. Everything must
be reached except what uncovered.toml lists, with reasons. The last line has the same form as in the
other programs here; a run is one thing to reach.
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
# Counters that can be relocated can be kept in a file while programs run; those of threads and
# processes that run at the same time have to be atomic. (MC/DC is not kept there, as a warning says.)
FLAGS = "-fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc -fprofile-update=atomic " \
        "-mllvm -runtime-counter-relocation -Wno-backend-plugin"
TESTS = ("records/records_test", "broker/broker_test", "emp/emp_test", "event/event_test",
         "wire/wire_test", "interop/interop_test", "proof/unknown_fields_test",
         "proof/proof_calls", "proof/proof_messages", "proof/proof_allocations",
         "proof/proof_differential --runs=20000", "modules/program_test",
         "host/host_client_test", "host/host_server_test", "proof/proof_system_calls",
         "proof/proof_host_allocations", "proof/proof_soak --runs=5000",
         "proof/proof_threads --runs=5000")
LIBRARIES = ("TavIDL/libTavIDL.so", "TavIDL/host/libTavIDLHost.so")
TOOL = "tools/tavctl/tavctl"
TOOL_TESTS = ("ctest", "--test-dir", BUILD, "-R", "^tavctl_", "--output-on-failure")
TOOL_PEERS = ("tools_peer", "tools_peers", "example_broker", "example_emp", "example_callback")


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, **options)


def build():
    run("cmake", "-S", ".", "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
        f"-DCMAKE_CXX_COMPILER=clang++-{CLANG}", f"-DCMAKE_CXX_FLAGS={FLAGS}",
        "-DTAVIDL_BUILD_TESTS=ON", "-DTAVIDL_BUILD_HOST=ON", "-DTAVIDL_BUILD_TOOLS=ON",
        "-DTAVIDL_TEST_LANGUAGES=OFF", "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON", stdout=subprocess.DEVNULL)
    run("cmake", "--build", BUILD, "--target", *TOOL_PEERS,
        *(os.path.basename(test.split()[0]) for test in (*TESTS, TOOL)), stdout=subprocess.DEVNULL)


def program(test):
    return os.path.join(BUILD, "tests", test.split()[0])


def profile(name, file, commands, objects, sources):
    """Runs commands. Returns all functions of the sources with their counts in the objects."""
    profiles = os.path.join(BUILD, "profiles", name)
    for old in glob.glob(profiles + "/*"):
        os.remove(old)
    for command in commands:
        print(f"-- {os.path.basename(command[0])}", flush=True)
        # In the background, or after nohup, some signals are ignored.
        ended = subprocess.run(("env", "--default-signal", *command), check=False,
                               stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, errors="replace",
                               env={**os.environ, "LLVM_PROFILE_FILE": f"{profiles}/{file}",
                                    "PATIENCE": "600"})  # these programs are slow
        if ended.returncode != 0:
            sys.exit(f"{ended.stdout}\nit ended with status {ended.returncode}")
    merged = os.path.join(BUILD, name + ".profdata")
    run(f"llvm-profdata-{CLANG}", "merge", "-o", merged, *glob.glob(profiles + "/*"))
    # The JSON comes after what "-dump" prints, some of which is not text in rare cases.
    found = run(f"llvm-cov-{CLANG}", "export", "-dump", "-instr-profile", merged, objects[0],
                *(f"-object={each}" for each in objects[1:]), capture_output=True,
                errors="replace")
    # llvm-cov leaves out functions that do not match their counts. Objects also name the inline
    # functions that they do not use, with the hash 0.
    left_out = [line for line in found.stderr.splitlines()
                if line.startswith("hash-mismatch") and not line.endswith("hash = 0x0")]
    if left_out:
        sys.exit("\n".join(left_out))
    data = json.loads(found.stdout[found.stdout.index('{"data"'):])["data"][0]
    return [function for function in data["functions"]
            if function["filenames"][0].startswith(os.path.abspath(sources) + "/")]


def profiles():
    tests = [(program(test), *test.split()[1:]) for test in TESTS]
    # Only programs have the inline functions that the libraries themselves do not use.
    objects = [os.path.join(BUILD, library) for library in LIBRARIES] + [test[0] for test in tests]
    # "%c" keeps the counters in the file while tavctl runs: tests kill it, or make it end at once.
    # The count of a way without a counter of its own, such as that of a missing "else", is what is
    # left of the others'. So a process that was killed where it waits may seem to have gone there.
    return (profile("libraries", "%m.profraw", tests, objects, "TavIDL") +
            profile("tavctl", "%m%c.profraw", [(*TOOL_TESTS, f"-j{os.cpu_count()}")],
                    [os.path.join(BUILD, TOOL)], "tools/tavctl"))


def goals(function, file):
    """What there is to reach: where, what, in which instantiation, and whether it was reached."""
    # In Host and tavctl, any instantiation will do.
    whole = file.startswith(("TavIDL/host/", "tools/"))
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
    with open(file, encoding="utf-8") as source:
        return source.read().splitlines()[line - 1].strip()


def main():
    if len(sys.argv) != 1:
        sys.exit(__doc__)
    with open(os.path.join(HERE, "uncovered.toml"), "rb") as file:
        known = {(entry["file"], entry["line"], entry["what"]): entry.get("places", 1)
                 for entry in tomllib.load(file).get("place", [])}
    build()
    reached = {}
    for function in profiles():
        file = os.path.relpath(function["filenames"][0])
        for goal, good in goals(function, file):
            reached[goal] = reached.get(goal, False) or good
    failures, used = [], {key: set() for key in known}
    for file, line, column, what, name in sorted(goal for goal in reached if not reached[goal]):
        key = (file, text_of(file, line), what)
        if key in known:
            used[key].add((line, column))
        else:
            readable = run(f"llvm-cxxfilt-{CLANG}", name.split(":")[-1], stdout=subprocess.PIPE)
            failures.append(f"{file}:{line}:{column}: {what}: {key[1]} {readable.stdout}".strip())
    # An entry stands for that many places: others with the same text are not excluded by it.
    failures += [f"uncovered.toml says {known[key]}, but {len(places)} are not reached: "
                 + ": ".join(key) for key, places in used.items() if len(places) != known[key]]
    for failure in failures:
        print(f"FAILED: {failure}")
    print(f"proof: {len(reached)} runs, {len(failures)} failures")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
