"""The verbs that look at what others do: probe and spy."""

import contextlib
import os
import struct

from support import *

from TAV_IDL import TavEmp


class Emp:
    def __init__(self):
        self.calls = []

    def Open(self, *arguments):
        self.calls.append(arguments)
        return True

    def Close(self, clientID):
        self.calls.append(clientID)
        return -clientID


class ProbeTest(ToolTest):
    def testALivingServiceAnswersThatItDoesNotKnowTheOperation(self):
        for protocol, transport in COMBINATIONS:
            with self.subTest(protocol=protocol, transport=transport):
                emp = Emp()
                peer = generated_peer(self, TavEmp.Processor(emp), protocol, transport)
                status, out, err = tavctl("probe", peer.address, "--protocol", protocol,
                                          "--transport", transport)
                self.assertEqual((0, ""), (status, err))
                self.assertRegex(out, r"^alive: %s speaks %s over %s, answered UNKNOWN_METHOD in "
                                      r"\d+(\.\d)? ms\n$" % (peer.address, protocol, transport))
                self.assertEqual([], emp.calls)

    def testAMismatchShowsWhatThePeerSpeaks(self):
        for protocol, transport in COMBINATIONS[1:]:
            with self.subTest(protocol=protocol, transport=transport):
                peer = generated_peer(self, TavEmp.Processor(Emp()), protocol, transport)
                words = ["--try-text"] if protocol == "json" else []
                status, out, err = tavctl("probe", peer.address, *words)
                self.assertEqual(6, status)
                self.assertIn("; it seems to speak %s over %s, try --protocol %s --transport %s\n"
                              % (2 * (protocol, transport)), err)

    def testAWebServerIsKnown(self):
        peer = saying(self, b"HTTP/1.1 400 Bad Request\r\n\r\n")
        self.assertErrorHas(6, "; it seems to speak HTTP\n", tavctl("probe", peer.address))

    def testTlsIsKnown(self):
        peer = saying(self, bytes.fromhex("15030100020228"))
        self.assertErrorHas(6, "; it seems to speak TLS, try --tls\n", tavctl("probe", peer.address))

    def testWithTextAllHasBeenTriedAtASilentPeer(self):
        """Which is asked on then: the user takes the risk."""
        asked = []
        never = threading.Event()
        self.addCleanup(never.set)

        def silent(connection):
            asked.append(connection.recv(4096))
            never.wait(PATIENCE)

        ended = tavctl("probe", Peer(self, silent).address, "--try-text", "--timeout", "0.5")
        self.assertErrorHas(4, "; it speaks no protocol that was tried; it may use TLS (--tls)\n", ended)
        self.assertLess(1, len(asked))

    def testTextIsSentOnlyIfAnOptionAsksForIt(self):
        asked = []
        peer = Peer(self, lambda connection: asked.append(connection.recv(4096)))
        for words, text in ([], []), (["--try-text"], [b"[1,", b"GET / HTTP/1.0\r\n\r\n"]):
            asked.clear()
            self.assertEqual(6, tavctl("probe", peer.address, *words)[0])
            beginnings = [question if question[:1] == b"G" else question[:3]
                          for question in asked if question[:1] in b"[G"]
            self.assertEqual(text, beginnings)

    def testAnAnswerThatIsNotAnExceptionIsReported(self):
        reply = bytes.fromhex("80010002 0000000c 74617663746c2e70726f6265 00000000 00")
        self.assertErrorHas(6, "it answers as if there were this operation",
                            tavctl("probe", saying(self, reply).address))

    def testAStrangerIsNot(self):
        peer = saying(self, b"what?")
        self.assertErrorHas(6, "; it speaks no protocol that was tried; it may use TLS (--tls), or "
                            "speak JSON or HTTP (see --try-text)\n", tavctl("probe", peer.address))

    def testBadUsageIsReportedWithoutAsking(self):
        self.assertErrorHas(2, "--tls needs --ca, to check the peer's certificate\n",
                            tavctl("probe", "127.0.0.1:1", "--tls"))

    def testTheAddressMayComeFromTheEnvironment(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()))
        self.assertEqual(0, tavctl("probe", TAVCTL_ADDRESS=peer.address)[0])
        self.assertErrorHas(2, "an ADDRESS is missing", tavctl("probe"))

    def testNobodyThereMeansNoConnection(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            address = "127.0.0.1:%d" % closed.getsockname()[1]
        self.assertErrorHas(3, "cannot connect", tavctl("probe", address))

    def testJsonIsOneObject(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()))
        answer = json.loads(tavctl("probe", peer.address, "--json")[1])
        del answer["ms"]
        self.assertEqual({"address": peer.address, "alive": True, "protocol": "binary",
                          "transport": "buffered", "answer": "UNKNOWN_METHOD"}, answer)


