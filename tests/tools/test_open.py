"""The verbs that open an EMP, listen for its events and stand in for peers."""

import datetime
import os
import pty
import time

from support import *

from TAV_IDL import TavBroker, TavEmp, TavEmpEvent
from TAV_IDL.ttypes import ConnectionInfo, ParamList


class Broker:
    """A broker that remembers what is closed, and whose EMPs are at one port."""

    def __init__(self, empPort, callbackPort=0):
        self.info = ConnectionInfo(callbackPort, empPort, "the-emp")
        self.closed = []

    def OpenEmp(self, *arguments):
        return self.info

    def CloseEmp(self, info):
        self.closed.append(info.empID)
        return True


class OpenTest(ToolTest):
    def open(self, *words):
        return tavctl("open", *words, TAV_CREDENTIAL="sesame")

    def broker(self, emp, callbackPort=0, processor=TavEmp.Processor):
        peer = generated_peer(self, processor(emp))
        broker = Broker(peer.port, callbackPort)
        return broker, generated_peer(self, TavBroker.Processor(broker)).address

    def testTheExamplesAreOpenedCalledAndClosed(self):
        status, out, err = self.open(
            example_broker(self), "thermometer", "1.0", "--json", "--run", "Open", "--run",
            "Execute", "cmd=read", "--run", "ExecuteWithParamList", "cmd=label",
            "paramList.param1=a", "paramList.param10=j", "--run", "Execute", "cmd=watch",
            "param1=oven", "--run", "Close")
        self.assertEqual((0, ""), (status, err))
        lines = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(
            [("TavEmp.Open", True), ("TavEmp.Execute", "21.5 C"),
             ("TavEmp.ExecuteWithParamList", "a/j"), ("TavEmp.Execute", "watched oven"),
             ("TavEmp.Close", 3), ("TavBroker.CloseEmp", True)],
            [(line["operation"], line["result"]) for line in lines if "result" in line][1:])
        self.assertEqual(
            [{"eventType": 1, "param1": "oven", "param2": reading}
             for reading in ("21.5", "21.7", "21.6")],
            [line["event"] for line in lines if "event" in line])

    def testTheEmpIsClosedWhenACallFails(self):
        class Refusing:
            def Close(self, clientID):
                raise TavEmp.TApplicationException(0, "no")

        broker, address = self.broker(Refusing())
        status, out, err = self.open(address, "camera", "1.0", "--run", "Close", "--run", "Close")
        self.assertEqual(5, status)
        self.assertIn("TavBroker.CloseEmp  true\n", out)
        self.assertIn("UNKNOWN: no; ", err)
        self.assertEqual(["the-emp"], broker.closed)

    def testAnEmpThatCannotBeClosedIsReported(self):
        class Broken(Broker):
            def CloseEmp(self, info):
                raise TavBroker.TApplicationException(0, "not now")

        class Emp:
            def Open(self, *arguments):
                return False

        emp = generated_peer(self, TavEmp.Processor(Emp()))
        address = generated_peer(self, TavBroker.Processor(Broken(emp.port))).address
        for words, expected in [(["Close"], 5), (["Open"], 5), (["Open", "--expect-true"], 1)]:
            with self.subTest(words):
                status, _, err = self.open(address, "camera", "1.0", "--run", *words)
                self.assertEqual(expected, status)
                self.assertIn('the EMP "the-emp" may still be open: TavBroker.CloseEmp at %s: the '
                              "peer answered UNKNOWN: not now" % address, err)
        # The same if it could not be used at all.
        address = generated_peer(self, TavBroker.Processor(Broken(0))).address
        status, _, err = self.open(address, "camera", "1.0", "--run", "Close")
        self.assertEqual(6, status)
        self.assertIn("tavctl: the EMP the-emp may still be open: not now\n", err)

    def testTheFirstFailureGivesTheStatus(self):
        class Refusing(Broker):
            def CloseEmp(self, info):
                return False

        address = generated_peer(self, TavBroker.Processor(Refusing(free_port()))).address
        status, out, _ = self.open(address, "camera", "1.0", "--expect-true", "--run", "Open")
        self.assertEqual(3, status)
        self.assertIn("TavBroker.CloseEmp  false\n", out)

    def testTheEmpIsClosedWhenItCannotBeReached(self):
        broker = Broker(free_port())
        address = generated_peer(self, TavBroker.Processor(broker)).address
        self.assertEqual(3, self.open(address, "camera", "1.0", "--run", "Close")[0])
        self.assertEqual(["the-emp"], broker.closed)

    def testTheEmpIsClosedWhenItsCallbackPortIsTaken(self):
        taken = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(taken.close)
        broker, address = self.broker(None, taken.getsockname()[1])
        status, _, err = self.open(address, "camera", "1.0", "--run", "Close")
        self.assertEqual(3, status)
        self.assertIn("cannot listen on 127.0.0.1:%d" % taken.getsockname()[1], err)
        self.assertIn("; the broker chose this port for events, so it must be free here\n", err)
        self.assertEqual(["the-emp"], broker.closed)

    def testAFalseReplyEndsTheCallsWithExpectTrue(self):
        calls = []

        class Emp:
            def Open(self, *arguments):
                calls.append(arguments)
                return False

        broker, address = self.broker(Emp())
        self.assertEqual(1, self.open(address, "camera", "1.0", "--expect-true", "--run", "Open",
                                      "clientID=4", "--run", "Open")[0])
        self.assertEqual([(4, "camera", "1.0", "sesame")], calls)
        self.assertEqual(["the-emp"], broker.closed)

    def interrupted(self, number):
        """Opens an EMP that never answers; signals once it is called."""
        called, never = threading.Event(), threading.Event()
        self.addCleanup(never.set)

        class Emp:
            def Execute(self, *arguments):
                called.set()
                never.wait(PATIENCE)
                return ""

        broker, address = self.broker(Emp())
        process = start(self, "open", address, "camera", "1.0", "--quiet", "--timeout", "3600",
                        "--run", "Execute", "--run", "Execute", TAV_CREDENTIAL="sesame")
        self.assertTrue(called.wait(PATIENCE))
        process.signal(number)
        return broker, process.wait()

    def testASignalEndsACallAndClosesTheEmp(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                broker, (status, out, err) = self.interrupted(number)
                self.assertEqual((128 + number, ""), (status, err))
                self.assertIn("TavBroker.CloseEmp  true\n", out)
                self.assertEqual(["the-emp"], broker.closed)

    def testNoCallBeginsAfterASignal(self):
        calls = []

        class Emp:
            def Execute(self, *arguments):
                calls.append(arguments)
                return 1000000 * "x"

        broker, address = self.broker(Emp())
        process = start(self, "open", address, "camera", "1.0", "--run", "Execute", "--run",
                        "Execute", TAV_CREDENTIAL="sesame")
        shown = b""
        while b"TavEmp.Execute" not in shown:
            shown += process.process.stdout.read1(100)
        # It shows the first result, and cannot go on because nobody reads all of it.
        process.take(signal.SIGTERM)
        self.assertEqual((128 + signal.SIGTERM, 1), (process.wait()[0], len(calls)))
        self.assertEqual(["the-emp"], broker.closed)

    def testASignalEndsItWhileOpenEmpIsUnansweredAndWarns(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                called, never = threading.Event(), threading.Event()
                self.addCleanup(never.set)

                def hang(connection):
                    connection.recv(4096)
                    called.set()
                    never.wait(PATIENCE)

                process = start(self, "open", Peer(self, hang).address, "camera", "1.0",
                                "--timeout", "3600", TAV_CREDENTIAL="sesame")
                self.assertTrue(called.wait(PATIENCE))
                process.signal(number)
                status, out, err = process.wait()
                self.assertEqual((128 + number, ""), (status, out))
                self.assertIn("; an EMP may be left open", err)
                self.assertEqual(1, err.count("\n"), err)

    def testAnOpenEmpWithoutAnswerWarnsThatAnEmpMayBeLeftOpen(self):
        never = threading.Event()
        self.addCleanup(never.set)
        silent = Peer(self, lambda connection: never.wait(PATIENCE)).address
        self.assertErrorHas(4, "; an EMP may be left open",
                            self.open(silent, "camera", "1.0", "--timeout", "0.1"))
        closed = "127.0.0.1:%d" % free_port()
        self.assertNotIn("left open", self.open(closed, "camera", "1.0")[2])

    def testOtherWordsThanItsThreeAreBadUsage(self):
        for words in (["a:1"], ["a:1", "camera", "1.0", "2.0"]):
            with self.subTest(words):
                self.assertErrorHas(2, "open takes ADDRESS NAME VERSION; see tavctl open --help\n",
                                    self.open(*words))

    def testTheOperationsOfAnEmpAreListed(self):
        self.assertErrorHas(2, "TavEmp has no operation 'Opn'; there are Open, Close, Execute, "
                            "ExecuteWithParamList\n",
                            self.open("a:1", "camera", "1.0", "--run", "Opn"))

    def testTheAddressMayComeFromTheEnvironment(self):
        broker, address = self.broker(None)
        process = start(self, "open", "camera", "1.0", "--quiet", TAV_CREDENTIAL="sesame",
                        TAVCTL_ADDRESS=address)
        self.assertEqual("TavBroker.OpenEmp", process.line())
        process.signal(signal.SIGTERM)
        self.assertEqual(0, process.wait()[0])
        self.assertErrorHas(2, "an ADDRESS is missing; give one, or set TAVCTL_ADDRESS",
                            self.open("camera", "1.0"))

    def testASecondSignalEndsItWhateverHangs(self):
        closing, never = threading.Event(), threading.Event()
        self.addCleanup(never.set)

        class Hanging(Broker):
            def CloseEmp(self, info):
                closing.set()
                never.wait(PATIENCE)

        broker = Hanging(free_port())
        address = generated_peer(self, TavBroker.Processor(broker)).address
        process = start(self, "open", address, "camera", "1.0", "--timeout", "3600",
                        TAV_CREDENTIAL="sesame")
        self.assertIn("no events", process.line("stderr"))
        self.assertEqual("tavctl: open until a signal comes", process.line("stderr"))
        process.signal(signal.SIGTERM)
        self.assertTrue(closing.wait(PATIENCE))
        process.signal(signal.SIGTERM)
        self.assertEqual(128 + signal.SIGTERM, process.wait()[0])

    def testItEndsAsSoonAsAllEventsAreShown(self):
        def endsWithinItsPatience():
            broker = Broker(free_port(), free_port())
            address = generated_peer(self, TavBroker.Processor(broker)).address
            process = start(self, "open", address, "camera", "1.0", TAV_CREDENTIAL="sesame")
            process.line("stderr")
            process.signal(signal.SIGTERM)
            while not process.line().startswith("TavBroker.CloseEmp"):
                pass
            closed = time.monotonic()
            process.wait()
            return time.monotonic() - closed < 1

        # Sometimes at least: this machine may be busy.
        self.assertTrue(any(endsWithinItsPatience() for _ in range(20)))

    def testEventsOfTheLastMomentAreShown(self):
        test = self

        class Reporting(Broker):
            def CloseEmp(self, info):
                for number in range(50):
                    generated_client(test, TavEmpEvent, "127.0.0.1:%d" % info.callbackServicePort
                                     ).Callback(number, "late", "")
                return True

        address = generated_peer(
            self, TavBroker.Processor(Reporting(free_port(), free_port()))).address
        process = start(self, "open", address, "camera", "1.0", TAV_CREDENTIAL="sesame")
        process.line("stderr")
        process.signal(signal.SIGTERM)
        self.assertEqual(50, process.wait()[1].count("event "))

    def testPortsThatAreNotPortsAreTheBrokersFault(self):
        for empPort, callbackPort, error in [(0, 0, "gives empServicePort as 0, which is not a port"),
                                             (70000, 0, "gives empServicePort as 70000"),
                                             (1, -5, "gives callbackServicePort as -5")]:
            with self.subTest(error):
                broker = Broker(empPort, callbackPort)
                address = generated_peer(self, TavBroker.Processor(broker)).address
                status, _, err = self.open(address, "camera", "1.0", "--run", "Close")
                self.assertEqual(6, status)
                self.assertIn("the broker " + error, err)
                self.assertEqual(["the-emp"], broker.closed)

    def testTheEmpIsClosedWhenTheOutputFindsNoRoom(self):
        for words in ([], ["--run", "Close"]):
            with self.subTest(words):
                broker = Broker(free_port())
                address = generated_peer(self, TavBroker.Processor(broker)).address
                with open("/dev/full", "w") as full:
                    process = start(self, "open", address, "camera", "1.0", "--quiet", *words,
                                    stdout=full, TAV_CREDENTIAL="sesame")
                status, _, err = process.wait()
                self.assertEqual((6, "tavctl: cannot write to standard output: No space left on "
                                     "device; write it elsewhere\n"), (status, err))
                self.assertEqual(["the-emp"], broker.closed)

    def testTheEmpIsClosedWhenNobodyReadsTheOutput(self):
        reader, writer = os.pipe()
        broker = Broker(free_port(), free_port())
        address = generated_peer(self, TavBroker.Processor(broker)).address
        process = start(self, "open", address, "camera", "1.0", stdout=writer,
                        TAV_CREDENTIAL="sesame")
        os.close(writer)
        self.assertEqual("tavctl: open until a signal comes", process.line("stderr"))
        os.close(reader)
        status, _, err = process.wait()
        self.assertEqual((6, "tavctl: ending, once the EMP is closed: nobody reads the output\n"),
                         (status, err))
        self.assertEqual(["the-emp"], broker.closed)

    def testAWaitingOneEndsWellOnASignal(self):
        broker = Broker(free_port())
        address = generated_peer(self, TavBroker.Processor(broker)).address
        process = start(self, "open", address, "camera", "1.0", TAV_CREDENTIAL="sesame")
        process.line("stderr"), process.line("stderr")
        process.signal(signal.SIGINT)
        status, _, err = process.wait()
        self.assertEqual((0, "tavctl: ending, once the EMP is closed; a second signal ends at once\n"),
                         (status, err))
        self.assertEqual(["the-emp"], broker.closed)

    def testTheCredentialIsNeverShown(self):
        class Echo:
            def Open(self, clientID, name, version, credential):
                raise TavEmp.TApplicationException(0, "I know " + credential)

        _, address = self.broker(Echo())
        _, out, err = self.open(address, "camera", "1.0", "--run", "Open")
        self.assertIn("I know ***", err)
        self.assertNotIn("sesame", out + err)


class ListenTest(ToolTest):
    def testEachEventIsALine(self):
        for protocol, transport in COMBINATIONS:
            with self.subTest(protocol=protocol, transport=transport):
                process = start(self, "listen", "--protocol", protocol, "--transport", transport)
                client = generated_client(self, TavEmpEvent, process.address(), protocol, transport)
                client.Callback(7, "a\n", "Küche")
                self.assertEqual('TIME  event 7  "a\\n"  "Küche"', untimed(process.line()))
                process.signal(signal.SIGTERM)
                self.assertEqual((0, "", ""), process.wait())

    def testEachEventIsAnObjectWithJson(self):
        process = start(self, "listen", "--json")
        generated_client(self, TavEmpEvent, process.address()).Callback(7, "a", "b")
        self.assertEqual('{"event":{"eventType":7,"param1":"a","param2":"b"},"time":"TIME"}',
                         untimed(process.line()))

    def testTheTimesAreThoseOfTheEvents(self):
        process = start(self, "listen", "--json")
        client = generated_client(self, TavEmpEvent, process.address())
        before = time.time()
        client.Callback(7, "a", "b")
        shown = json.loads(process.line())["time"]
        self.assertRegex(shown, r"\.\d{3}Z$")
        moment = datetime.datetime.fromisoformat(shown.replace("Z", "+00:00")).timestamp()
        self.assertTrue(before - 0.001 <= moment <= time.time(), (before, moment))

    def testItEndsAfterSoManyEvents(self):
        process = start(self, "listen", "--count", "2")
        client = generated_client(self, TavEmpEvent, process.address())
        for number in range(3):
            client.Callback(number, "", "")
        status, out, err = process.wait()
        self.assertEqual((0, ""), (status, err))
        self.assertEqual(['TIME  event 0  ""  ""', 'TIME  event 1  ""  ""'],
                         untimed(out).splitlines())

    def testEventsBeyondTheCountAreNotShown(self):
        process = start(self, "listen", "--count", "1")
        address = process.address()
        generated_client(self, TavEmpEvent, address).Callback(1, 1000000 * "a", "")
        # It cannot end: it shows the first event, and nobody reads all of it.
        self.assertNotEqual(b"", process.process.stdout.read1(1))
        other = generated_client(self, TavEmpEvent, address)
        other.Callback(2, "b", "")
        with self.assertRaises(TavEmp.TApplicationException):
            TavEmp.Client(other._iprot).Close(1)  # the answer comes after the event was taken
        status, out, err = process.wait()
        self.assertEqual((0, ""), (status, err))
        self.assertNotIn("event 2", out)

    def testASignalBeforeAllCountedEventsGivesTheStatus(self):
        for words, status in [(["--count", "1"], 128 + signal.SIGTERM), ([], 0)]:
            with self.subTest(words):
                process = start(self, "listen", *words)
                process.address()
                process.signal(signal.SIGTERM)
                self.assertEqual((status, ""), process.wait()[:2])

    def testItEndsAfterATime(self):
        self.assertEqual(0, tavctl("listen", "--timeout", "0.05")[0])

    def testFewerEventsThanCountedAreFour(self):
        status, out, err = tavctl("listen", "--timeout", "0.05", "--count", "3", "--quiet")
        self.assertEqual((4, "", "tavctl: 0 of 3 events came in time\n"), (status, out, err))

    def testItEndsAtOnceWhenNobodyReadsItsOutput(self):
        """As "listen | head -1" has it: no other event comes."""
        for verb in (["listen"], ["serve", "event"]):
            with self.subTest(verb):
                reader, writer = os.pipe()
                process = start(self, *verb, stdout=writer)
                os.close(writer)
                generated_client(self, TavEmpEvent, process.address()).Callback(1, "a", "b")
                self.assertNotEqual(b"", os.read(reader, 1000))
                os.close(reader)
                self.assertEqual((6, "", ""), process.wait())

    def testAPortThatIsTakenIsReportedAtOnce(self):
        taken = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(taken.close)
        self.assertErrorHas(3, "tavctl: cannot listen on 127.0.0.1:%d: Address already in use; "
                            "choose another address, or port 0 for any\n" % taken.getsockname()[1],
                            tavctl("listen", "--port", str(taken.getsockname()[1])))

    def testHostileBytesEndTheirConnectionAndNoOther(self):
        process = start(self, "listen")
        address = process.address()
        host, port = address.split(":")
        good = generated_client(self, TavEmpEvent, address)
        for hostile in (bytes.fromhex("7fffffff"), bytes.fromhex("800100017fffffff"),
                        b"GET / HTTP/1.0\r\n\r\n",
                        bytes.fromhex("80010001 00000001 78 00000000") + 1000 * b"\x0c\0\1"):
            with socket.create_connection((host, int(port))) as connection:
                connection.sendall(hostile)
                self.assertEqual(b"", self.all(connection))
                self.assertIn("tavctl: 127.0.0.1:%d: " % connection.getsockname()[1],
                              process.line("stderr"))
        good.Callback(1, "still", "here")
        self.assertEqual('TIME  event 1  "still"  "here"', untimed(process.line()))

    def all(self, connection):
        try:
            return connection.recv(4096)
        except ConnectionResetError:
            return b""

    def testATerminalGetsColorsUnlessNoColorIsSet(self):
        for extra, expected in [({}, b"\x1b[2mTIME\x1b[0m  \x1b[32mevent 1\x1b[0m  \"a\"  \"b\"\r\n"),
                                ({"NO_COLOR": "1"}, b"TIME  event 1  \"a\"  \"b\"\r\n")]:
            with self.subTest(extra):
                controller, terminal = pty.openpty()
                self.addCleanup(os.close, controller)
                process = start(self, "listen", stdout=terminal, **extra)
                os.close(terminal)
                generated_client(self, TavEmpEvent, process.address()).Callback(1, "a", "b")
                shown = b""
                while not shown.endswith(b"\n"):
                    shown += os.read(controller, 1024)
                self.assertEqual(expected, untimed(shown.decode()).encode())

    def testAnErrorOnATerminalIsColoredUnlessNoColorIsSet(self):
        for extra, expected in [(["TERM=xterm"], b"\x1b[31mtavctl:\x1b[0m a verb is missing"),
                                (["NO_COLOR="], b"\x1b[31mtavctl:\x1b[0m a verb is missing"),
                                (["-u", "TERM"], b"\x1b[31mtavctl:\x1b[0m a verb is missing"),
                                (["NO_COLOR=1"], b"tavctl: a verb is missing"),
                                (["TERM=dumb"], b"tavctl: a verb is missing")]:
            with self.subTest(extra):
                controller, terminal = pty.openpty()
                self.addCleanup(os.close, controller)
                subprocess.run(["env", *extra, TAVCTL], stderr=terminal, env=environment())
                os.close(terminal)
                self.assertTrue(os.read(controller, 1024).startswith(expected))

    def testNohupKeepsItFromEndingOnAHangup(self):
        process = Process(self, ["nohup", TAVCTL, "listen"])
        address = process.address()
        process.signal(signal.SIGHUP)
        generated_client(self, TavEmpEvent, address).Callback(7, "a", "b")
        self.assertEqual('TIME  event 7  "a"  "b"', untimed(process.line()))
        process.signal(signal.SIGTERM)
        self.assertEqual(0, process.wait()[0])

    def testAnInterruptEndsItInTheBackgroundOfAScriptToo(self):
        """There, shells have their commands ignore it."""
        process = Process(self, ["sh", "-c", "trap '' INT; exec \"$0\" listen", TAVCTL])
        process.address()
        process.signal(signal.SIGINT)
        self.assertEqual((0, "", ""), process.wait())


class ServeTest(ToolTest):
    def testADelayHoldsOneOperationUp(self):
        emp = start(self, "serve", "emp", "--delay", "Close=3600").address()
        self.assertEqual(0, tavctl("call", emp, "TavEmp.Open", TAV_CREDENTIAL="x")[0])
        self.assertEqual(4, tavctl("call", emp, "TavEmp.Close", "--timeout", "0.1")[0])
        begin = time.monotonic()
        emp = start(self, "serve", "emp", "--delay", "Close=0.1").address()
        self.assertEqual(0, tavctl("call", emp, "TavEmp.Close")[0])
        self.assertLessEqual(0.1, time.monotonic() - begin)

    def testADelayDoesNotHoldUpTheEnd(self):
        process = start(self, "serve", "emp", "--delay", "Close=3600")
        host, port = process.address().split(":")
        with socket.create_connection((host, int(port))) as connection:
            connection.sendall(CLOSE["binary"])
            self.assertEqual("TavEmp.Close clientID=7", process.line())
            process.signal(signal.SIGTERM)
            self.assertEqual(0, process.wait()[0])

    def testNoMoreThan64ConnectionsAreServedAtATime(self):
        host, port = start(self, "serve", "emp").address().split(":")
        connections = []
        for _ in range(65):
            connections.append(socket.create_connection((host, int(port))))
            self.addCleanup(connections[-1].close)
            connections[-1].sendall(CLOSE["binary"])
        replies = [select.select([connection], [], [], PATIENCE if number < 64 else 0.5)[0]
                   for number, connection in enumerate(connections)]
        self.assertTrue(all(replies[:64]))
        self.assertEqual([], replies[64])
        connections[0].close()
        self.assertTrue(select.select(connections[64:], [], [], PATIENCE)[0])

    def testAClientThatDoesNotReadDoesNotHoldUpTheEnd(self):
        process = start(self, "serve", "emp", "--reply", "Execute=" + 100000 * "x",
                        stdout=subprocess.DEVNULL)
        host, port = process.address().split(":")
        call = bytes.fromhex("80010001 00000007 45786563757465 00000000 00")
        with socket.create_connection((host, int(port))) as connection:
            fill(connection, call)
            process.signal(signal.SIGTERM)
            self.assertEqual(0, process.wait()[0])

    def testEachServiceIsServedToAGeneratedClient(self):
        broker = start(self, "serve", "broker", "--reply",
                       'OpenEmp={"empServicePort": 5, "empID": "x"}', "--reply", "CloseEmp=true",
                       "--fail", "Execute=not today", TAV_CREDENTIAL="")
        client = generated_client(self, TavBroker, broker.address())
        self.assertEqual(ConnectionInfo(0, 5, "x"), client.OpenEmp("n", "v", "sesame"))
        self.assertEqual('TavBroker.OpenEmp name="n" version="v" credential=***', broker.line())
        self.assertTrue(client.CloseEmp(ConnectionInfo(1, 2, "x")))
        with self.assertRaises(TavBroker.TApplicationException) as refused:
            client.Execute(1, "c", "", "", "", "")
        self.assertEqual((0, "not today"), (refused.exception.type, refused.exception.message))

        emp = start(self, "serve", "emp", "--reply", "Close=-3", "--reply", "Execute=a=b")
        client = generated_client(self, TavEmp, emp.address())
        self.assertEqual((False, -3, "a=b"), (client.Open(1, "n", "v", "c"), client.Close(1),
                                              client.Execute(1, "c", "p", "q", "r", "s")))
        client.ExecuteWithParamList(1, "c", ParamList(param1="a", param10="j"))
        self.assertEqual(['TavEmp.Execute clientID=1 cmd="c" param1="p" param2="q" param3="r" param4="s"',
                          'TavEmp.ExecuteWithParamList clientID=1 cmd="c" paramList={"param1":"a",'
                          '"param2":"","param3":"","param4":"","param5":"","param6":"","param7":"",'
                          '"param8":"","param9":"","param10":"j"}'],
                         [emp.line() for _ in range(4)][2:])

        event = start(self, "serve", "event")
        generated_client(self, TavEmpEvent, event.address()).Callback(1, "a", "b")
        self.assertEqual('TavEmpEvent.Callback eventType=1 param1="a" param2="b"', event.line())

    def testASocketThatAKilledOneLeftIsTakenOver(self):
        path = os.path.join(self.directory(), "socket")
        killed = start(self, "serve", "emp", "--listen", "unix:" + path)
        killed.line("stderr")
        killed.signal(signal.SIGKILL)
        killed.wait()
        self.assertTrue(os.path.exists(path))
        second = start(self, "serve", "emp", "--listen", "unix:" + path)
        second.line("stderr")
        self.assertEqual(0, tavctl("probe", "unix:" + path)[0])
        second.signal(signal.SIGTERM)
        self.assertEqual(0, second.wait()[0])
        self.assertFalse(os.path.exists(path))


if __name__ == "__main__":
    unittest.main()
