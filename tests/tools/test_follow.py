"""spy --follow, which also stands between clients and the EMPs that a broker opens."""

import os

from support import *

from TAV_IDL import TavBroker, TavEmp, TavEmpEvent
from TAV_IDL.ttypes import ConnectionInfo


class Broker:
    """Remembers which ports it gets."""

    def __init__(self, *infos):
        self.infos = list(infos)
        self.ports = []

    def OpenEmp(self, *arguments):
        return self.infos.pop(0)

    def Execute(self, fromPort, *arguments):
        self.ports.append(fromPort)
        return ""

    def CloseEmp(self, info):
        self.ports.append((info.callbackServicePort, info.empServicePort))
        return True


class Emp:
    """Sends an event when it is called."""

    def __init__(self, test, callbackPort, wire):
        self.test, self.port, self.wire = test, callbackPort, wire

    def Execute(self, clientID, cmd, *params):
        address = "127.0.0.1:%d" % self.port
        generated_client(self.test, TavEmpEvent, address, *self.wire).Callback(3, cmd, "")
        return cmd


class FollowTest(ToolTest):
    def spy(self, broker, *words, **extra):
        """Starts a spy. Returns it and its address."""
        spy = start(self, "spy", "127.0.0.1:0", broker, *words, **extra)
        return spy, spy.address()

    def connect(self, address):
        host, port = address.split(":")
        connection = socket.create_connection((host, int(port)), PATIENCE)
        self.addCleanup(connection.close)
        return connection

    def broker(self, *infos):
        """A broker that answers with these, and its address."""
        broker = Broker(*infos)
        return broker, generated_peer(self, TavBroker.Processor(broker)).address

    def end(self, spy):
        """Ends the spy. Returns its messages."""
        spy.signal(signal.SIGTERM)
        status, out, _ = spy.wait()
        self.assertEqual(0, status)
        return [json.loads(line) for line in out.splitlines()]

    def events(self, spied, count, *words):
        """Opens an EMP through a spy, and waits for this many events. Returns them."""
        process = start(self, "open", spied, "thermometer", "1.0", "--json", "--stay", "--run",
                        *words, TAV_CREDENTIAL="sesame")
        events = []
        while len(events) < count:
            line = json.loads(process.line())
            events += [line["event"]] if "event" in line else []
        self.assertEqual("tavctl: open until a signal comes", process.line("stderr"))
        process.signal(signal.SIGTERM)
        self.assertEqual(0, process.wait()[0])
        return events

    def testTheCallsOfAnEmpAndItsEventsAreShown(self):
        spy, spied = self.spy(example_broker(self), "--follow", "--json")
        events = self.events(spied, 3, "Open", "--run", "Execute", "cmd=watch", "param1=oven")
        self.assertEqual(["21.5", "21.7", "21.6"], [event["param2"] for event in events])
        seen = [(line["connection"], line["from"], line["operation"]) for line in self.end(spy)]
        self.assertEqual([(1, "client", "OpenEmp"), (1, "target", "OpenEmp"),
                          (1, "client", "CloseEmp"), (1, "target", "CloseEmp")],
                         [line for line in seen if line[0] == 1])
        self.assertEqual([(2, "client", "Open"), (2, "target", "Open"),
                          (2, "client", "Execute"), (2, "target", "Execute")],
                         [line for line in seen if line[0] == 2])
        self.assertEqual(3 * [(3, "client", "Callback")],
                         [line for line in seen if line[0] == 3])
        self.assertEqual(11, len(seen))

    def testItFollowsInEachProtocolAndTransport(self):
        for wire in COMBINATIONS:
            with self.subTest(wire):
                callback = free_port()
                emp = generated_peer(self, TavEmp.Processor(Emp(self, callback, wire)), *wire)
                broker = Broker(ConnectionInfo(callback, emp.port, "the-emp"))
                peer = generated_peer(self, TavBroker.Processor(broker), *wire)
                options = ["--protocol", wire[0], "--transport", wire[1]]
                spy, spied = self.spy(peer.address, "--follow", "--json", *options)
                self.assertEqual([{"eventType": 3, "param1": "hello", "param2": ""}],
                                 self.events(spied, 1, "Execute", "cmd=hello", *options))
                self.assertEqual([(callback, emp.port)], broker.ports)
                self.assertEqual({"OpenEmp", "Execute", "Callback", "CloseEmp"},
                                 {line["operation"] for line in self.end(spy)})

    def testItSaysWhatItRewrites(self):
        broker, address = self.broker(ConnectionInfo(free_port(), free_port(), "the-emp"))
        actual = broker.infos[0]
        spy, spied = self.spy(address, "--follow")
        info = generated_client(self, TavBroker, spied).OpenEmp("", "", "")
        self.assertEqual("tavctl: connection 1 made", spy.line("stderr"))
        self.assertEqual(
            "tavctl: following the EMP at 127.0.0.1:%d: rewrote empServicePort to %d"
            % (actual.empServicePort, info.empServicePort), spy.line("stderr"))
        self.assertEqual(
            "tavctl: following its events to 127.0.0.1:%d: rewrote callbackServicePort to %d"
            % (info.callbackServicePort, info.callbackServicePort), spy.line("stderr"))
        self.assertNotIn(info.empServicePort, (actual.empServicePort, actual.callbackServicePort))
        self.assertNotEqual(info.callbackServicePort, actual.callbackServicePort)
        self.assertEqual("the-emp", info.empID)

    def testTheBrokerGetsTheActualPortsOfTwoEmps(self):
        spy, spied = self.spy(example_broker(self), "--follow")
        client = generated_client(self, TavBroker, spied)
        infos = [client.OpenEmp("thermometer", "1.0", "sesame") for _ in range(2)]
        for number, info in enumerate(infos, 1):
            self.assertEqual("emp-%d is a thermometer" % number,
                             client.Execute(info.callbackServicePort, "name", "", "", "", ""))
            emp = generated_client(self, TavEmp, "127.0.0.1:%d" % info.empServicePort)
            self.assertTrue(emp.Open(number, "thermometer", "1.0", "sesame"))
        self.assertEqual(4, len({port for info in infos
                                 for port in (info.empServicePort, info.callbackServicePort)}))
        self.assertEqual([True, True], [client.CloseEmp(info) for info in infos])

    def testAPortThatIsTakenIsNotFollowedAndTheOtherOneIs(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            taken = other.getsockname()[1]
            broker, address = self.broker(ConnectionInfo(taken, free_port(), ""))
            actual = broker.infos[0]
            spy, spied = self.spy(address, "--follow")
            client = generated_client(self, TavBroker, spied)
            info = client.OpenEmp("", "", "")
            self.assertEqual(taken, info.callbackServicePort)
            self.assertNotEqual(actual.empServicePort, info.empServicePort)
            client.CloseEmp(info)
            self.assertEqual([(taken, actual.empServicePort)], broker.ports)
            spy.signal(signal.SIGTERM)
            self.assertRegex(spy.wait()[2], "tavctl: not following the events to port %d: cannot listen on "
                                            "127.0.0.1:%d: Address already in use\n"
                                            % (taken, taken))

    def testAnEmpThatComesBackAtItsPortsKeepsItsRelays(self):
        info = ConnectionInfo(free_port(), free_port(), "")
        spy, spied = self.spy(self.broker(info, info)[1], "--follow")
        first, second = (generated_client(self, TavBroker, spied) for _ in range(2))
        self.assertEqual(first.OpenEmp("", "", ""), second.OpenEmp("", "", ""))

    def testItListensForEventsWhereTheBrokerHasItsClients(self):
        def reached(host, port):
            try:
                socket.create_connection((host, port), PATIENCE).close()
                return True
            except OSError:
                return False

        # Of the hosts of IPv4 and IPv6 only those of this machine are certain to be there.
        for host, hosts in [("127.0.0.1", ["127.0.0.1"]), ("localhost", ["127.0.0.1"]),
                            ("", ["127.0.0.1"]), ("0.0.0.0", ["127.0.0.1", "127.0.0.2"]),
                            ("[::1]", ["::1"]),
                            ("[::ffff:127.0.0.1]", ["127.0.0.1", "127.0.0.2", "::1"])]:
            with self.subTest(host):
                port = free_port()
                listen = host if host in ("[::1]", "0.0.0.0") else "127.0.0.1"
                broker = start(self, "serve", "broker", "--listen", listen + ":0", "--reply",
                               'OpenEmp={"callbackServicePort": %d}' % port).address()
                spied = self.spy(host + ":" + broker.rsplit(":", 1)[1], "--follow")[1]
                info = generated_client(self, TavBroker, spied).OpenEmp("", "", "")
                self.assertNotEqual(port, info.callbackServicePort)
                self.assertEqual(hosts, [each for each in ("127.0.0.1", "127.0.0.2", "::1")
                                         if reached(each, port)])

    def testTheClientsOfAUnixSocketAreFollowedOnThisMachine(self):
        emp = start(self, "serve", "emp", "--reply", "Close=3").address()
        broker = start(self, "serve", "broker", "--reply",
                       'OpenEmp={"empServicePort": %s}' % emp.split(":")[1]).address()
        path = "unix:" + os.path.join(self.directory(), "socket")
        spy = start(self, "spy", path, broker, "--follow", "--json")
        self.assertEqual(path, spy.line("stderr").split()[3].rstrip(","))
        status, out, err = tavctl("open", path, "camera", "1.0", "--run", "Close", "--quiet",
                                  TAV_CREDENTIAL="sesame")
        self.assertEqual((0, ""), (status, err))
        self.assertIn("TavEmp.Close  3\n", out)
        self.assertEqual([(1, "OpenEmp"), (2, "Close"), (1, "CloseEmp")],
                         [(line["connection"], line["operation"]) for line in self.end(spy)
                          if line["from"] == "client"])

    def testARefusalPassesUnchanged(self):
        class Refusing:
            def OpenEmp(self, *arguments):
                raise TavBroker.TApplicationException(3, "no such EMP")

        peer = generated_peer(self, TavBroker.Processor(Refusing()))
        client = generated_client(self, TavBroker, self.spy(peer.address, "--follow")[1])
        with self.assertRaises(TavBroker.TApplicationException) as refused:
            client.OpenEmp("", "", "")
        self.assertEqual((3, "no such EMP"), (refused.exception.type, refused.exception.message))

    def testAPortOfAnotherTypeStaysAsItIs(self):
        reply = bytes.fromhex("80010002 00000007 4f70656e456d70 00000000 0c 0000"
                              "06 0001 2710 06 0002 2711 00 00")
        client = self.connect(self.spy(saying(self, reply).address, "--follow")[1])
        client.sendall(bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 00"))
        self.assertEqual(reply, client.recv(len(reply), socket.MSG_WAITALL))

    def testWhatIsNotAPortStaysAsItIs(self):
        infos = [ConnectionInfo(*ports, "") for ports in ((0, 0), (-1, 65536), (None, None))]
        spy, spied = self.spy(self.broker(*infos)[1], "--follow")
        client = generated_client(self, TavBroker, spied)
        self.assertEqual(infos, [client.OpenEmp("", "", "") for _ in infos])
        spy.signal(signal.SIGTERM)
        self.assertNotIn("following", spy.wait()[2])

    def testTheLeastAndTheGreatestPortAreFollowed(self):
        infos = [ConnectionInfo(0, port, "") for port in (1, 65535)]
        spy, spied = self.spy(self.broker(*infos)[1], "--follow")
        client = generated_client(self, TavBroker, spied)
        for info in infos:
            self.assertNotEqual(info.empServicePort, client.OpenEmp("", "", "").empServicePort)

    def testOnly64PortsAreFollowed(self):
        infos = [ConnectionInfo(0, 10000 + number, "") for number in range(65)]
        taken = socket.create_server(("127.0.0.1", 0))  # which does not count
        self.addCleanup(taken.close)
        infos[0].callbackServicePort = taken.getsockname()[1]
        spy, spied = self.spy(self.broker(*infos)[1], "--follow")
        client = generated_client(self, TavBroker, spied)
        ports = [client.OpenEmp("", "", "").empServicePort for _ in infos]
        self.assertEqual([10064], [port for info, port in zip(infos, ports)
                                   if port == info.empServicePort])
        spy.signal(signal.SIGTERM)
        self.assertIn("tavctl: not following the EMP at port 10064: only 64 ports are followed\n",
                      spy.wait()[2])

    def testAReplyThatComesInPartsIsRewrittenAsAWhole(self):
        reply = bytes.fromhex("80010002 00000007 4f70656e456d70 00000000 0c 0000"
                              "08 0001 00000000 08 0002 00002710 00 00")
        more = threading.Event()

        def serve(connection):
            connection.recv(65536)
            connection.sendall(reply[:-3])
            more.wait(PATIENCE)
            connection.sendall(reply[-3:])
            connection.recv(1)

        spy, spied = self.spy(Peer(self, serve).address, "--follow")
        client = self.connect(spied)
        client.sendall(bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 00"))
        self.assertEqual([], select.select([client], [], [], 0.2)[0])
        more.set()
        rewritten = client.recv(len(reply), socket.MSG_WAITALL)
        self.assertEqual(reply[:-6] + rewritten[-6:], rewritten)
        self.assertNotEqual(reply, rewritten)

    def testAClientCannotHaveItListenAnywhere(self):
        port = free_port()
        opened = bytes.fromhex("80010002 00000007 4f70656e456d70 00000000 0c 0000 08 0001") + \
            port.to_bytes(4, "big") + bytes.fromhex("00 00")
        peer = Peer(self, lambda connection: connection.sendall(connection.recv(
            len(opened), socket.MSG_WAITALL)[::-1]))
        spy, spied = self.spy(peer.address, "--follow", stdout=subprocess.DEVNULL)
        client = self.connect(spied)
        client.sendall(opened)
        self.assertEqual(opened[::-1], client.recv(len(opened), socket.MSG_WAITALL))
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.1", port))

    def testBytesThatAreNotMessagesPassUnchanged(self):
        spy, spied = self.spy(saying(self, b"\0 what? \xff").address, "--follow",
                       stdout=subprocess.DEVNULL)
        client = self.connect(spied)
        client.sendall(b"\x16\x03\x01 hello")
        self.assertEqual(b"\0 what? \xff", client.recv(9, socket.MSG_WAITALL))

    def testTheCaptureHasAllOfIt(self):
        file = os.path.join(self.directory(), "capture")
        broker = example_broker(self)
        spy, spied = self.spy(broker, "--follow", "--json", "--write", file)
        self.events(spied, 3, "Open", "--run", "Execute", "cmd=watch", "param1=oven")
        seen = self.end(spy)
        status, out, err = tavctl("decode", file, "--json")
        self.assertEqual((0, ""), (status, err))
        self.assertEqual(
            [(line["target"], line["fields"]) for line in seen],
            [(line["target"], line["fields"]) for line in map(json.loads, out.splitlines())])
        targets = dict.fromkeys(line["target"] for line in seen)
        self.assertEqual((broker, 3), (list(targets)[0], len(targets)))
        status, out, err = tavctl("decode", file, "--sequence")
        self.assertEqual((0, ""), (status, err))
        self.assertEqual({"client 1", "client 2", "client 3", *targets},
                         set(re.findall(r"participant p\d as (.*)\n", out)))

    def testWithoutItNothingIsRewrittenOrAdded(self):
        info = ConnectionInfo(free_port(), free_port(), "the-emp")
        file = os.path.join(self.directory(), "capture")
        spy, spied = self.spy(self.broker(info)[1], "--json", "--write", file)
        self.assertEqual(info, generated_client(self, TavBroker, spied).OpenEmp("", "", ""))
        for line in self.end(spy):
            self.assertEqual(["connection", "from", "time", "offset", "size", "operation", "type",
                              "seqid", "fields"], list(line))
        with open(file) as written:
            for line in written.readlines()[1:]:
                self.assertEqual(["connection", "from", "ms", "hex"], list(json.loads(line)))

    def testWithoutItTheCallsToAnEmpAndItsEventsAreNeverSeen(self):
        spy, spied = self.spy(example_broker(self), "--json")
        self.assertEqual(3, len(self.events(spied, 3, "Open", "--run", "Execute", "cmd=watch",
                                            "param1=oven")))
        self.assertEqual([(1, "client", "OpenEmp"), (1, "target", "OpenEmp"),
                          (1, "client", "CloseEmp"), (1, "target", "CloseEmp")],
                         [(line["connection"], line["from"], line["operation"])
                          for line in self.end(spy)])

    def testTheManualSaysThatItIsNeededToSeeCallsToAnEmp(self):
        with open(os.path.join(os.environ["SOURCE"], "tools/tavctl/tavctl.1")) as file:
            manual = " ".join(file.read().split())
        self.assertIn("In front of a broker it sees the calls to the broker, but without .Fl "
                      "-follow it never sees the calls to the EMP, which clients call directly, or "
                      "the events.", manual)
        self.assertIn("calls to the EMPs that it opens, and their events, which spy does not see "
                      "otherwise", " ".join(tavctl("spy", "--help")[1].split()))

    def testASignalEndsConnectionsToEmps(self):
        never = threading.Event()
        self.addCleanup(never.set)
        emp = Peer(self, lambda connection: never.wait(PATIENCE))
        spy, spied = self.spy(self.broker(ConnectionInfo(free_port(), emp.port, ""))[1], "--follow")
        info = generated_client(self, TavBroker, spied).OpenEmp("", "", "")
        client = self.connect("127.0.0.1:%d" % info.empServicePort)
        self.assertEqual("tavctl: connection 2 made, for 127.0.0.1:%d" % emp.port,
                         [spy.line("stderr") for _ in range(4)][-1])
        spy.signal(signal.SIGTERM)
        self.assertEqual(0, spy.wait()[0])
        self.assertEqual(b"", client.recv(1))


if __name__ == "__main__":
    unittest.main()
