"""Exact figures: instructions and allocations of whole calls, sizes of shared objects."""

import glob
import math
import os
import re
import subprocess
import sys
import tempfile

SHORT, LONG = "8", "100"  # bytes in each string; up to 15 need no memory of their own
ENCODINGS = ("binary", "compact", "json", "derived")
ARM = "build/armhf/TavIDL/libTavIDL.so"


def run(*command, **options):
    """The output of a command. Ends the program with one line if it fails."""
    try:
        return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, **options).stdout
    except FileNotFoundError:
        sys.exit(f"bench: {command[0]} is not installed; script/prepare bench installs it")
    except subprocess.CalledProcessError as failure:
        last = (failure.stderr or failure.stdout or "no message").strip().splitlines()[-1:]
        sys.exit(f"bench: {' '.join(command)} failed: {' '.join(last)}")


def counts(program):
    """Two tables by (contestant, operation, encoding, length): instructions, allocations."""
    instructions, allocations = {}, {}
    with tempfile.TemporaryDirectory() as directory:
        # All names bound at start, and the plainest copying functions of the C library:
        # which ones it takes otherwise depends on the processor.
        environment = dict(os.environ, LD_BIND_NOW="1",
                           GLIBC_TUNABLES="glibc.cpu.hwcaps=-AVX2_Usable,-AVX2,-AVX512F,-ERMS")
        lines = run("valgrind", "--quiet", "--tool=callgrind",
                    f"--callgrind-out-file={directory}/out",
                    program, SHORT, LONG, env=environment)
        for line in lines.splitlines():
            *cell, number = line.split()
            allocations[tuple(cell)] = int(number)
        for name in glob.glob(f"{directory}/out.*"):
            with open(name, encoding="utf-8") as file:
                profile = file.read()
            trigger = re.search(r"^desc: Trigger: Client Request: (.*)$", profile, re.M)
            if trigger:
                cell = tuple(trigger[1].split())
                instructions[cell] = int(re.search(r"^(?:summary|totals): (\d+)", profile, re.M)[1])
    if not instructions or instructions.keys() != allocations.keys():
        sys.exit("bench: callgrind did not report all cells")
    return instructions, allocations


def text_size(library):
    """What `size` calls text, of the stripped shared object."""
    with tempfile.TemporaryDirectory() as directory:
        stripped = os.path.join(directory, "stripped.so")
        run("strip", "-o", stripped, library)
        return int(run("size", stripped).splitlines()[1].split()[0])


def arm_text():
    """The bytes of .text for 32-bit ARM; None where nothing was built for it."""
    if not os.path.exists(ARM):
        return None
    run("cmake", "--build", "build/armhf", "--target", "TavIDL")
    return int(re.search(r"^\.text +(\d+)", run("arm-linux-gnueabihf-size", "-A", ARM), re.M)[1])


def mean(ratios):
    """The geometric mean: twice as dear here and half as dear there is as dear."""
    return math.exp(sum(map(math.log, ratios)) / len(ratios))
