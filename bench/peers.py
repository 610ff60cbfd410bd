#!/usr/bin/env python3
"""Measures the same call through other RPC libraries, prints it and writes it to bench/peers.md.

    peers.py BUILD LOAD    the directory of a Release build with -DTAVIDL_BUILD_PEERS=ON

Writes the front page's row of costs, too.
"""

import contextlib
import glob
import os
import random
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time
from typing import NamedTuple

from measure import PEERS, PEERS_SUMMARY, run, stripped_sizes, write_cost
from results import setting, table

CLIENTS = FEW, MANY = 1, 8
ROUNDS = 25
CALLS = 1600  # by all clients together, in each round
PATIENCE = 300  # seconds until something hangs
# Libraries that any C++ program loads, and those of the rest that only TLS connections use.
RUNTIME = re.compile(r"/(ld-linux\S*|lib(c|m|gcc_s|stdc\+\+))\.so[.\d]*$")
OPENSSL = re.compile(r"/lib(ssl|crypto)\.so[.\d]*$")


class Library(NamedTuple):
    name: str
    set_up: str
    packages: tuple
    addresses: dict  # to serve at, by transport; {} is a path


LIBRARIES = {
    "ours": Library(
        "ours", "`TavIDL::Server` and `TavIDL::RemoteBroker` with their default settings",
        ("libthrift-dev",), {"TCP": "127.0.0.1:0", "unix": "unix:{}"}),
    "grpc": Library(
        "gRPC", "the synchronous API", ("libgrpc++-dev", "libprotobuf-dev"),
        {"TCP": "127.0.0.1:0", "unix": "unix:{}"}),
    "capnproto": Library(
        "Cap'n Proto RPC", "`TwoPartyServer` and `TwoPartyClient` over KJ's sockets",
        ("libcapnp-dev",), {"TCP": "127.0.0.1:0", "unix": "unix:{}"}),
    "zeromq": Library(
        "ZeroMQ and msgpack", "`REQ` and `REP`, which its guide has for RPC",
        ("libzmq3-dev", "libmsgpack-cxx-dev"), {"TCP": "tcp://127.0.0.1:*", "unix": "ipc://{}"}),
    "dbus": Library(
        "D-Bus", "sdbus-c++ and a dbus-daemon for these calls alone; event loops on all "
        "connections, as the documentation asks for", ("libsdbus-c++-dev", "dbus-daemon"),
        {"unix": "unix:path={}"}),
    "dbus_no_loop": Library(
        "D-Bus, no loop", "as D-Bus, but without an event loop in the client, which can then make "
        "synchronous calls, but gets no signals", (), {"unix": "unix:path={}"}),
}
CELLS = [(program, transport) for program, library in LIBRARIES.items()
         for transport in library.addresses]


def processor_time(process):
    """Processor time of all its threads, including ended ones: clock_getcpuclockid() of its id."""
    return time.clock_gettime(~process.pid << 3 | 2)


def private_memory(process):
    """Its private memory that was written to, in KiB: heap, stacks, data."""
    with open(f"/proc/{process.pid}/smaps_rollup", encoding="utf-8") as file:
        return int(re.search(r"^Private_Dirty: +(\d+) kB$", file.read(), re.M)[1])


def loaded(process):
    """The files whose code it maps, including its program."""
    with open(f"/proc/{process.pid}/maps", encoding="utf-8") as file:
        found = set(re.findall(r"^\S+ r-xp .* (/\S+)$", file.read(), re.M))
    return {path for path in found if not RUNTIME.search(path)}


def answer(process):
    line = process.stdout.readline().strip()
    if not line:
        sys.exit(f"bench: {' '.join(process.args)} ended too early")
    return line


class Calls:
    """The processes that call each other through one library, and the resources they use."""

    def __init__(self, stack, build, directory, program, transport):
        def start(*command):
            process = stack.enter_context(subprocess.Popen(
                command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True))
            stack.callback(process.kill)
            return process, answer(process)

        binary = os.path.join(build, "bench/peers/bench_peer_" + program)
        address = LIBRARIES[program].addresses[transport].format(
            os.path.join(directory, program))
        self.servers = []
        if program.startswith("dbus"):
            daemon, address = start("dbus-daemon", "--config-file=bench/peers/bus.conf", "--nofork",
                                    "--print-address", "--address=" + address)
            self.servers.append(daemon)
        server, address = start(binary, "serve", address)
        self.servers.insert(0, server)
        self.clients = []
        self.memory = {}
        for number in CLIENTS:
            while len(self.clients) < number:
                self.clients.append(start(binary, "call", address)[0])
            self.make(number)
            self.memory[number] = sum(map(private_memory, self.servers))
        self.loaded = list(map(loaded, self.servers))
        self.traffic = self.traced(directory)

    def make(self, number):
        """Makes CALLS calls from `number` clients; returns microseconds of processor time per call."""
        processes = [*self.servers, *self.clients[:number]]
        before = sum(map(processor_time, processes))
        for client in self.clients[:number]:
            client.stdin.write(f"{CALLS // number}\n")
            client.stdin.flush()
        for client in self.clients[:number]:
            answer(client)
        return (sum(map(processor_time, processes)) - before) / CALLS * 1e6

    def traced(self, directory):
        """Bytes that all processes together send over sockets per call, and their system calls."""
        processes = [*self.servers, self.clients[0]]
        prefix = os.path.join(directory, "strace")
        with subprocess.Popen(
                ["strace", "--follow-forks", "--output-separately", "--decode-fds=all",
                 "--output=" + prefix, *(f"--attach={process.pid}" for process in processes)],
                stderr=subprocess.PIPE, text=True) as strace:
            # It also reports threads that start meanwhile.
            awaited = {str(process.pid) for process in processes}
            while awaited:
                line = strace.stderr.readline()
                if not line:
                    sys.exit("bench: strace cannot attach to the peers")
                if " attached" in line:
                    awaited.discard(line.split()[2])
            self.make(1)
            strace.send_signal(signal.SIGINT)
        sent = calls = 0
        for name in glob.glob(prefix + ".*"):
            with open(name, encoding="utf-8", errors="replace") as file:
                for line in file:
                    calls += line[0].isalpha()
                    found = re.match(
                        r"(?:write|send)\w*\(\d+<(?:TCP|UNIX).* = (\d+)$", line)
                    sent += int(found[1]) if found else 0
            os.remove(name)
        return sent / CALLS, calls / CALLS


