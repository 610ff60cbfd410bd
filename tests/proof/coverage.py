#!/usr/bin/env python3
"""Measures which lines, branches and conditions of libTavIDL the tests reach.

    coverage.py

Separately for each instantiation of each template: regions of code, both directions of each branch,
and modified condition/decision coverage, which needs clang 18 or later. Everything must be reached
except what uncovered.toml lists, with reasons. The last line has the same form as in the other
programs here; a run is one thing to reach.
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
         "proof/proof_differential --runs=20000", "modules/program_test")


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, **options)


def build():
    run("cmake", "-S", ".", "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
        f"-DCMAKE_CXX_COMPILER=clang++-{CLANG}", f"-DCMAKE_CXX_FLAGS={FLAGS}",
        "-DTAVIDL_BUILD_TESTS=ON", "-DTAVIDL_BUILD_HOST=OFF", "-DTAVIDL_TEST_LANGUAGES=OFF",
        stdout=subprocess.DEVNULL)
    run("cmake", "--build", BUILD, "--target",
        *(os.path.basename(test.split()[0]) for test in TESTS), stdout=subprocess.DEVNULL)


def profile():
    """Runs the tests. Returns all functions of the library with their counts."""
    profiles = os.path.join(BUILD, "profiles")
    for old in glob.glob(profiles + "/*"):
        os.remove(old)
    for test in TESTS:
        print(f"-- {test}", flush=True)
        run(*os.path.join(BUILD, "tests", test).split(), stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env={**os.environ, "LLVM_PROFILE_FILE": os.path.join(profiles, "%m.profraw")})
    merged = os.path.join(BUILD, "all.profdata")
    run(f"llvm-profdata-{CLANG}", "merge", "-o", merged, *glob.glob(profiles + "/*"))
    found = run(f"llvm-cov-{CLANG}", "export", "-instr-profile", merged,
                os.path.join(BUILD, "TavIDL/libTavIDL.so"), stdout=subprocess.PIPE).stdout
    library = os.path.abspath("TavIDL") + "/"
    return {function["name"]: function for function in json.loads(found)["data"][0]["functions"]
            if function["filenames"][0].startswith(library)}


def goals(function):
    """What there is to reach: line, column, what, and whether it was reached."""
    for line, column, _, _, count, _, _, kind in function["regions"]:
        if kind == 0:
            yield line, column, "code", count > 0
    for line, column, _, _, true, false, *_ in function["branches"]:
        yield line, column, "true", true > 0
        yield line, column, "false", false > 0
    for record in function.get("mcdc_records", []):
        for number, reached in enumerate(record[-1], 1):
            yield record[0], record[1], f"condition {number} decides alone", reached


def main():
    if len(sys.argv) != 1:
        sys.exit(__doc__)
    with open(os.path.join(HERE, "uncovered.toml"), "rb") as file:
        known = {(entry["file"], entry["line"], entry["what"])
                 for entry in tomllib.load(file).get("place", [])}
    build()
    functions = profile()
    names = list(functions)
    demangled = run(f"llvm-cxxfilt-{CLANG}", input="\n".join(n.split(":")[-1] for n in names),
                    stdout=subprocess.PIPE).stdout.splitlines()
    sources, reached, missed, used = {}, 0, 0, set()
    for name, readable in zip(names, demangled):
        function = functions[name]
        path = function["filenames"][0]
        if path not in sources:
            with open(path, encoding="utf-8") as file:
                sources[path] = file.read().splitlines()
        file = os.path.relpath(path, "TavIDL")
        for line, column, what, good in goals(function):
            key = (file, sources[path][line - 1].strip(), what)
            reached += good
            if not good and key in known:
                used.add(key)
            elif not good:
                missed += 1
                print(f"FAILED: {file}:{line}:{column}: {what}: {key[1]}\n  in {readable}")
    for file, line, what in known - used:
        print(f"FAILED: not needed in uncovered.toml: {file}: {line}: {what}")
    missed += len(known - used)
    print(f"proof: {reached + missed} runs, {missed} failures")
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
