#!/usr/bin/env python3
"""Measures everything, prints it and writes it to bench/results.md.

    results.py BUILD    the directory of a Release build with -DTAVIDL_BUILD_BENCH=ON

Writes bench/lengths.svg and bench/connections.svg too, and the front page's row of costs.
"""

import datetime
import json
import os
import re
import statistics
import sys

from measure import (COMPARISONS, OBJECTS, PROTOCOLS, RESULTS, ROUND_TRIP, Comparison, arm_text,
                     counts, mean, run, stripped_sizes, write_cost)

CONTESTANTS = tuple(OBJECTS)
DESCRIPTIONS = {"generated": "generated code", "templates": "generated templates"}
# By how bench_setups names them. A batch is of 16 calls.
SETUPS = {
    "threaded": "`TThreadedServer`, buffered",
    "threaded_framed": "`TThreadedServer`, framed",
    "nonblocking": "`TNonblockingServer`",
    "nonblocking_4": "`TNonblockingServer` with 4 workers",
    "host": "Host, buffered",
    "host_framed": "Host, framed",
}
BATCH = 16
WAYS = ("tcp", "unix")
PLOTTED = ("TavBroker.Execute", "binary")


def times(build, what, repetitions, seconds, program="bench_times"):
    """Medians in nanoseconds, and the typical spread of what they are medians of: by the kind
    of time, and the former by what the benchmarks' names say after `what` and by the number of
    threads too.

    Repetitions of different benchmarks follow each other in random order, so that what else
    the machine does meanwhile strikes all contestants alike. All threads share one processor:
    on which the kernel happens to wake a client or server counts for more than what they do.
    """
    report = json.loads(run(
        "taskset", "--cpu-list", str(min(os.sched_getaffinity(0))),
        os.path.join(build, "bench", program), f"--benchmark_filter=^{what} ",
        f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={seconds}",
        "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true",
        "--benchmark_format=json", timeout=240))
    medians, spreads = {}, {"cpu_time": [], "real_time": []}
    for line in report["benchmarks"]:
        if line.get("error_occurred"):
            sys.exit(f"bench: {line['name']} failed: {line['error_message']}")
        cell = line["run_name"].split("/")[0].split()[1:]
        for time, found in spreads.items():
            if line["aggregate_name"] == "median":
                medians[(time, *cell, line["threads"])] = line[time]
            elif line["aggregate_name"] == "cv":
                found.append(line[time])
    return medians, {time: statistics.median(found) for time, found in spreads.items()}


def plot(name, settings, columns, rows):
    """Draws bench/NAME.svg: a line for each column, over the first number of each row."""
    data = "\n".join(" ".join(map(str, row)) for row in rows)
    lines = ", ".join(f"$data using 1:{i} with linespoints linewidth 2 title '{column}'"
                      for i, column in enumerate(columns, 2))
    run("gnuplot", input=f"set terminal svg size 720,440 font 'Helvetica,13' background 'white'\n"
                         f"set output 'bench/{name}.svg'\nset grid\n"
                         f"set key outside top center horizontal\n{settings}\n"
                         f"$data << END\n{data}\nEND\nplot {lines}\n")


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "".join("| " + " | ".join(map(str, line)) + " |\n" for line in lines)


def share(value):
    return f"{value:.2f}"


def setting(build, load, tools):
    """Where and when it was measured, and with which tools: rows of name and version."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        processor = re.search(r"^model name\s*: (.*)$", file.read(), re.M)
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as file:
        compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", file.read(), re.M)[1]
    system = os.uname()
    return table(["", ""], [
        ["Measured", datetime.date.today().isoformat() + ", at a load of " + load],
        ["Machine", f"{processor[1] if processor else system.machine}, {os.cpu_count()} cores, "
                    f"{system.sysname} {system.release}"],
        ["Compiler", run(compiler, "--version").splitlines()[0] + ", -O3"],
        ["libthrift", run("pkg-config", "--modversion", "thrift").strip()],
        *tools,
    ])


def setups_section(build):
    """The part of the page about the cost of each set-up of a connection."""
    print("-- Timing set-ups", flush=True)
    setup_times, setup_spread = times(build, "setup", 25, 0.03, "bench_setups")
    stop_times, _ = times(build, "stop", 3, 0.1, "bench_setups")
    setups = {(name, way): time / 1000
              for (kind, name, way, _), time in setup_times.items() if kind == "cpu_time"}
    return f"""## Set-ups of a connection

