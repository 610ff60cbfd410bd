"""What mutation.py changes: which sources, how much of it tests must notice, and which tests."""

import glob
import os
from typing import NamedTuple


class Target(NamedTuple):
    """In `tests` and `environment`, {build} stands for what script/proof builds, {changed} for
    where the changed product is, and {source} for the checkout."""
    cmake_target: str
    product: str  # a pattern, in a build directory
    sources: tuple  # patterns
    tests: dict  # by source: the search ends at the first test that notices. "": all other sources
    environment: dict
    # Each with a source that includes it, and instantiates its templates as other sources do.
    headers: dict = {}
    sanitized_tests: tuple = ()  # for what only the address sanitizer notices
    noticed: int = 100  # per cent

    def files(self):
        found = [file for pattern in self.sources for file in sorted(glob.glob(pattern))]
        return [*found, *self.headers]

    def tests_of(self, file):
        return self.tests.get(os.path.basename(file), self.tests[""])


def programs(*tests):
    return tuple("{build}/tests/" + test for test in tests)


def scripts(*tests):
    return tuple(f"/usr/bin/python3 -B -m unittest --failfast test_{test}" for test in tests)


# Public headers are also compiled into the tests, so they are not changed.
LIBTAVIDL = Target(
    cmake_target="TavIDL",
    product="TavIDL/libTavIDL.so.*",
    sources=("TavIDL/records/*.cpp", "TavIDL/broker/*.cpp", "TavIDL/emp/*.cpp",
             "TavIDL/event/*.cpp"),
    headers={"TavIDL/records/codec.h": "TavIDL/emp/TavEmpOperations.cpp",
             "TavIDL/records/envelope.h": "TavIDL/emp/TavEmpOperations.cpp"},
    environment={"LD_LIBRARY_PATH": "{changed}/TavIDL"},
    tests={"": programs(
        "records/records_test", "emp/emp_test", "broker/broker_test", "event/event_test",
        "wire/wire_test", "proof/unknown_fields_test", "interop/interop_test", "proof/proof_calls",
        "modules/program_test", "proof/proof_differential --runs=20000", "proof/proof_messages",
        "proof/proof_allocations")},
    # The other tests above are not made for the sanitizer.
    sanitized_tests=programs("proof/unknown_fields_test", "emp/emp_test"))

CLIENT, SERVER, *FAILURES = programs(
    "host/host_client_test --gtest_fail_fast", "host/host_server_test --gtest_fail_fast",
    "proof/proof_host_allocations", "proof/proof_system_calls --only=unix")
ROUND_TRIP, FULL_SERVER, ENCRYPTED = (
    "{source}/tests/host/system_calls.sh strace {build}/tests/host/host_calls " + words
    for words in ("tcp buffered call", "unix framed batch", "tcp tls call"))
HOST = Target(
    cmake_target="TavIDLHost",
    product="TavIDL/host/libTavIDLHost.so.*",
    sources=("TavIDL/host/*.cpp",),
    noticed=95,
    environment={"LD_LIBRARY_PATH": "{changed}/TavIDL/host:{build}/TavIDL"},
    tests={"": (ROUND_TRIP, FULL_SERVER, SERVER, CLIENT, *FAILURES),
           **dict.fromkeys(("Batch.cpp", "EmpSession.cpp", "Remote.cpp", "address.cpp",
                            "channel.cpp", "pool.cpp"),
                           (ROUND_TRIP, CLIENT, SERVER, *FAILURES)),
           "tls.cpp": (ENCRYPTED, SERVER)})

DECODE, DESCRIBE, ENCODE, HELP, OPTIONS, TERMINAL, USAGE = (
    "transcripts.TranscriptTest.test" + name
    for name in ("Decode", "Describe", "Encode", "Help", "Options", "Terminal", "Usage"))
TAVCTL = Target(
    cmake_target="tavctl",
    product="tools/tavctl/tavctl",
    sources=("tools/tavctl/*.cpp",),
    noticed=95,
    environment={"TAVCTL": "{changed}/tools/tavctl/tavctl",
                 "PEER": "{build}/tests/tools/tools_peer", "EXAMPLES": "{build}/examples",
                 "GENERATED": "{build}/tests/tools",
                 "BUILD": "{build}", "SOURCE": "{source}", "PYTHONPATH": "{source}/tests/tools"},
    tests={"": scripts(DECODE, USAGE, "call", "decode.DecodeTest", "open", "observe"),
           "bench.cpp": scripts("bench"),
           "call.cpp": scripts(USAGE, "call"),
           "capture.cpp": scripts(DECODE, "observe", "captures", "follow"),
           "commandline.cpp": scripts(HELP, OPTIONS, USAGE, "manual.ManualTest", "call", "open",
                                      "observe", "bench", "decode.DecodeTest"),
           "conversations.cpp": scripts("captures"),
           "decode.cpp": scripts(DECODE, TERMINAL, "decode.DecodeTest", "captures",
                                 "decode.BrokenTest"),
           "decoder.cpp": scripts(DECODE, "decode.DecodeTest", "json", "encode", "decode",
                                  "observe.SpyTest"),
           "describe.cpp": scripts(DESCRIBE, TERMINAL, "manual.DescribeTest"),
           "encode.cpp": scripts(ENCODE, TERMINAL, "encode"),
           "encoder.cpp": scripts(ENCODE, "encode", "probe"),
           "follow.cpp": scripts("follow"),
           "interface.cpp": scripts(DESCRIBE, USAGE, DECODE, "manual.DescribeTest", "call"),
           "json.cpp": scripts(DECODE, "json", "decode.DecodeTest", "call", "decode.BrokenTest"),
           "listen.cpp": scripts("open.ListenTest"),
           "main.cpp": scripts(HELP, USAGE, OPTIONS, "manual.HelpTest", "manual.ManualTest", "call",
                               "open"),
           "message.cpp": scripts(DECODE, TERMINAL, "decode.DecodeTest", "observe", "encode",
                                  "decode.BrokenTest"),
           "open.cpp": scripts(USAGE, "transcripts.TerminalTest", "open"),
           "options.cpp": scripts(USAGE, "call", "open", "bench"),
           "pcap.cpp": scripts("captures"),
           "print.cpp": scripts(DECODE, USAGE, TERMINAL, "call", "decode.DecodeTest", "open",
                                "observe"),
           "probe.cpp": scripts(USAGE, "transcripts.TerminalTest", "observe.ProbeTest", "probe",
                                "call.TlsTest"),
           "sequence.cpp": scripts("captures.SequenceTest", DECODE, "captures"),
           "serve.cpp": scripts(USAGE, "transcripts.TerminalTest", "open.ServeTest",
                                "manual.ManualTest"),
           "spy.cpp": scripts(USAGE, "transcripts.TerminalTest", "observe.SpyTest", "follow",
                              "captures"),
           "stop.cpp": scripts("open", "bench"),
           "values.cpp": scripts(USAGE, ENCODE, "call", "encode", "open"),
           "wirenames.cpp": scripts(DECODE, ENCODE, "decode.DecodeTest", "encode")})

TARGETS = {"libTavIDL": LIBTAVIDL, "Host": HOST, "tavctl": TAVCTL}
