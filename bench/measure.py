"""Shared by the programs here: the exact figures, what is compared, and where it is shown."""

import glob
import math
import os
import re
import subprocess
import sys
import tempfile
from typing import NamedTuple

SHORT, LONG = "8", "100"  # bytes in each string; up to 15 need no memory of their own
OBJECTS = {"ours": "TavIDL/libTavIDL.so", "generated": "bench/libbench_generated.so",
           "templates": "bench/libbench_templates.so"}
ARM = {"TavIDL": "build/armhf/TavIDL/libTavIDL.so",
       "TavIDLHost": "build/armhf/TavIDL/host/libTavIDLHost.so"}
README, RESULTS, PEERS = "README.md", "bench/results.md", "bench/peers.md"
# What the front page quotes of them: a row, and a table that begins so.
ROUND_TRIP = "Processor time of a round trip over loopback, 1 connection"
PEERS_SUMMARY = "The same call through"
COST = re.compile(r"^\| Processor time of a call .*\n(?:\|.*\n)+", re.M)

# By how bench_counts names an encoding: the protocol class.
PROTOCOLS = {
    "binary": "`TBinaryProtocol`",
    "compact": "`TCompactProtocol`",
    "static_binary": "`TBinaryProtocolT<TBufferBase>`",
    "static_compact": "`TCompactProtocolT<TBufferBase>`",
    "json": "`TJSONProtocol`",
    "derived": "a protocol class of your own",
}


class Comparison(NamedTuple):
    """Calls of ours over a protocol, relative to the same calls of `other` over `over`."""
    encoding: str
    other: str
    over: str

    def __str__(self):
        return f"{self.encoding} / {self.other} {self.over}"

    def shares(self, figures):
        """By call (operation, encoding, length), from figures by contestant and call."""
        return {(operation, encoding, length):
                    figure / figures[self.other, operation, self.over, length]
                for (contestant, operation, encoding, length), figure in figures.items()
                if contestant == "ours" and encoding == self.encoding}


# Generated code gets faster with the static protocols, too. So their calls are compared with it
# over the same protocol, and over the ordinary one, which most programs have today.
COMPARISONS = (
    *(Comparison(encoding, "generated", encoding) for encoding in PROTOCOLS),
    Comparison("static_binary", "generated", "binary"),
    Comparison("static_compact", "generated", "compact"),
    Comparison("static_binary", "templates", "static_binary"),
    Comparison("static_compact", "templates", "static_compact"),
)


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
        # All symbols bound at start, and the simplest copying functions of the C library:
        # otherwise its choice depends on the processor.
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


def arm_text(library):
    """The bytes of .text for 32-bit ARM; None where nothing was built for it."""
    if not os.path.exists(ARM[library]):
        return None
    run("cmake", "--build", "--preset", "armhf", "--target", library)
    sections = run("arm-linux-gnueabihf-size", "-A", ARM[library])
    return int(re.search(r"^\.text +(\d+)", sections, re.M)[1])


def mean(ratios):
    """The geometric mean: twice and half the cost average to the same cost."""
    return math.exp(sum(map(math.log, ratios)) / len(ratios))


def text_of(page):
    with open(page, encoding="utf-8") as file:
        return file.read()


def cells_of(page, row):
    """Of a page's table: of the row that begins so, and of the one under its heading."""
    found = re.search(rf"^\| {row} \|(.*)\|$(?:\n\| --- .*\n\|.*?\|(.*)\|$)?", text_of(page), re.M)
    return [[cell.strip() for cell in cells.split("|")] for cells in found.groups() if cells]


def cost_table():
    """The front page's table: one row, from both pages of results."""
    [[generated]] = cells_of(RESULTS, ROUND_TRIP)
    names, multiples = cells_of(PEERS, PEERS_SUMMARY)
    peers = sorted(zip(names, multiples), key=lambda peer: float(peer[1]))
    columns = [("Processor time of a call (lower is better)", "compared with libTavIDL"),
               ("libTavIDL", "1.0"), ("Thrift compiler's code", f"{1 / float(generated):.1f}"), *peers]
    header, row = zip(*columns)
    return "".join("| " + " | ".join(line) + " |\n" for line in (header, ["---"] * len(header), row))


def write_cost():
    """Puts it into the front page."""
    page, found = COST.subn(lambda _: cost_table(), text_of(README))
    if found != 1:
        sys.exit(f"bench: {README} lost its table of costs")
    with open(README, "w", encoding="utf-8") as file:
        file.write(page)


def cost_is_outdated():
    return cost_table() not in text_of(README)
