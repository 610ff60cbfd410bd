"""Exact figures: instructions and allocations of whole calls, sizes of shared objects."""

import glob
import os
import re
import subprocess
import sys
import tempfile

SHORT, LONG = "8", "100"  # bytes in each string; up to 15 need no memory of their own


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


def counts(program, lengths=(SHORT, LONG)):
    """Two tables by (contestant, operation, encoding, length): instructions, allocations.

    The library's own calls that go through virtual functions of a protocol are in the
    third: the set of cells in which a field's header was written by such a call.
    """
    instructions, allocations, virtual = {}, {}, set()
    with tempfile.TemporaryDirectory() as directory:
        # All names bound at start, and the plainest copying functions of the C library:
        # which ones it takes otherwise depends on the processor.
        environment = dict(os.environ, LD_BIND_NOW="1",
                           GLIBC_TUNABLES="glibc.cpu.hwcaps=-AVX2_Usable,-AVX2,-AVX512F,-ERMS")
        lines = run("valgrind", "--tool=callgrind", f"--callgrind-out-file={directory}/out",
                    program, *lengths, env=environment)
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
                if "writeFieldBegin_virt" in profile:
                    virtual.add(cell)
    if instructions.keys() != allocations.keys():
        sys.exit("bench: callgrind did not report all cells")
    return instructions, allocations, virtual


def text_size(library):
    """What `size` calls text, of the stripped shared object."""
    with tempfile.TemporaryDirectory() as directory:
        stripped = os.path.join(directory, "stripped.so")
        run("strip", "-o", stripped, library)
        return int(run("size", stripped).splitlines()[1].split()[0])