The same call over one connection, by what connects and serves. Time-outs are set everywhere but on
the bare sockets. Microseconds of processor time, as above, and the share of bare sockets in them
(higher is better). Medians of 25 times, whose typical spread was {setup_spread["cpu_time"]:.1%}.

{table(["Set-up", *(f"{way}{what}" for way in WAYS for what in ("", ": bare / this"))],
       [["bare sockets", *(x for way in WAYS for x in (f"{setups['bare', way]:.1f}", ""))],
        *([description, *(x for way in WAYS for x in (
            f"{setups[name, way]:.1f}", share(setups["bare", way] / setups[name, way])))]
          for name, description in SETUPS.items()),
        [f"Host, batches of {BATCH}, per call", *(x for way in WAYS for x in (
            f"{setups['host_batch', way] / BATCH:.1f}",
            share(setups["bare", way] * BATCH / setups["host_batch", way])))]])}
A call in a batch costs {" and ".join(
    f"{setups['host', way] * BATCH / setups['host_batch', way]:.1f} times less ({way})"
    for way in WAYS)} than a call alone. `Server::stop()` with 50 connections, on one of which a call
runs that takes 300 ms, takes {" and ".join(
    f"{stop_times['real_time', 'host', way, 1] / 1e6:.0f} ms ({way})" for way in WAYS)}.
"""


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: results.py BUILD LOAD")
    build, load = sys.argv[1:]
    print("-- Counting under callgrind", flush=True)
    instructions, allocations = counts(build)
    calls = [cell[1:] for cell in allocations if cell[0] == "ours"]
    sizes = {name: stripped_sizes(os.path.join(build, path)) for name, path in OBJECTS.items()}
    arm, host_arm = arm_text("TavIDL"), arm_text("TavIDLHost")
    tools = [
        ["Thrift compiler", run("thrift", "--version").split()[-1]],
        ["Google Benchmark", run("pkg-config", "--modversion", "benchmark").strip()],
        ["Valgrind", run("valgrind", "--version").strip().removeprefix("valgrind-")],
    ]
    print("-- Timing calls", flush=True)
    call_times, call_spread = times(build, "call", 15, 0.01)
    print("-- Timing calls with long strings", flush=True)
    length_times, _ = times(build, "length", 9, 0.02)
    print("-- Timing round trips", flush=True)
    trip_times, trip_spread = times(build, "loopback", 25, 0.03)

    nanoseconds = {tuple(cell): time for (kind, *cell, _), time in call_times.items()
                   if kind == "cpu_time"}

    def relative_to_generated(figures, call):
        return Comparison(call[1], "generated", call[1]).shares(figures)[call]

    def trip_share(time, framing, connections, one="ours", other="generated"):
        return (trip_times[time, one, framing, connections]
                / trip_times[time, other, framing, connections])

    summary = table(["A call over", "relative to (lower is better)", "Instructions", "Time"], [
        [PROTOCOLS[comparison.encoding],
         DESCRIPTIONS[comparison.other] + ("" if comparison.over == comparison.encoding
                                           else f" over {PROTOCOLS[comparison.over]}"),
         share(mean(comparison.shares(instructions).values())),
         share(mean(comparison.shares(nanoseconds).values()))] for comparison in COMPARISONS
    ]) + "\n" + table(["Relative to generated code (lower is better)", ""], [
        *([what, share(mean([trip_share("cpu_time", framing, number)
                             for framing in ("buffered", "framed")]))]
          for number, what in ((1, ROUND_TRIP),
                               (8, "Processor time of a round trip over loopback, 8 connections"))),
        ["Allocations of a call beyond those of generated code, at most",
         max(allocations["ours", *call] - allocations["generated", *call] for call in calls)],
        ["Text of the shared object", share(sizes["ours"][0] / sizes["generated"][0])],
    ])

    text = f"""# What calls cost