class SpyTest(ToolTest):
    def testBothDirectionsArePrintedAndCanBeDecodedLater(self):
        for protocol, transport in COMBINATIONS:
            with self.subTest(protocol=protocol, transport=transport):
                wire = ["--protocol", protocol, "--transport", transport]
                emp = Emp()
                peer = generated_peer(self, TavEmp.Processor(emp), protocol, transport)
                file = os.path.join(self.directory(), "capture")
                spy = start(self, "spy", "127.0.0.1:0", peer.address, "--json", "--write", file,
                            *wire)
                client = generated_client(self, TavEmp, spy.address(), protocol, transport)
                self.assertTrue(client.Open(7, "camera", "1.0", "sesame"))
                seen = [json.loads(spy.line()) for _ in range(2)]
                self.assertEqual(-7, client.Close(7))
                seen += [json.loads(spy.line()) for _ in range(2)]
                self.assertEqual([(7, "camera", "1.0", "sesame"), 7], emp.calls)
                self.assertEqual(
                    [("client", "Open", "call"), ("target", "Open", "reply"),
                     ("client", "Close", "call"), ("target", "Close", "reply")],
                    [(line["from"], line["operation"], line["type"]) for line in seen])
                self.assertEqual(
                    [{"id": 1, "name": "clientID", "type": "i32", "value": 7},
                     {"id": 2, "name": "name", "type": "string", "value": "camera"},
                     {"id": 3, "name": "version", "type": "string", "value": "1.0"},
                     {"id": 4, "name": "credential", "type": "string", "value": "***"}],
                    seen[0]["fields"])
                self.assertEqual([{"id": 0, "name": "success", "type": "i32", "value": -7}],
                                 seen[3]["fields"])
                spy.signal(signal.SIGINT)
                self.assertEqual(0, spy.wait()[0])

                with open(file) as written:
                    text = written.read()
                self.assertNotIn("sesame", text)
                self.assertNotIn(b"sesame".hex(), text)
                self.assertIn(b"******".hex(), text)
                status, out, err = tavctl("decode", file, "--json")
                self.assertEqual((0, ""), (status, err))
                decoded = [json.loads(line) for line in out.splitlines()]
                self.assertEqual([line["fields"] for line in seen],
                                 [line["fields"] for line in decoded])
                self.assertEqual([round(line["ms"], 1) for line in decoded],
                                 [line["ms"] for line in decoded])

    def testPeopleSeeThem(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()))
        spy = start(self, "spy", "127.0.0.1:0", peer.address)
        generated_client(self, TavEmp, spy.address()).Close(7)
        self.assertEqual(
            ["[1] client  TIME", "  Close call seqid 0, 25 bytes at 0", "    1  clientID  i32    7",
             "[1] target  TIME", "  Close reply seqid 0, 25 bytes at 0", "    0  success  i32    -7"],
            [untimed(spy.line()) for _ in range(6)])

    def testWhateverPassesIsUnchanged(self):
        whole = os.urandom(300000)
        peer = Peer(self, lambda connection: self.echo(connection))
        for transport in TRANSPORTS:
            with self.subTest(transport):
                spy = start(self, "spy", "127.0.0.1:0", peer.address, "--transport", transport,
                            stdout=subprocess.DEVNULL)
                host, port = spy.address().split(":")
                with socket.create_connection((host, int(port))) as connection:
                    connection.settimeout(PATIENCE)
                    for message in (CLOSE["binary"], frame(CLOSE["compact"]), whole):
                        sender = threading.Thread(target=connection.sendall, args=(message,))
                        sender.start()
                        back = b""
                        while len(back) < len(message):
                            part = connection.recv(65536)
                            self.assertNotEqual(b"", part)
                            back += part
                        sender.join()
                        self.assertEqual(message, back)
                    connection.shutdown(socket.SHUT_WR)
                    self.assertEqual(b"", connection.recv(1))

    def echo(self, connection):
        while True:
            part = connection.recv(65536)
            if not part:
                return
            connection.sendall(part)

    def testItsNotesSayWhatHappens(self):
        peer = saying(self, b"x")
        spy = start(self, "spy", "127.0.0.1:0", peer.address, stdout=subprocess.DEVNULL)
        note = spy.line("stderr")
        self.assertRegex(note, r"^tavctl: spying on \S+:\d+, for %s$" % peer.address)
        host, port = note.split()[3].rstrip(",").split(":")
        with socket.create_connection((host, int(port))) as connection:
            connection.sendall(100 * b"?")
            self.assertEqual(b"x", connection.recv(1))
        notes = [spy.line("stderr") for _ in range(3)]
        self.assertEqual(["tavctl: connection 1 made", "tavctl: connection 1: 96 more bytes from the "
                          "client could not be decoded", "tavctl: connection 1 ended"], notes)

    def testTheWrongProtocolIsReportedAndPassedOn(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()), "compact", "framed")
        spy = start(self, "spy", "127.0.0.1:0", peer.address)
        client = generated_client(self, TavEmp, spy.address(), "compact", "framed")
        self.assertEqual(-7, client.Close(7))
        lines = [spy.line() for _ in range(4)]
        self.assertIn("  it looks like compact over framed, not binary over buffered", lines)

    def testACredentialThatCannotBeFoundIsNotKept(self):
        """In bytes that come after a break, be it in a frame or not."""
        for protocol, transport in COMBINATIONS:
            for wire in COMBINATIONS:
                if wire == (protocol, transport):
                    continue
                with self.subTest(speaks=(protocol, transport), spy_expects=wire):
                    peer = generated_peer(self, TavEmp.Processor(Emp()), protocol, transport)
                    file = os.path.join(self.directory(), "capture")
                    spy = start(self, "spy", "127.0.0.1:0", peer.address, "--write", file,
                                "--protocol", wire[0], "--transport", wire[1])
                    client = generated_client(self, TavEmp, spy.address(), protocol, transport)
                    self.assertTrue(client.Open(7, "camera", "1.0", "sesame"))
                    spy.signal(signal.SIGTERM)
                    status, out, err = spy.wait()
                    self.assertEqual(0, status)
                    with open(file) as written:
                        text = written.read()
                    self.assertNotIn(b"sesame".hex(), text)
                    self.assertNotIn("sesame", text + out + err)

    def testAFullDiskIsReportedAndDoesNotDisturbTheCalls(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()))
        file = os.path.join(self.directory(), "capture")
        spy = Process(self, ["bash", "-c", "trap '' XFSZ; ulimit -f 1; exec \"$0\" \"$@\"", TAVCTL,
                             "spy", "127.0.0.1:0", peer.address, "--write", file])
        client = generated_client(self, TavEmp, spy.address())
        for number in range(20):
            self.assertEqual(-number, client.Close(number))
        spy.signal(signal.SIGTERM)
        status, out, err = spy.wait()
        self.assertEqual(6, status)
        self.assertEqual(40, out.count("Close"))
        self.assertEqual(1, err.count("cannot write to '%s'; check the path" % file))

    def testATargetThatIsNotThereEndsTheConnection(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            address = "127.0.0.1:%d" % closed.getsockname()[1]
        spy = start(self, "spy", "127.0.0.1:0", address)
        host, port = spy.address().split(":")
        with socket.create_connection((host, int(port))) as connection:
            connection.settimeout(PATIENCE)
            self.assertEqual(b"", connection.recv(1))
        self.assertRegex(spy.line("stderr"), "connection 1: .* at %s: cannot connect: Connection "
                                             "refused; check that it runs" % address)

    def testASignalEndsAConnectionThatIsNotMadeYet(self):
        """The kernel takes no more connections than it may keep, and leaves the others waiting."""
        target = socket.create_server(("127.0.0.1", 0), backlog=0)
        self.addCleanup(target.close)
        self.addCleanup(target.shutdown, socket.SHUT_RDWR)
        port = target.getsockname()[1]

        def accept():
            with contextlib.suppress(OSError):  # at the end of the test
                while True:
                    self.addCleanup(target.accept()[0].close)

        def waiting():
            with open("/proc/net/tcp") as table:
                return len(re.findall(" 0100007F:%04X 02 " % port, table.read()))

        while not waiting():
            other = socket.socket()
            self.addCleanup(other.close)
            other.setblocking(False)
            other.connect_ex(target.getsockname())
        others = waiting()
        spy = start(self, "spy", "127.0.0.1:0", "127.0.0.1:%d" % port)
        host, spied = spy.address().split(":")
        with socket.create_connection((host, int(spied))) as connection:
            while waiting() == others:
                pass
            spy.take(signal.SIGTERM)
            threading.Thread(target=accept, daemon=True).start()
            self.assertEqual((0, ""), spy.wait()[:2])
            self.assertEqual(b"", connection.recv(1))

    def testAConnectionThatOneSideBreaksEndsForTheOther(self):
        for breaks in ("client", "target"):
            with self.subTest(breaks):
                target = socket.create_server(("127.0.0.1", 0))
                self.addCleanup(target.close)
                spy = start(self, "spy", "127.0.0.1:0",
                            "127.0.0.1:%d" % target.getsockname()[1])
                host, port = spy.address().split(":")
                client = socket.create_connection((host, int(port)))
                ends = {"client": client, "target": target.accept()[0]}
                for end in ends.values():
                    self.addCleanup(end.close)
                    end.settimeout(PATIENCE)
                broken = ends.pop(breaks)
                broken.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                broken.close()  # without waiting: the other end gets an error
                [other] = ends.values()
                self.assertEqual(b"", other.recv(1))

    def testASignalEndsIdleConnections(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()))
        spy = start(self, "spy", "127.0.0.1:0", peer.address)
        client = generated_client(self, TavEmp, spy.address())
        client.Close(1)
        spy.line()
        spy.signal(signal.SIGTERM)
        self.assertEqual(0, spy.wait()[0])

    def testASignalEndsAConnectionWhoseTargetDoesNotRead(self):
        never = threading.Event()
        self.addCleanup(never.set)
        peer = Peer(self, lambda connection: never.wait(PATIENCE))
        spy = start(self, "spy", "127.0.0.1:0", peer.address, stdout=subprocess.DEVNULL)
        host, port = spy.address().split(":")
        with socket.create_connection((host, int(port))) as connection:
            fill(connection, 100 * b"?")
            spy.signal(signal.SIGTERM)
            self.assertEqual(0, spy.wait()[0])

    def testASignalEndsAConnectionWhoseClientDoesNotRead(self):
        full = threading.Event()

        def talk(connection):
            fill(connection, 100 * b"?")
            full.set()
            select.select([connection], [], [])

        peer = Peer(self, talk)
        spy = start(self, "spy", "127.0.0.1:0", peer.address, stdout=subprocess.DEVNULL)
        host, port = spy.address().split(":")
        with socket.create_connection((host, int(port))):
            self.assertTrue(full.wait(PATIENCE))
            spy.signal(signal.SIGTERM)
            self.assertEqual(0, spy.wait()[0])

    def testWithJsonEachMessageHasItsTime(self):
        peer = generated_peer(self, TavEmp.Processor(Emp()))
        spy = start(self, "spy", "127.0.0.1:0", peer.address, "--json")
        generated_client(self, TavEmp, spy.address()).Close(7)
        self.assertEqual("TIME", untimed(json.loads(spy.line())["time"]))

    def testADashIsNotTheNameOfAFile(self):
        self.assertErrorHas(2, "--write takes the name of a file; --json prints",
                            tavctl("spy", "127.0.0.1:0", "127.0.0.1:1", "--write", "-"))
        self.assertFalse(os.path.exists("-"))

    def testAFileThatCannotBeWrittenIsReportedAtOnce(self):
        self.assertErrorHas(6, "cannot write to '/nonexistent/file'",
                            tavctl("spy", "127.0.0.1:0", "127.0.0.1:1", "--write",
                                   "/nonexistent/file"))


if __name__ == "__main__":
    unittest.main()
