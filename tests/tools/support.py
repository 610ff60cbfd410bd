"""What the tests of tavctl share: running it, and peers for it to talk to."""

import json
import logging
import os
import re
import select
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

TAVCTL = os.environ["TAVCTL"]
EXAMPLES = os.environ["EXAMPLES"]
sys.path.insert(0, os.path.join(os.environ["GENERATED"], "gen-py"))

from thrift.protocol import TBinaryProtocol, TCompactProtocol, TJSONProtocol
from thrift.transport import TSocket, TTransport

# The generated code logs what handlers throw, which tests make them do.
logging.disable()

# No wait is meant to last that long: a test that comes to it fails.
PATIENCE = float(os.environ.get("PATIENCE", 60))

PROTOCOLS = {
    "binary": TBinaryProtocol.TBinaryProtocol,
    "compact": TCompactProtocol.TCompactProtocol,
    "json": TJSONProtocol.TJSONProtocol,
}
TRANSPORTS = {
    "buffered": TTransport.TBufferedTransport,
    "framed": TTransport.TFramedTransport,
}
COMBINATIONS = [(p, t) for p in PROTOCOLS for t in TRANSPORTS]


def environment(**extra):
    """A user's environment, without what would change the output."""
    ours = ("NO_COLOR", "TAV_CREDENTIAL", "TAVCTL_ADDRESS")
    variables = {k: v for k, v in os.environ.items() if k not in ours}
    variables["TERM"] = "xterm"
    variables.update(extra)
    return variables


def tavctl(*words, stdin=b"", **extra):
    """Runs tavctl to its end. Returns status, standard output, standard error."""
    ended = subprocess.run([TAVCTL, *words], input=stdin, env=environment(**extra),
                           capture_output=True, timeout=PATIENCE)
    return ended.returncode, ended.stdout.decode(), ended.stderr.decode()


class Process:
    """A process that runs next to the test and is ended with it."""

    def __init__(self, test, command, stdout=subprocess.PIPE, stdin=subprocess.PIPE,
                 preexec_fn=None, **extra):
        self.process = subprocess.Popen(command, stdin=stdin, stdout=stdout,
                                        stderr=subprocess.PIPE, env=environment(**extra),
                                        preexec_fn=preexec_fn)
        test.addCleanup(self.end)
        self.late = False
        self.watchdog = threading.Timer(PATIENCE, self.give_up)
        self.watchdog.start()

    def give_up(self):
        self.late = True
        self.process.kill()

    def line(self, stream="stdout"):
        return getattr(self.process, stream).readline().decode().rstrip("\n")

    def address(self):
        """Where tavctl says that it serves: its first note."""
        note = self.line("stderr")
        return re.search(r" on (\S+:\S+?),?( |$)", note).group(1)

    def signal(self, number):
        self.process.send_signal(number)

    def take(self, number):
        """Sends a signal, and waits until it was taken."""
        self.signal(number)
        pending = True
        while pending:
            with open("/proc/%d/status" % self.process.pid) as status:
                pending = re.search("ShdPnd:\t0+\n", status.read()) is None

    def wait(self):
        """Waits for its end. Returns status and what is left of its output."""
        out, err = self.process.communicate()
        self.watchdog.cancel()
        return self.process.returncode, (out or b"").decode(), err.decode()

    def end(self):
        self.watchdog.cancel()
        if self.process.poll() is None:
            self.process.kill()
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            if stream:
                stream.close()
        self.process.wait()
        if self.late:
            raise AssertionError("it had not ended after %d seconds" % PATIENCE)


def start(test, *words, **extra):
    return Process(test, [TAVCTL, *words], **extra)


def untimed(line):
    """A line of output with TIME for each time in it."""
    return re.sub(r"(?<!\d)(\d{4}-\d\d-\d\dT)?\d\d:\d\d:\d\d\.\d{3}Z?", "TIME", line)


class Peer:
    """Listens, and hands each connection to `serve` in a thread of its own."""

    def __init__(self, test, serve):
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.address = "127.0.0.1:%d" % self.port
        self.serve = serve
        test.addCleanup(self.end)
        self.thread = threading.Thread(target=self.accept, daemon=True)
        self.thread.start()

    def accept(self):
        while True:
            try:
                connection, _ = self.socket.accept()
            except OSError:
                return
            threading.Thread(target=self.guarded, args=(connection,), daemon=True).start()

    def guarded(self, connection):
        with connection:
            try:
                self.serve(connection)
            except Exception:
                pass  # whatever ends a connection here, the test sees what tavctl makes of it

    def end(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.thread.join()  # otherwise it might accept from the next socket with this number
        self.socket.close()


reserved = []


def free_port():
    """A port that the system gives to no other process. A server may listen on it."""
    bound = socket.socket()
    bound.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    bound.bind(("127.0.0.1", 0))
    reserved.append(bound)
    return bound.getsockname()[1]


def generated_peer(test, processor, protocol="binary", transport="buffered"):
    """A peer made of code that the Thrift compiler generated."""

    def serve(connection):
        handle = TSocket.TSocket()
        handle.setHandle(connection)
        wire = PROTOCOLS[protocol](TRANSPORTS[transport](handle))
        while True:
            processor.process(wire, wire)

    return Peer(test, serve)


def fill(connection, message):
    """Sends messages until all buffers on the way are full."""
    connection.setblocking(False)
    while select.select([], [connection], [], 0.5)[1]:
        try:
            connection.send(1000 * message)
        except BlockingIOError:
            pass


def saying(test, answer):
    """A peer that waits for the first bytes and then says `answer`."""

    def serve(connection):
        connection.recv(65536)
        connection.sendall(answer)

    return Peer(test, serve)


def generated_client(test, client, address, protocol="binary", transport="buffered"):
    host, port = address.rsplit(":", 1)
    handle = TSocket.TSocket(host, int(port))
    handle.setTimeout(PATIENCE * 1000)
    wire = TRANSPORTS[transport](handle)
    wire.open()
    test.addCleanup(wire.close)
    return client.Client(PROTOCOLS[protocol](wire))


def certificate_and_key(test, name="right", alternative="IP:127.0.0.1"):
    """Makes both. Returns the names of their files."""
    files = [os.path.join(test.directory(), name + end) for end in (".crt", ".key")]
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj", "/CN=" + name,
                    "-addext", "subjectAltName=" + alternative, "-keyout", files[1], "-out",
                    files[0]], check=True, capture_output=True)
    return files


def example_broker(test):
    """The broker of the examples. Returns its address."""
    process = Process(test, [os.path.join(EXAMPLES, "broker")], TAV_CREDENTIAL="sesame")
    return "127.0.0.1:" + process.line()


class ToolTest(unittest.TestCase):
    maxDiff = None

    def directory(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        return directory.name

    def assertErrorHas(self, status, error, ended):
        """Status, nothing on standard output, and one line on standard error with `error`."""
        self.assertEqual((status, ""), ended[:2], ended)
        self.assertEqual(1, ended[2].count("\n"), ended[2])
        self.assertIn(error, ended[2])


def frame(message):
    return len(message).to_bytes(4, "big") + message


# "Close" with clientID 7, in each protocol.
CLOSE = {
    "binary": bytes.fromhex("80010001 00000005 436c6f7365 00000000 08 0001 00000007 00"),
    "compact": bytes.fromhex("8221 00 05 436c6f7365 15 0e 00"),
    "json": b'[1,"Close",1,0,{"1":{"i32":7}}]',
}
