"""That probe is harmless, whatever it meets: peers with little memory survive many of them."""

import concurrent.futures
import os
import resource
import subprocess

from support import *

from TAV_IDL import TavEmp
from thrift.transport import THttpClient

PEER = os.environ["PEER"]
PROBES = 10 if "UNLIMITED" in os.environ else 100  # there, processes start slowly

# The beginnings of these are lengths of more than this much memory. The stacks of threads take
# some of it, at most this much each: a server may have a thread for each of the probes. (So would
# the arenas that malloc reserves for each.)
MEMORY = 320 << 20
STACK = 512 << 10
TEXT = {"JSON": b'[1,"', "HTTP": b"GET / HTTP/1.0\r\n\r\n", "TLS": bytes.fromhex("16030100")}


class Frugal:
    """A peer whose memory is limited."""

    def __init__(self, test, *words):
        def limit():
            if "UNLIMITED" not in os.environ:
                resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
                resource.setrlimit(resource.RLIMIT_STACK, (STACK, STACK))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        self.words = words
        self.peer = Process(test, [PEER, *words], preexec_fn=limit, MALLOC_ARENA_MAX="1")
        self.address = "127.0.0.1:" + self.peer.line()
        self.test = test

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        self.peer.end()

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", int(self.address.split(":")[1])))
        connection.settimeout(PATIENCE)
        self.test.addCleanup(connection.close)
        return connection

    def assertAlive(self):
        protocol, transport = self.words[1:3]
        if transport == "http":
            wire = THttpClient.THttpClient("http://%s/" % self.address)
            self.test.assertEqual(5, TavEmp.Client(PROTOCOLS[protocol](wire)).Close(5))
            wire.close()
        else:
            status, out, err = tavctl("probe", self.address, "--protocol", protocol,
                                      "--transport", transport)
            self.test.assertEqual((0, ""), (status, err))
        self.test.assertIsNone(self.peer.process.poll())


