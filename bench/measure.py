"""What the budgets and the results share: the exact figures, and where they are told."""

import glob
import math
import os
import re
import subprocess
import sys
import tempfile

SHORT, LONG = "8", "100"  # bytes in each string; up to 15 need no memory of their own
ENCODINGS = ("binary", "compact", "json", "derived")
OBJECTS = {"ours": "TavIDL/libTavIDL.so", "generated": "bench/libbench_generated.so",
           "templates": "bench/libbench_templates.so"}
ARM = "build/armhf/TavIDL/libTavIDL.so"
RESULTS, README = "bench/results.md", "README.md"


def run(*command, **options):
    """The output of a command. Ends the program with one line if it fails."""
    try:
        return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, **options).stdout
    except FileNotFoundError:
        sys.exit(f"bench: {command[0]} is not installed; script/lib/prepare bench installs it")
    except subprocess.TimeoutExpired as failure:
        sys.exit(f"bench: {' '.join(command)} did not end within {failure.timeout} s")
    except subprocess.CalledProcessError as failure:
        last = (failure.stderr or failure.stdout or "no message").strip().splitlines()[-1:]
        sys.exit(f"bench: {' '.join(command)} failed: {' '.join(last)}")


def counts(build):
    """Two tables by (contestant, operation, encoding, length): instructions, allocations."""
    instructions, allocations = {}, {}
    with tempfile.TemporaryDirectory() as directory:
        # All names bound at start, and the plainest copying functions of the C library:
        # which ones it takes otherwise depends on the processor.
        environment = dict(os.environ, LD_BIND_NOW="1",
                           GLIBC_TUNABLES="glibc.cpu.hwcaps=-AVX2_Usable,-AVX2,-AVX512F,-ERMS")
        lines = run("valgrind", "--quiet", "--tool=callgrind",
                    f"--callgrind-out-file={directory}/out",
                    os.path.join(build, "bench/bench_counts"), SHORT, LONG, env=environment)
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


def stripped_sizes(library):
    """Of the stripped shared object: what `size` calls text, and the whole file."""
    with tempfile.TemporaryDirectory() as directory:
        stripped = os.path.join(directory, "stripped.so")
        run("strip", "-o", stripped, library)
        text = int(run("size", stripped).splitlines()[1].split()[0])
        return text, os.path.getsize(stripped)


def arm_text():
    """The bytes of .text for 32-bit ARM; None where nothing was built for it."""
    if not os.path.exists(ARM):
        return None
    run("cmake", "--build", "--preset", "armhf", "--target", "TavIDL")
    return int(re.search(r"^\.text +(\d+)", run("arm-linux-gnueabihf-size", "-A", ARM), re.M)[1])


def mean(ratios):
    """The geometric mean: twice as dear here and half as dear there is as dear."""
    return math.exp(sum(map(math.log, ratios)) / len(ratios))


def summary_of(page):
    """Where in the text of a page the table of the summary begins and ends."""
    found = re.search(r"^\| This library, as a share of .*\n(?:\|.*\n)+", page, re.M)
    if not found:
        sys.exit("bench: a page lost its table 'This library, as a share of generated code'")
    return found.span()


def pages():
    """The results, and the front page, which quotes their summary."""
    for name in (RESULTS, README):
        with open(name, encoding="utf-8") as file:
            yield file.read()


def replace_summary(summary):
    _, readme = pages()
    begin, end = summary_of(readme)
    with open(README, "w", encoding="utf-8") as file:
        file.write(readme[:begin] + summary + readme[end:])


def summaries_agree():
    first, second = (page[slice(*summary_of(page))] for page in pages())
    return first == second
