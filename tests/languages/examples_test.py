#!/usr/bin/env python3
"""The examples in other languages, as processes, with the C++ examples at the other end.

    examples_test.py BUILD EXAMPLES      what unittest offers may follow

BUILD is where the generated modules are, EXAMPLES where the C++ examples were built.
"""

import contextlib
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
SOURCE = HERE.parent.parent / "examples"
BUILD, EXAMPLES = (Path(sys.argv.pop(1)).resolve() for _ in range(2))
sys.path.insert(0, str(BUILD / "gen-py"))

from TAV_IDL import TavEmp  # noqa: E402
from thrift.protocol.TBinaryProtocol import TBinaryProtocol  # noqa: E402
from thrift.transport.TSocket import TSocket  # noqa: E402
from thrift.transport.TTransport import TBufferedTransport  # noqa: E402

INTERPRETERS = {
    "python": [sys.executable, "py"],
    "javascript": ["node", "js"],
}
CREDENTIAL = "swordfish"
ENVIRONMENT = {
    **os.environ,
    "TAV_CREDENTIAL": CREDENTIAL,
    "PYTHONPATH": str(BUILD / "gen-py"),
    "NODE_PATH": f"{BUILD / 'javascript' / 'node_modules'}:{BUILD / 'gen-nodejs'}",
}

OUTPUT_OF_PROGRAM = """\
OpenEmp: emp-1
Open: {true}
read: 21.5 C
label: kitchen/window/north
watch: watched kitchen
event: 1 kitchen 21.5
event: 1 kitchen 21.7
event: 1 kitchen 21.6
fly: the thermometer has no command 'fly'
Close: 4
CloseEmp: {true}
"""


def command(language, program, *arguments):
    interpreter, suffix = INTERPRETERS[language]
    return [interpreter, str(SOURCE / language / f"{program}.{suffix}"), *map(str, arguments)]


@contextlib.contextmanager
def started(process_command, **how):
    """A process that has printed its first line, and that line. It must exit with 0."""
    with subprocess.Popen(
        process_command,
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env=ENVIRONMENT,
        text=True,
        **how,
    ) as process:
        try:
            yield process, process.stdout.readline().strip()
        finally:
            process.kill()


@contextlib.contextmanager
def broker(directory):
    with started([str(directory / "broker")]) as (process, port):
        yield port
        process.send_signal(signal.SIGTERM)
        process.wait(20)


def run(process_command, **changes):
    return subprocess.run(
        process_command,
        env={**ENVIRONMENT, **changes},
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
    )


@contextlib.contextmanager
def reserved_port():
    """A port that the system gives to no other process, but that a server can use."""
    with socket.socket() as holder:
        holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        holder.bind(("127.0.0.1", 0))
        yield holder.getsockname()[1]


class Examples:
    """Tests for each language."""

    language = None

    def test_the_program_in_cpp_finds_all_as_expected_at_this_emp(self):
        with tempfile.TemporaryDirectory() as name:
            directory = Path(name)
            for program in ["broker", "program"]:
                shutil.copy(EXAMPLES / program, directory)
            # The broker starts the program of this name in its own directory.
            wrapper = directory / "emp"
            wrapper.write_text(f'#!/bin/sh\nexec {" ".join(command(self.language, "emp"))} "$@"\n')
            wrapper.chmod(0o755)
            with broker(directory) as port:
                program = run([str(directory / "program"), port])
        self.assertEqual(program.returncode, 0, program.stderr)

    def test_this_program_finds_all_as_expected_at_the_broker_and_the_emp_in_cpp(self):
        with broker(EXAMPLES) as port:
            program = run(command(self.language, "program", port))
        true = "True" if self.language == "python" else "true"
        self.assertEqual(program.stdout, OUTPUT_OF_PROGRAM.format(true=true), program.stderr)
        self.assertEqual(program.returncode, 0)

    def test_a_wrong_credential_is_told_in_one_line(self):
        with broker(EXAMPLES) as port:
            program = run(command(self.language, "program", port), TAV_CREDENTIAL="guessed")
        self.assertEqual(program.returncode, 1)
        self.assertEqual(len(program.stderr.splitlines()), 1, program.stderr)
        self.assertIn("wrong credential for 'thermometer'", program.stderr)

    def test_a_broker_that_is_not_there_is_told_in_one_line(self):
        with reserved_port() as port:
            program = run(command(self.language, "program", port))
        self.assertEqual(program.returncode, 1)
        self.assertEqual(len(program.stderr.splitlines()), 1, program.stderr)

    def test_arguments_that_are_none_are_answered_with_the_usage(self):
        for program in ["program", "emp"]:
            ended = run(command(self.language, program, "x"))
            self.assertEqual(ended.returncode, 1)
            self.assertRegex(ended.stderr, f"^usage: {program}[^\n]*\n$")

    def test_the_emp_survives_bytes_that_are_no_call(self):
        hostile = {
            "four bytes": b"\x7f\xff\xff\xff",
            "a text of negative length": b"\x80\x01\x00\x01\xff\xff\xff\xff",
            "HTTP": b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n",
            "an operation's name of 2 GiB": b"\x80\x01\x00\x01\x7f\xff\xff\xff",
        }
        with reserved_port() as port, started(
            command(self.language, "emp", "emp-1", port, port)
        ) as (process, line):
            self.assertEqual(line, "emp-1 serves")
            for what, sent in hostile.items():
                with self.subTest(what):
                    # It closes the connection immediately, not after a time-out.
                    with socket.create_connection(("127.0.0.1", port), 5) as connection:
                        connection.sendall(sent)
                        with contextlib.suppress(ConnectionResetError):
                            self.assertEqual(connection.recv(1), b"")
                    transport = TBufferedTransport(TSocket("127.0.0.1", port))
                    transport.open()
                    emp = TavEmp.Client(TBinaryProtocol(transport))
                    self.assertTrue(emp.Open(1, "thermometer", "1.0", CREDENTIAL))
                    transport.close()
            process.stdin.close()
            self.assertEqual(process.wait(20), 0)


class PythonExamples(Examples, unittest.TestCase):
    language = "python"


class JavascriptExamples(Examples, unittest.TestCase):
    language = "javascript"


unittest.main(verbosity=2)