Written by `script/bench`; how to read it: [CONTRIBUTING.md](../CONTRIBUTING.md#what-calls-cost).

{setting(build, load, tools)}
## Summary

{summary}
## Size

{table(["Bytes", *CONTESTANTS, "ours / generated"], [
    [what, *(sizes[name][i] for name in CONTESTANTS), share(sizes["ours"][i]/sizes["generated"][i])]
    for i, what in enumerate(("text", "whole stripped shared object"))])}
The code of `templates` is in its headers, and so in the programs that use it. For 32-bit ARM, this
library's `.text` {f"has {arm} bytes, and Host's {host_arm}" if arm else "was not measured; script/test armhf builds it"}.

## Calls over memory

Medians of 15 times, whose typical spread was {call_spread["cpu_time"]:.1%}.

{table(["Call", "Protocol", "Strings", *(f"instr. {name}" for name in CONTESTANTS), "ours / gen.",
        *(f"alloc. {name}" for name in CONTESTANTS), *(f"ns {name}" for name in CONTESTANTS),
        "ours / gen."],
       [[call[0], call[1], call[2], *(instructions[name, *call] for name in CONTESTANTS),
         f"{relative_to_generated(instructions, call):.3f}", *(allocations[name, *call] for name in CONTESTANTS),
         *(round(nanoseconds[name, *call]) for name in CONTESTANTS),
         share(relative_to_generated(nanoseconds, call))] for call in calls])}
![Time of a call against the length of its strings](lengths.svg)

## Round trips over loopback

Microseconds per round trip, all connections together, client and server on one processor:
`{PLOTTED[0]}` with strings of 8 bytes over the {PLOTTED[1]} protocol. Bare sockets pass the same
bytes. The processor time is that of the client, the server and the kernel. Other work on the machine
hardly affects it, but does affect the elapsed time. Medians of 25 times, whose typical spread
was {trip_spread["cpu_time"]:.1%} (processor) and {trip_spread["real_time"]:.1%} (elapsed).

{table(["Transport", "Connections", "Time", "bare sockets", *CONTESTANTS, "ours / generated",
        "bare / ours"],
       [[framing, connections, what,
         *(f"{trip_times[time, name, framing, connections] / 1000:.1f}"
           for name in ("bare", *CONTESTANTS)), share(trip_share(time, framing, connections)),
         share(trip_share(time, framing, connections, "bare", "ours"))]
        for framing in ("buffered", "framed") for connections in (1, 8)
        for time, what in (("cpu_time", "processor"), ("real_time", "elapsed"))])}
![Round trips a second against the number of connections](connections.svg)

{setups_section(build)}"""
    print("\n" + text)
    with open(RESULTS, "w", encoding="utf-8") as file:
        file.write(text)
    write_cost()

    lengths = sorted({int(cell[4]) for cell in length_times})
    plot("lengths", f"set title '{PLOTTED[0]}, {PLOTTED[1]}: client, processor, client'\n"
         "set xlabel 'bytes in each of five strings'\nset ylabel 'microseconds a call'\n"
         "set logscale y\nset nonlinear x via log10(1 + x) inverse 10 ** x - 1\n"
         "set xrange [0:1048576]\nset xtics ('0' 0, '16' 16, '256' 256, '4 KiB' 4096, "
         "'64 KiB' 65536, '1 MiB' 1048576)",
         CONTESTANTS,
         [[length, *(length_times["cpu_time", name, *PLOTTED, str(length), 1] / 1000
                     for name in CONTESTANTS)] for length in lengths])
    connections = sorted({cell[-1] for cell in trip_times})
    plot("connections", f"set title '{PLOTTED[0]}, {PLOTTED[1]}, buffered, over loopback, one processor'\n"
         "set xlabel 'connections'\nset ylabel 'thousand round trips a second'\n"
         "set logscale x 2\nset yrange [0:]",
         (*CONTESTANTS, "bare sockets"),
         [[number, *(1e6 / trip_times["real_time", name, "buffered", number]
                     for name in (*CONTESTANTS, "bare"))] for number in connections])


if __name__ == "__main__":
    main()
