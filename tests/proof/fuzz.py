#!/usr/bin/env python3
"""Runs the targets in tests/proof/fuzz with libFuzzer and the address and undefined behavior
sanitizers. Builds them first, in build/fuzz.

    fuzz.py [--runs=N] [--seconds=N] [--seed=N] [TARGET...]
        N runs of each target, or of the named ones; each target ends after that many seconds
    fuzz.py --keep [TARGET...]
        adds to corpus.txt what the last runs found

A target begins with the messages in tests/wire/messages.txt, and with the inputs in corpus.txt, which
reach code that the messages do not. The last line has the same form as in the other programs here.
"""

import concurrent.futures
import os
import re
import shutil
import struct
import subprocess
import sys

from peer_encodings import PROTOCOLS

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
BUILD = os.path.join(SOURCE, "build/fuzz")
KEPT = os.path.join(HERE, "fuzz/corpus.txt")
FLAGS = ("-O1 -g1 -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined "
         "-fno-sanitize=enum -fno-sanitize-recover=all "
         f"-fsanitize-ignorelist={HERE}/fuzz/ignored.txt")
# An input that takes longer counts as a hang. No limit allows a larger allocation.
LIMITS = ("-timeout=60", "-malloc_limit_mb=64", "-max_len=600")

# Keeps the corpus small. Long inputs are quickly found again from short ones.
LONGEST_KEPT = 64

OPERATIONS = ["OpenEmp", "TavBroker Execute", "CloseEmp", "Open", "Close", "TavEmp Execute",
              "ExecuteWithParamList", "Callback"]
# For each record that a target reads, the operation whose request or reply has it.
RECORDS = [(operation, kind) for operation in OPERATIONS for kind in ("request", "reply")][:-1]


# Unknown fields of each type.
FOREIGN = [(20, "tf", True), (21, "i8", 100), (22, "i16", 7), (40, "i64", 7), (41, "dbl", 1.5),
           (42, "str", b"text"), (43, "rec", [(1, "tf", False)]), (44, "lst", ("i8", [1, 2])),
           (45, "set", ("rec", [[(1, "i32", 7)], []])),
           (46, "map", ("i16", "str", [(1, b"one"), (2, b"two")])), (47, "map", ("dbl", "tf", []))]


def messages():
    """Stored messages, and some with unknown fields: operation, request or reply, encoding, bytes."""
    for wire, protocol in PROTOCOLS.items():
        yield ("Close", "request", wire,
               protocol.write_message(b"Close", 1, 0, [(1, "i32", 7), *FOREIGN]))
        yield ("Close", "reply", wire,
               protocol.write_message(b"Close", 2, 0, [(0, "i32", 7), *FOREIGN]))
    with open(os.path.join(SOURCE, "tests/wire/messages.txt"), encoding="utf-8") as file:
        text = file.read()
    for name, kind, wire, lines in re.findall(
            r"^(.*) (request|reply), (\w+):\n\n((?:    .*\n)+)", text, re.MULTILINE):
        lines = [line[4:] for line in lines.splitlines()]
        yield (re.sub("^(refused|unknown) ", "", name), kind, wire,
               "".join(lines).encode() if wire == "json" else bytes.fromhex(" ".join(lines)))


def framed(message):
    return struct.pack(">I", len(message)) + message


def tcpdumped(message):
    """A capture of tcpdump: a connection is opened, and the message goes over it."""
    packets = []
    for sequence, flags, payload in ((0, 2, b""), (1, 24, message)):
        tcp = struct.pack(">HHIIBBHHH", 40000, 9090, sequence, 0, 0x50, flags, 512, 0, 0) + payload
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp), 0, 0, 64, 6, 0, b"\x7f\0\0\1",
                         b"\x7f\0\0\1") + tcp
        packets.append(struct.pack("<IIII", 1, 0, len(ip), len(ip)) + ip)
    raw_ip = 101
    return struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, raw_ip) + b"".join(packets)


def service_of(operation):
    return (0, 0, 0, 1, 1, 1, 1, 2)[OPERATIONS.index(operation)]


def seeds(target):
    """The target's first inputs: bytes that choose what it does, and a message."""
    for operation, kind, wire, message in messages():
        number = OPERATIONS.index(operation)
        compact = ("binary", "compact", "json").index(wire)
        request = kind == "request"
        if target == "decode":
            digits = message.hex().encode()
            head = b'{"capture":1,"protocol":"%s","transport":"buffered"}\n' % wire.encode()
            line = b'{"connection":1,"from":"client","ms":1.5,"hex":"%s"}\n' % digits
            for choice in (0, 1):
                yield bytes([compact, choice]) + message
                yield bytes([compact, choice + 2]) + framed(message)
                yield bytes([compact, choice]) + digits
                for sequence in (0, 4):
                    yield bytes([compact, choice + sequence]) + head + line * 2
                    yield bytes([compact, choice + sequence]) + tcpdumped(message)
        elif target == "json":
            if wire == "json":
                yield bytes([service_of(operation) if request else 3 + number]) + message * 2
        elif wire == "json":
            continue
        elif target == "processors" and request:
            yield bytes([compact, service_of(operation)]) + message * 2
        elif target == "clients" and not request:
            yield bytes([compact, number]) + message * 2
        elif target == "records":
            # The header of a binary message, or of a compact one, is in front of its record.
            name = operation.split()[-1].encode()
            record = message[message.index(name) + len(name):][0 if compact else 4:]
            if (operation, kind) in RECORDS and message[3 - 2 * compact] in (1, 2, 0x21, 0x41):
                yield bytes([compact, RECORDS.index((operation, kind))]) + record
        elif target == "server" and request and service_of(operation) == 1:
            for twice in (0, 1):
                yield bytes([2 * compact, twice]) + message
                yield bytes([2 * compact + 1, twice]) + framed(message)
        elif target == "remote" and not request:
            yield bytes([compact, number]) + message
            yield bytes([compact + 2, number]) + framed(message)
    if target == "scripted":
        for choice in range(10):
            yield bytes([choice]) + bytes(range(256))