class HarmlessTest(ToolTest):
    def probe(self, address, *words, count=PROBES):
        """Many at a time. Returns their statuses and the different errors."""
        with concurrent.futures.ThreadPoolExecutor(8) as threads:
            ended = list(threads.map(lambda _: tavctl("probe", address, *words), range(count)))
        return {status for status, _, _ in ended}, {err for _, _, err in ended}

    def testABusyPeerSurvives(self):
        for protocol, transport in COMBINATIONS + [("binary", "http")]:
            with self.subTest(protocol=protocol, transport=transport), \
                    Frugal(self, "simple", protocol, transport) as peer:
                caller = self.occupy(peer, protocol, transport)
                statuses, errors = self.probe(peer.address, "--timeout", "0.05")
                self.assertEqual({4}, statuses, errors)
                self.assertEqual(1, len(errors))
                peer.peer.process.stdin.write(b"\n")
                peer.peer.process.stdin.flush()
                caller.close()  # it serves one connection at a time
                peer.assertAlive()

    def occupy(self, peer, protocol, transport):
        call = {"binary": bytes.fromhex("80010001 00000005 436c6f7365 00000000 08 0001 00000001 00"),
                "compact": bytes.fromhex("8221 00 05 436c6f7365 15 02 00"),
                "json": b'[1,"Close",1,0,{"1":{"i32":1}}]'}[protocol]
        if transport == "framed":
            call = frame(call)
        if transport == "http":
            call = b"POST / HTTP/1.1\r\nContent-Length: %d\r\n\r\n" % len(call) + call
        caller = peer.connect()
        caller.sendall(call)
        self.assertEqual("busy", peer.peer.line())
        return caller

    def testAHungPeerSurvives(self):
        for words in [("simple", "binary", "buffered"), ("threaded", "compact", "buffered"),
                      ("nonblocking", "binary", "framed"), ("host", "binary", "buffered")]:
            with self.subTest(words), Frugal(self, *words) as peer:
                peer.peer.signal(signal.SIGSTOP)
                statuses, errors = self.probe(peer.address, "--timeout", "0.05")
                self.assertEqual({4}, statuses, errors)
                peer.peer.signal(signal.SIGCONT)
                peer.assertAlive()

    def testAPeerThatHasReadHalfAMessageSurvives(self):
        for protocol, transport in COMBINATIONS + [("binary", "http")]:
            with self.subTest(protocol=protocol, transport=transport), \
                    Frugal(self, "simple", protocol, transport) as peer:
                half = CLOSE[protocol] if transport != "framed" else frame(CLOSE[protocol])
                other = peer.connect()
                other.sendall(half[:len(half) // 2])
                statuses, errors = self.probe(peer.address, "--timeout", "0.05")
                self.assertEqual({4}, statuses, errors)
                other.close()
                peer.assertAlive()

    def testAPeerThatExpectsSomethingElseSurvives(self):
        for kind in ("simple", "threaded", "host"):
            for protocol, transport in COMBINATIONS + [("binary", "http")]:
                if kind == "host" and (protocol == "json" or transport == "http"):
                    continue
                with self.subTest(kind=kind, speaks=(protocol, transport)), \
                        Frugal(self, kind, protocol, transport) as peer:
                    for asked in TRANSPORTS:
                        statuses, errors = self.probe(peer.address, "--timeout", "0.1",
                                                      "--transport", asked, count=PROBES // 2)
                        self.assertLessEqual(statuses, {0, 4, 6}, errors)
                    peer.assertAlive()

    def testATlsPeerSurvives(self):
        certificate, key = certificate_and_key(self)
        peer = Frugal(self, "host", "compact", "framed", certificate, key)
        statuses, errors = self.probe(peer.address, "--timeout", "0.3")
        self.assertLessEqual(statuses, {4, 6}, errors)
        status, out, err = tavctl("probe", peer.address, "--tls", "--ca", certificate,
                                  "--protocol", "compact", "--transport", "framed")
        self.assertEqual((0, ""), (status, err))
        self.assertIn("speaks compact over framed over TLS, ", out)

    def testTextEndsAPeerLikeThese(self):
        """So the tests above can fail. Text must never be sent without being asked for."""
        for name, text in ({} if "UNLIMITED" in os.environ else TEXT).items():
            with self.subTest(name), Frugal(self, "simple", "binary", "buffered") as peer:
                with peer.connect() as connection:
                    connection.sendall(text)
                    connection.shutdown(socket.SHUT_WR)
                    connection.recv(1)
                self.assertEqual(-signal.SIGABRT, peer.peer.wait()[0])

    def testNothingButBinaryAndCompactIsSent(self):
        received = []

        def closing(connection):
            received.append(connection.recv(4096))

        status, _, err = tavctl("probe", Peer(self, closing).address)
        self.assertEqual(6, status)
        call = {"binary": bytes.fromhex("80010001 0000000c 74617663746c2e70726f6265 00000000"),
                "compact": bytes.fromhex("822100 0c 74617663746c2e70726f6265")}
        self.assertEqual(
            [call["binary"] + b"\x08\0\1\0\0\0\0\0", call["binary"] + b"\0",
             frame(call["binary"] + b"\0"), call["compact"] + b"\0",
             frame(call["compact"] + b"\0")], received)
        self.assertIn("it may use TLS (--tls), or speak JSON or HTTP (see --try-text)", err)


    def testWhatWasTriedIsNotSuggested(self):
        def echo(connection):
            while part := connection.recv(4096):
                connection.sendall(part)

        peer = Peer(self, echo).address
        self.assertEqual("tavctl: tavctl.probe at %s: it answers as if there were this operation; "
                         "it seems to speak binary over buffered\n" % peer,
                         tavctl("probe", peer)[2])


class SilenceTest(ToolTest):
    def testASilentPeerIsSaidToHangOrToBeBusyAndIsAskedNothingElse(self):
        received = []

        def silent(connection):
            while part := connection.recv(4096):
                received.append(part)

        peer = Peer(self, silent)
        for words in ((), ("--transport", "framed")):
            del received[:]
            with self.subTest(words):
                self.assertErrorHas(4, "tavctl: %s accepts connections but does not answer: it hangs, "
                                    "or all its threads are busy; if it answers others, check "
                                    "--protocol and --transport\n" % peer.address,
                                    tavctl("probe", peer.address, "--timeout", "0.2", *words))
                self.assertEqual(1, len(received))


if __name__ == "__main__":
    unittest.main()