def timed_out(*_):
    sys.exit(f"bench: the peers did not end within {PATIENCE} s")


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: peers.py BUILD LOAD")
    build, load = sys.argv[1:]
    tools = [["strace", run("strace", "--version").split()[3]]]
    signal.signal(signal.SIGALRM, timed_out)
    signal.alarm(PATIENCE)
    found = {(*cell, number): [] for cell in CELLS for number in CLIENTS}
    with contextlib.ExitStack() as stack:
        directory = stack.enter_context(tempfile.TemporaryDirectory())
        affinity = os.sched_getaffinity(0)
        os.sched_setaffinity(0, {min(affinity)})
        print("-- Starting the peers and counting their bytes", flush=True)
        peers = {cell: Calls(stack, build, directory, *cell) for cell in CELLS}
        print("-- Timing calls", flush=True)
        for _ in range(ROUNDS):
            for *cell, number in random.sample(sorted(found), len(found)):
                found[*cell, number].append(peers[tuple(cell)].make(number))
    os.sched_setaffinity(0, affinity)
    signal.alarm(0)
    times = {cell: statistics.median(values) for cell, values in found.items()}
    spread = statistics.median(statistics.stdev(values) / statistics.mean(values)
                               for values in found.values())

    def multiple(program, transport, number):
        return f"{times[program, transport, number] / times['ours', transport, number]:.1f}"

    others = [program for program in LIBRARIES if program != "ours"]
    summary = table(
        [PEERS_SUMMARY, *(LIBRARIES[program].name for program in others)],
        [["takes this many times as much processor time",
          *(multiple(program, next(iter(LIBRARIES[program].addresses)), 1)
            for program in others)]])

    def version(package):
        return run("dpkg-query", "--show", "--showformat=${Package} ${Version}", package)

    def code(files):
        return f"{sum(stripped_sizes(path)[0] for path in files) / 1024:,.0f}"

    server, daemon = peers["dbus", "unix"].loaded
    text = f"""# The same call through other RPC libraries

Written by `script/bench --peers`; how to read it:
[CONTRIBUTING.md](../CONTRIBUTING.md#what-calls-cost). `TavBroker.Execute` with strings of 8 bytes: an
i32 and five strings, answered by a string. All are Debian's packages.

{setting(build, load, tools)}
{table(["Library", "Set-up", "Packages"], [
    [library.name, library.set_up, ", ".join(map(version, library.packages))]
    for library in LIBRARIES.values()])}
## Summary

{summary}
One client. D-Bus over a unix socket, relative to ours over one; the others over TCP, as ours.

## Processor time

Microseconds a call, user and system, of the client, the server and the dbus-daemon; and relative to
ours over the same transport. Each client is a process with a connection of its own that makes one call
after the other. All processes share one processor. Medians of {ROUNDS} rounds of {CALLS} calls in random
order, whose typical spread was {spread:.1%}.

{table(["Library", "Transport", *(heading for number in CLIENTS for heading in (
            f"{number} client{'s' * (number > 1)}", "/ ours"))],
       [[LIBRARIES[program].name, transport, *(figure for number in CLIENTS for figure in (
            f"{times[program, transport, number]:.1f}", multiple(program, transport, number)))]
        for program, transport in CELLS])}
## Bytes, memory and size

- *Bytes* of a call and its reply, without TCP's and IP's headers: all that the processes send over
  sockets, as strace sees it. D-Bus's messages count twice, to the dbus-daemon and from it.
- *System calls* of all processes together, for one client.
- *Memory* in KiB, with one client: the pages that the server, and for D-Bus the dbus-daemon, has
  written to and shares with no other process. *Per client*: what each further client adds.
- *Code* in KiB: the text of the server's program and its shared objects, without the C and C++ runtime;
  and what of it is not OpenSSL's, which ours, libthrift and gRPC load for TLS. The dbus-daemon
  loads {code(daemon - server)} more.

{table(["Library", "Transport", "Bytes", "System calls", "Memory", "per client",
        "Code", "without OpenSSL"],
       [[LIBRARIES[cell[0]].name, cell[1], f"{calls.traffic[0]:.1f}", f"{calls.traffic[1]:.1f}",
         f"{calls.memory[FEW]:,}", round((calls.memory[MANY] - calls.memory[FEW]) / (MANY - FEW)),
         code(calls.loaded[0]),
         code(path for path in calls.loaded[0] if not OPENSSL.search(path))]
        for cell, calls in peers.items()])}"""
    print("\n" + text)
    with open(PEERS, "w", encoding="utf-8") as file:
        file.write(text)
    write_cost()


if __name__ == "__main__":
    main()