def kept(target):
    with open(KEPT, encoding="ascii") as file:
        for line in file:
            name, digits = line.split()
            if name == target:
                yield bytes.fromhex(digits)


def targets():
    return sorted(name[:-4] for name in os.listdir(os.path.join(HERE, "fuzz"))
                  if name.endswith(".cpp"))


def program(target):
    return os.path.join(BUILD, "tests/proof/fuzz/fuzz_" + target)


def folder(*names):
    path = os.path.join(BUILD, "corpus", *names)
    shutil.rmtree(path, ignore_errors=True)
    os.makedirs(path)
    return path


def fill(path, inputs):
    for number, each in enumerate(inputs):
        with open(os.path.join(path, str(number)), "wb") as file:
            file.write(each)
    return path


def build():
    subprocess.run(["cmake", "-S", SOURCE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                    "-DCMAKE_CXX_COMPILER=clang++", f"-DCMAKE_CXX_FLAGS={FLAGS}",
                    "-DBUILD_SHARED_LIBS=OFF", "-DTAVIDL_BUILD_TESTS=ON",
                    "-DTAVIDL_BUILD_TOOLS=ON", "-DTAVIDL_TEST_LANGUAGES=OFF"],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "--target", "fuzz_programs"], check=True,
                   stdout=subprocess.DEVNULL)


def fuzz(target, runs, seconds, seed):
    """Returns the number of runs, and what went wrong."""
    again = [f"--runs={runs}", f"--seconds={seconds}", f"--seed={seed}"]
    begin = fill(folder(target, "begin"), [*seeds(target), *kept(target)])
    found = folder(target, "found")
    crash = os.path.join(BUILD, f"{target}-")
    ended = subprocess.run([program(target), f"-runs={runs}", f"-seed={seed}",
                            f"-max_total_time={seconds}", f"-artifact_prefix={crash}",
                            "-print_final_stats=1", *LIMITS, found, begin],
                           check=False, capture_output=True, text=True, errors="replace")
    counts = re.findall(r"number_of_executed_units: *(\d+)", ended.stderr)
    if ended.returncode == 0 and counts:
        return int(counts[-1]), ""
    lines = [line for line in ended.stderr.splitlines() if not re.match(r"#\d+\t|\tNEW_FUNC", line)]
    files = re.findall(r"Test unit written to (\S+)", ended.stderr)
    # Without the limits, the input might not fail.
    again = [program(target), *LIMITS, files[-1]] if files else [sys.argv[0], *again, target]
    return (int(counts[-1]) if counts else 0,
            "\n".join([f"FAILED: {target}", *lines[-40:], "  " + " ".join(again)]))


def keep(names):
    """Writes to corpus.txt the smallest set of inputs that reaches more than the messages alone."""
    lines = []
    for target in targets():
        inputs = list(kept(target))
        if target in names:
            begin = fill(folder(target, "messages"), seeds(target))
            more = fill(folder(target, "kept"), inputs)
            smallest = folder(target, "smallest")
            found = os.path.join(BUILD, "corpus", target, "found")
            for sources in ([begin], [more, found]):
                # By the code that they reach, not by how often.
                subprocess.run([program(target), "-merge=1", "-use_counters=0", *LIMITS, smallest,
                                *sources], check=True, capture_output=True)
                if sources == [begin]:
                    known = set(os.listdir(smallest))
            inputs = []
            for name in set(os.listdir(smallest)) - known:
                with open(os.path.join(smallest, name), "rb") as file:
                    inputs.append(file.read())
            inputs = [each for each in inputs if len(each) <= LONGEST_KEPT]
        lines += sorted(f"{target} {each.hex()}\n" for each in inputs)
    with open(KEPT, "w", encoding="ascii") as file:
        file.writelines(lines)


def main():
    options = dict(word[2:].partition("=")[::2] for word in sys.argv[1:] if word.startswith("--"))
    names = [word for word in sys.argv[1:] if not word.startswith("--")] or targets()
    if set(options) - {"runs", "seconds", "seed", "keep"} or set(names) - set(targets()):
        sys.exit(__doc__)
    build()
    if "keep" in options:
        keep(names)
        return
    seed = int(options.get("seed", struct.unpack("I", os.urandom(4))[0] or 1))
    limits = (options.get("runs", 100000), options.get("seconds", 30), seed)
    print(f"seed {seed}", flush=True)
    total = failures = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for target, (count, wrong) in zip(names, pool.map(lambda name: fuzz(name, *limits), names)):
            print(f"{target}: {count} runs", flush=True)
            if wrong:
                print(wrong, flush=True)
            total += count
            failures += wrong != ""
    print(f"proof: {total} runs, {failures} failures")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
