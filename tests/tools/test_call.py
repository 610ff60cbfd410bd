import json
import os
import resource
import ssl
import stat
import subprocess

from support import *

from TAV_IDL import TavBroker, TavEmp, TavEmpEvent
from TAV_IDL.ttypes import ConnectionInfo


class Broker:
    def OpenEmp(self, name, version, credential):
        if credential != "sesame":
            raise TavBroker.TApplicationException(0, "'%s' opens nothing" % credential)
        return ConnectionInfo(1, 2, "%s-%s" % (name, version))

    def Execute(self, *arguments):
        return repr(arguments)

    def CloseEmp(self, info):
        return info.empID == "open"


class Emp:
    def Open(self, *arguments):
        return arguments == (7, "camera", "1.0", "sesame")

    def Close(self, clientID):
        return -clientID

    def Execute(self, *arguments):
        return repr(arguments)

    def ExecuteWithParamList(self, clientID, cmd, paramList):
        return repr((clientID, cmd, [getattr(paramList, "param%d" % i) for i in range(1, 11)]))


class CallTest(ToolTest):
    def broker(self, *wire):
        return generated_peer(self, TavBroker.Processor(Broker()), *wire).address

    def emp(self, *wire):
        return generated_peer(self, TavEmp.Processor(Emp()), *wire).address

    def testEveryOperationIsCalledAndItsResultPrinted(self):
        broker, emp = self.broker(), self.emp()
        for address, words, expected in [
            (broker, ["TavBroker.OpenEmp", "name=camera", "version=1.0"],
             'callbackServicePort  1\nempServicePort       2\nempID                "camera-1.0"\n'),
            (broker, ["TavBroker.Execute", "fromPort=3", "cmd=c", "param1=a", "param2=b",
                      "param3=c", "param4=d"], "\"(3, 'c', 'a', 'b', 'c', 'd')\"\n"),
            (broker, ["TavBroker.CloseEmp", "connectionInfo.empID=open"], "true\n"),
            (emp, ["TavEmp.Open", "clientID=7", "name=camera", "version=1.0"], "true\n"),
            (emp, ["TavEmp.Close", "clientID=7"], "-7\n"),
            (emp, ["TavEmp.Execute", "clientID=-1", "cmd=c", "param4=d=e"],
             "\"(-1, 'c', '', '', '', 'd=e')\"\n"),
            (emp, ["TavEmp.ExecuteWithParamList", "clientID=2", "cmd=c", "paramList.param1=a",
                   "paramList.param10=j"],
             "\"(2, 'c', ['a', '', '', '', '', '', '', '', '', 'j'])\"\n"),
        ]:
            with self.subTest(words[0]):
                self.assertEqual((0, expected, ""),
                                 tavctl("call", address, *words, TAV_CREDENTIAL="sesame"))

    def testEveryProtocolAndTransportReachesAGeneratedPeer(self):
        for protocol, transport in COMBINATIONS:
            with self.subTest(protocol=protocol, transport=transport):
                self.assertEqual((0, "-7\n", ""),
                                 tavctl("call", self.emp(protocol, transport), "TavEmp.Close",
                                        "clientID=7", "--protocol", protocol,
                                        "--transport", transport))

    def testAnEventIsSentAndNothingPrinted(self):
        events = []
        received = threading.Event()

        class Events:
            def Callback(self, *event):
                events.append(event)
                received.set()

        peer = generated_peer(self, TavEmpEvent.Processor(Events()))
        self.assertEqual((0, "", ""), tavctl("call", peer.address, "TavEmpEvent.Callback",
                                             "eventType=5", "param1=x", "param2=y"))
        self.assertTrue(received.wait(PATIENCE))
        self.assertEqual([(5, "x", "y")], events)

    def testAUnixSocketIsAnAddress(self):
        path = os.path.join(self.directory(), "socket")
        server = start(self, "serve", "emp", "--listen", "unix:" + path, "--reply", "Close=3")
        self.assertEqual("tavctl: serving TavEmp on unix:" + path, server.line("stderr"))
        self.assertEqual((0, "3\n", ""), tavctl("call", "unix:" + path, "TavEmp.Close"))
        self.assertEqual(0o600, stat.S_IMODE(os.stat(path).st_mode))

    def testAPortAloneIsOnThisMachine(self):
        port = self.emp().split(":")[1]
        self.assertEqual((0, "-7\n", ""), tavctl("call", ":" + port, "TavEmp.Close", "clientID=7"))

    def testAnOperationThatOneServiceHasNeedsNoService(self):
        self.assertEqual((0, "-7\n", ""), tavctl("call", self.emp(), "Close", "clientID=7"))

    def testTheAddressMayComeFromTheEnvironment(self):
        emp = self.emp()
        self.assertEqual((0, "-7\n", ""),
                         tavctl("call", "Close", "clientID=7", TAVCTL_ADDRESS=emp))
        self.assertEqual((0, "-7\n", ""),
                         tavctl("call", emp, "Close", "clientID=7", TAVCTL_ADDRESS="a:1"))
        self.assertErrorHas(2, "'x' is not an argument; write key=value",
                            tavctl("call", "Close", "x", TAVCTL_ADDRESS=emp))

    def testJsonPrintsOneObject(self):
        status, out, err = tavctl("call", self.emp(), "TavEmp.Close", "clientID=7", "--json")
        self.assertEqual((0, ""), (status, err))
        self.assertEqual('{"operation":"TavEmp.Close","result":-7}\n', out)

    def testJsonDashReadsTheArgumentsFromStandardInput(self):
        arguments = {"clientID": 1, "cmd": "c", "paramList": {"param2": "b"}}
        status, out, _ = tavctl("call", "--json", "-", self.emp(), "TavEmp.ExecuteWithParamList",
                                stdin=json.dumps(arguments).encode())
        self.assertEqual(0, status)
        self.assertEqual("(1, 'c', ['', 'b', '', '', '', '', '', '', '', ''])",
                         json.loads(out)["result"])

    def testBytesThatAreNotTextPassAsHex(self):
        emp = start(self, "serve", "emp", "--json")
        tavctl("call", emp.address(), "TavEmp.Execute", "--json", "-",
               stdin=b'{"cmd": {"hex": "ff00"}}')
        self.assertEqual({"hex": "ff00"}, json.loads(emp.line())["arguments"]["cmd"])

    def testControlCharactersOfAPeerNeverReachTheTerminal(self):
        class Hostile(Emp):
            def Execute(self, *arguments):
                return "a\x1b[2J\r\nb\x7f\x9b"

        peer = generated_peer(self, TavEmp.Processor(Hostile()))
        _, out, _ = tavctl("call", peer.address, "TavEmp.Execute")
        self.assertEqual('"a\\u001b[2J\\r\\nb\\u007f\\u009b"\n', out)

    def testExpectTrueTurnsAFalseReplyIntoStatusOne(self):
        broker = self.broker()
        self.assertEqual((1, "false\n", ""),
                         tavctl("call", broker, "TavBroker.CloseEmp", "--expect-true"))
        self.assertEqual((0, "true\n", ""), tavctl("call", broker, "TavBroker.CloseEmp",
                                                   "--expect-true", "connectionInfo.empID=open"))
        self.assertEqual((0, "false\n", ""), tavctl("call", broker, "TavBroker.CloseEmp"))


class CredentialTest(ToolTest):
    def call(self, *words, **options):
        peer = generated_peer(self, TavBroker.Processor(Broker()))
        return tavctl("call", peer.address, "TavBroker.OpenEmp", *words, **options)

    def testTheCredentialComesFromTheEnvironmentAFileOrStandardInput(self):
        path = os.path.join(self.directory(), "credential")
        with open(path, "w") as file:
            file.write("sesame\n")
        for words, options in [
            ([], {"TAV_CREDENTIAL": "sesame"}),
            (["--credential-file", path], {}),
            (["--credential-file", "-"], {"stdin": b"sesame"}),
            (["-"], {"stdin": b'{"credential": "sesame"}'}),
        ]:
            with self.subTest(words):
                self.assertEqual(0, self.call(*words, **options)[0])

    def testOneLineBreakAtTheEndOfItsFileIsNotPartOfIt(self):
        for text, right in [(b"sesame", True), (b"sesame\n", True), (b"sesame\n\n", False),
                            (b"", False)]:
            with self.subTest(text):
                self.assertEqual(0 if right else 5,
                                 self.call("--credential-file", "-", stdin=text)[0])

    def testAFileThatCannotBeReadIsNamed(self):
        for path in ("/nonexistent", "/"):
            with self.subTest(path):
                self.assertErrorHas(2, "cannot read the credential from '%s'" % path,
                                    self.call("--credential-file", path))

    def testTheCommandLineIsRefusedAsItsSource(self):
        self.assertErrorHas(2, "cannot be given on the command line", self.call("credential=sesame"))

    def testACallThatNeedsOneSaysSo(self):
        self.assertErrorHas(2, "set TAV_CREDENTIAL", self.call())

    def testAPeerThatRepeatsItIsMasked(self):
        self.assertErrorHas(5, "UNKNOWN: '***' opens nothing; the connection is fine, check what the "
                            "call asks for\n", self.call(TAV_CREDENTIAL="geheim"))


class StatusTest(ToolTest):
    def close(self, peer, *words):
        return tavctl("call", peer.address, "TavEmp.Close", *words)

    def testWordsThatTheParserRefusesAreTwo(self):
        for words, error in [
            (["--json"], "--json"),
            (["nonsense"], "nonsense"),
            (["spy", "a:1"], "TARGET is required"),
            (["call", "a:1", "TavEmp.Close", "--protocol", "xml"], "xml"),
            (["call", "a:1", "TavEmp.Close", "--timeout", "0"], "'0' is not a number of seconds"),
            (["call", "a:1", "TavEmp.Close", "--timeout", ""], "'' is not a number of seconds"),
            (["call", "a:1", "TavEmp.Close", "--timeout", "86401"], "'86401' is not a number of"),
            (["call", "a:1", "TavEmp.Close", "--timeout", "nan"], "'nan' is not a number of seconds"),
        ]:
            with self.subTest(words):
                ended = tavctl(*words)
                self.assertErrorHas(2, error, ended)
                verb = words[0] + " " if len(words) > 1 else ""
                self.assertErrorHas(2, "; see tavctl %s--help\n" % verb, ended)

    def testInputWithoutEndIsTwo(self):
        with open("/dev/zero", "rb") as endless:
            for words in (["-"], ["--credential-file", "-"]):
                with self.subTest(words):
                    ended = subprocess.run([TAVCTL, "call", "a:1", "TavEmp.Open", *words],
                                           stdin=endless, capture_output=True, timeout=PATIENCE)
                    self.assertEqual(2, ended.returncode)
                    self.assertIn(b" is longer than ", ended.stderr)

    def testTheCredentialThatIsTakenHas65536Bytes(self):
        for size, error in [(65535, "cannot connect"), (65536, "cannot connect"),
                            (65537, "the credential is longer than 65536 bytes; give less")]:
            with self.subTest(size):
                _, _, err = tavctl("call", "unix:/missing", "TavEmp.Open", "--credential-file", "-",
                                   stdin=size * b"x")
                self.assertIn(error, err)

    def testHostileArgumentsFromStandardInputAreTwo(self):
        for text in [b"", b"[]", b"{", b'{"clientID":1.5}', b'{"clientID":9999999999999999999}',
                     b'{"clientID":"\xff"}', b"[" * 1000000, b'{"x":1}']:
            with self.subTest(text[:20]):
                self.assertErrorHas(2, "tavctl: ", tavctl("call", "a:1", "TavEmp.Close", "-",
                                                          stdin=text))

    def testATextIsAStringOrHexAndNothingElse(self):
        for text in (b"7", b"{}", b'{"hex":7}', b'{"hex":"00","x":1}', b'{"x":"00"}'):
            with self.subTest(text):
                self.assertErrorHas(2, 'cmd takes a string, or {"hex": "..."}',
                                    tavctl("call", "a:1", "TavEmp.Execute", "-",
                                           stdin=b'{"cmd":%s}' % text))

    def testAFieldIsNotPutIntoAnArgumentThatIsNotARecord(self):
        for value in (b"5", b"[]", b'"x"'):
            with self.subTest(value):
                self.assertErrorHas(2, "connectionInfo takes an object with the fields callback",
                                    tavctl("call", "a:1", "CloseEmp", "-", "connectionInfo.empID=x",
                                           stdin=b'{"connectionInfo":%s}' % value))

    def testArgumentsAreNestedUpTo8Deep(self):
        for levels, error in [(7, "Close has no field 'x'"), (8, "Close has no field 'x'"),
                              (9, "nested too deeply"), (100000, "nested too deeply")]:
            with self.subTest(levels):
                deep = levels * b'{"x":' + b"1" + levels * b"}"
                self.assertErrorHas(2, error, tavctl("call", "a:1", "TavEmp.Close", "-",
                                                     stdin=deep))

    def testHalfAByteOfHexInArgumentsIsTwo(self):
        for digits, status, error in [(b"0a", 3, "cannot connect"), (b"0", 2, "half a byte"),
                                      (b"0a0", 2, "half a byte")]:
            with self.subTest(digits):
                self.assertErrorHas(status, error,
                                    tavctl("call", "unix:/nonexistent", "TavEmp.Execute", "-",
                                           stdin=b'{"cmd":{"hex":"%s"}}' % digits))

    def testNoConnectionIsThree(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            address = "127.0.0.1:%d" % closed.getsockname()[1]
        self.assertErrorHas(3, "tavctl: TavEmp.Close at %s: cannot connect: Connection refused; "
                            "check that it runs and listens there\n" % address,
                            tavctl("call", address, "TavEmp.Close"))

    def testNoConnectionInTimeIsThree(self):
        """The kernel takes no more connections than it may keep, and leaves the others waiting."""
        with socket.create_server(("127.0.0.1", 0), backlog=0) as full:
            address = "127.0.0.1:%d" % full.getsockname()[1]
            for _ in range(3):
                waiting = socket.socket()
                self.addCleanup(waiting.close)
                waiting.setblocking(False)
                waiting.connect_ex(full.getsockname())
            self.assertErrorHas(3, "TavEmp.Close at %s: cannot connect: " % address,
                                tavctl("call", address, "TavEmp.Close", "--connect-timeout", "0.2"))

    def testASignalEndsAHangingCall(self):
        called, never = threading.Event(), threading.Event()
        self.addCleanup(never.set)

        def hang(connection):
            connection.recv(1)
            called.set()
            never.wait(PATIENCE)

        process = start(self, "call", Peer(self, hang).address, "TavEmp.Close", "--timeout", "3600")
        self.assertTrue(called.wait(PATIENCE))
        process.signal(signal.SIGTERM)
        self.assertEqual(-signal.SIGTERM, process.wait()[0])

    def testAnInterruptEndsACallInTheBackgroundOfAScriptToo(self):
        """There, shells have their commands ignore it."""
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                called, never = threading.Event(), threading.Event()
                self.addCleanup(never.set)

                def hang(connection):
                    connection.recv(1)
                    called.set()
                    never.wait(PATIENCE)

                process = Process(self, ["sh", "-c", "trap '' INT; exec \"$@\"", "sh", TAVCTL,
                                         "call", Peer(self, hang).address, "TavEmp.Close",
                                         "--timeout", "3600"])
                self.assertTrue(called.wait(PATIENCE))
                process.signal(number)
                self.assertEqual(-number, process.wait()[0])

    def testAHostThatIsNotFoundIsThreeAndItsNameToBeChecked(self):
        self.assertErrorHas(3, "; check the name, or give its IP address\n",
                            tavctl("call", "host.invalid:1", "TavEmp.Close"))

    def testNoReplyInTimeIsFour(self):
        never = threading.Event()
        self.addCleanup(never.set)
        peer = Peer(self, lambda connection: never.wait(PATIENCE))
        self.assertErrorHas(4, "no answer in time: 200 ms; try a longer --timeout, or see tavctl "
                            "probe %s\n" % peer.address,
                            self.close(peer, "--timeout", "0.2"))

    def testAReplyThatDripsIsFour(self):
        never = threading.Event()
        self.addCleanup(never.set)

        def drip(connection):
            connection.recv(4096)
            connection.sendall(bytes.fromhex("80010002 0010 0000"))
            while not never.wait(0.05):
                connection.sendall(b"x")

        self.assertErrorHas(4, "no answer in time", self.close(Peer(self, drip), "--timeout", "0.4"))

    def testAnApplicationExceptionIsFive(self):
        class Refusing(Emp):
            def Close(self, clientID):
                raise TavEmp.TApplicationException(1, "not\nhere")

        peer = generated_peer(self, TavEmp.Processor(Refusing()))
        self.assertErrorHas(5, "tavctl: TavEmp.Close at %s: the peer answered UNKNOWN_METHOD: "
                            "not\\nhere; it may serve another service, see tavctl describe\n"
                            % peer.address, self.close(peer))

    def testWhatIsNotAReplyIsSix(self):
        for name, answer in {
            "nothing": b"",
            "garbage": b"HTTP/1.1 400 Bad Request\r\n\r\n",
            "a call": CLOSE["binary"],
            "no result": bytes.fromhex("80010002 00000005 436c6f7365 00000000 00"),
            "another name": bytes.fromhex("80010002 00000004 436c6f73 00000000 00"),
            "huge name": bytes.fromhex("80010002 7fffffff"),
            "cut off": bytes.fromhex("80010002 00000005 436c6f7365 00000000 08 0000 00"),
        }.items():
            with self.subTest(name):
                peer = saying(self, answer)
                ended = self.close(peer)
                self.assertErrorHas(6, "tavctl: TavEmp.Close at %s: " % peer.address, ended)
                self.assertIn("; see tavctl probe %s\n" % peer.address, ended[2])

    def testAFrameOverTheLimitIsSix(self):
        self.assertErrorHas(6, "", self.close(saying(self, bytes.fromhex("7fffffff")),
                                              "--transport", "framed"))

    def testJsonWithoutEndIsSixAndNotAllOfTheMemory(self):
        def endless(connection):
            connection.recv(4096)
            connection.sendall(b'[1,"')
            while True:
                connection.sendall(65536 * b"x")

        self.assertErrorHas(6, "longer than 16777216 bytes",
                            self.close(Peer(self, endless), "--protocol", "json", "--timeout",
                                       "3600"))

    def testWhatAPeerHasToSayIsCut(self):
        class Refusing(Emp):
            def Close(self, clientID):
                raise TavEmp.TApplicationException(0, 100000 * "x")

        peer = generated_peer(self, TavEmp.Processor(Refusing()))
        self.assertEqual(4000, len(self.close(peer)[2]) - len("tavctl: ...\n"))
        error = json.loads(self.close(peer, "--json")[2])
        self.assertEqual((4003, 4000), (len(error["error"]), len(error["exception"]["text"])))

    def testAKindOfExceptionThatHasNoNameIsGivenByItsNumber(self):
        for kind, name in [(10, "UNSUPPORTED_CLIENT_TYPE"), (11, "kind 11"), (-1, "kind -1")]:
            with self.subTest(kind):
                answer = bytes.fromhex("80010003 00000005 436c6f7365 00000000 08 0002") + \
                    kind.to_bytes(4, "big", signed=True) + b"\0"
                self.assertErrorHas(5, "the peer answered %s: " % name,
                                    self.close(saying(self, answer)))

    def testAnErrorIsATextWithJsonWhateverThePeerSays(self):
        answer = bytes.fromhex("80010003 00000005 436c6f7365 00000000 0b 0001 00000001 ff 00")
        status, _, err = self.close(saying(self, answer), "--json")
        self.assertEqual(5, status)
        self.assertIn("answered UNKNOWN: \ufffd; ", json.loads(err)["error"])

    def testAnApplicationExceptionIsAnObjectOfItsOwnWithJson(self):
        class Refusing(Emp):
            def Close(self, clientID):
                raise TavEmp.TApplicationException(6, "no such\nclient")

        peer = generated_peer(self, TavEmp.Processor(Refusing()))
        error = json.loads(self.close(peer, "--json")[2])
        self.assertEqual((5, {"kind": "INTERNAL_ERROR", "text": "no such\nclient"}),
                         (error["status"], error["exception"]))

    def testErrorsAreObjectsWithJson(self):
        _, _, err = tavctl("call", "nowhere", "TavEmp.Close", "--json")
        self.assertEqual({"status": 2}, {"status": json.loads(err)["status"]})
        self.assertIn("'nowhere' is not a valid address", json.loads(err)["error"])


class OutputTest(ToolTest):
    """Standard streams that cannot be used."""

    FULL = "tavctl: cannot write to standard output: No space left on device; write it elsewhere\n"

    def run_with(self, redirection, *words):
        """Returns status and standard error."""
        ended = subprocess.run(["bash", "-c", '"$0" "$@" ' + redirection, TAVCTL, *words],
                               env=environment(), capture_output=True, timeout=PATIENCE)
        return ended.returncode, ended.stderr.decode()

    def testOutputThatFindsNoRoomIsSix(self):
        emp = generated_peer(self, TavEmp.Processor(Emp())).address
        for words in (["call", emp, "TavEmp.Close"], ["describe"], ["--help"], ["--version"]):
            with self.subTest(words):
                self.assertEqual((6, self.FULL), self.run_with(">/dev/full", *words))

    def testOutputThatNobodyReadsIsSixWithoutAWord(self):
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "wb") as closed:
            ended = subprocess.run([TAVCTL, "describe"], stdout=closed, stderr=subprocess.PIPE)
        self.assertEqual((6, b""), (ended.returncode, ended.stderr))

    def testAConnectionDoesNotTakeThePlaceOfAClosedStream(self):
        received = []

        class Recording(Emp):
            def Close(self, clientID):
                received.append(clientID)
                return 1

        peer = generated_peer(self, TavEmp.Processor(Recording()))
        for number, redirection in enumerate([">&-", "<&- >&-"]):
            with self.subTest(redirection):
                status, err = self.run_with(redirection, "call", peer.address, "TavEmp.Close",
                                            "clientID=%d" % number)
                self.assertEqual((6, number), (status, received[-1]))
                self.assertIn("cannot write to standard output: Bad file descriptor", err)


class MemoryTest(ToolTest):
    def testTooLittleMemoryIsSix(self):
        def limit():
            if "UNLIMITED" not in os.environ:
                resource.setrlimit(resource.RLIMIT_AS, (100 << 20, 100 << 20))

        # Less than a message may have, but it is kept more than once.
        message = b'[1,"x",1,0,{"1":{"str":"%s"}}]' % (16000000 * b"x")
        ended = subprocess.run([TAVCTL, "decode", "--protocol", "json"], input=message,
                               capture_output=True, preexec_fn=limit, timeout=PATIENCE)
        if "UNLIMITED" in os.environ:
            self.assertEqual(0, ended.returncode)
        else:
            self.assertEqual((6, b"tavctl: internal error: std::bad_alloc\n"),
                             (ended.returncode, ended.stderr))


class TlsTest(ToolTest):
    def setUp(self):
        self.files = {}
        for name, alternative in (("right", "IP:127.0.0.1"), ("wrong", "IP:127.0.0.1"),
                                  ("elsewhere", "DNS:elsewhere")):
            self.files[name + ".crt"], self.files[name + ".key"] = certificate_and_key(
                self, name, alternative)

    def file(self, name):
        return self.files[name]

    def server(self, name="right"):
        return start(self, "serve", "emp", "--reply", "Close=3", "--tls", "--cert",
                     self.file(name + ".crt"), "--key", self.file(name + ".key")).address()

    def testACallGoesThroughTls(self):
        self.assertEqual((0, "3\n", ""), tavctl("call", self.server(), "TavEmp.Close", "--tls",
                                                "--ca", self.file("right.crt")))

    def testAPeerThatIsNotTrustedIsNotConnectedTo(self):
        self.assertErrorHas(3, "check the certificates",
                            tavctl("call", self.server(), "TavEmp.Close", "--tls",
                                   "--ca", self.file("wrong.crt")))

    def testAPeerWithAnotherNameIsNotConnectedTo(self):
        self.assertErrorHas(3, "check the certificates",
                            tavctl("call", self.server("elsewhere"), "TavEmp.Close", "--tls",
                                   "--ca", self.file("elsewhere.crt")))

    def testAPeerThatDoesNotShakeHandsIsNotConnectedTo(self):
        never = threading.Event()
        self.addCleanup(never.set)
        peer = Peer(self, lambda connection: never.wait(PATIENCE))
        self.assertErrorHas(3, "check the certificates, and that it speaks TLS there",
                            tavctl("call", peer.address, "TavEmp.Close", "--tls", "--ca",
                                   self.file("right.crt"), "--connect-timeout", "0.2"))

    def testAFileThatIsNotThereIsNamed(self):
        for option in ("--ca", "--cert", "--key"):
            files = {"--ca": self.file("right.crt"), option: "/nonexistent"}
            with self.subTest(option):
                self.assertErrorHas(2, "cannot use '/nonexistent': No such file or directory",
                                    tavctl("probe", "127.0.0.1:1", "--tls",
                                           *[word for pair in files.items() for word in pair]))

    def testProbeWithTlsReportsProtocolAndTransport(self):
        peer = start(self, "serve", "emp", "--protocol", "compact", "--transport", "framed", "--tls",
                     "--cert", self.file("right.crt"), "--key", self.file("right.key")).address()
        self.assertErrorHas(6, "it seems to speak compact over framed, try --protocol compact "
                            "--transport framed", tavctl("probe", peer, "--tls", "--ca",
                                                         self.file("right.crt")))

    def testProbeSaysThatAPeerHangsThatNeverAnswersTheHandshake(self):
        peer = Peer(self, lambda connection: connection.recv(1) and connection.recv(1 << 20)
                    and connection.recv(1))
        self.assertErrorHas(4, peer.address + " accepts connections but does not answer: it hangs, "
                            "or all its threads are busy; if it answers others, check that it speaks "
                            "TLS there\n",
                            tavctl("probe", peer.address, "--tls", "--ca", self.file("right.crt"),
                                   "--connect-timeout", "0.2"))

    def testProbeSaysThatAPeerMayUseTls(self):
        ended = tavctl("probe", self.server(), "--timeout", "1")
        # Some releases of OpenSSL close the connection, some wait for more of it.
        self.assertIn((ended[0], "it may use TLS (--tls), or" in ended[2]),
                      [(6, True), (4, False)])

    def testProbeSaysThatAPeerMayAskForACertificate(self):
        server = start(self, "serve", "emp", "--tls", "--cert", self.file("right.crt"),
                       "--key", self.file("right.key"), "--ca", self.file("right.crt")).address()
        tls = ["--tls", "--ca", self.file("right.crt")]
        # The server may have closed the connection before the client has looked at its name.
        status, _, err = tavctl("probe", server, *tls)
        self.assertIn((status, err.split(";")[-1]), [
            (3, " check the certificates, and that it speaks TLS there\n"),
            (6, " it may ask for a certificate (--cert and --key), or speak JSON or HTTP (see "
             "--try-text)\n")])
        self.assertEqual(0, tavctl("probe", server, *tls, "--cert", self.file("right.crt"),
                                   "--key", self.file("right.key"))[0])

    def testProbeDoesNotSayThatAPeerHangsIfItIsGone(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            peer = "127.0.0.1:%d" % server.getsockname()[1]
            process = start(self, "probe", peer, "--tls", "--ca", self.file("right.crt"),
                            "--connect-timeout", "0.5")
            self.addCleanup(server.accept()[0].close)
        status, _, err = process.wait()
        self.assertEqual(3, status)
        self.assertNotIn("hangs", err)

    def testAnEventGoesThroughTls(self):
        listener = start(self, "listen", "--tls", "--cert", self.file("right.crt"),
                         "--key", self.file("right.key"))
        tavctl("call", listener.address(), "TavEmpEvent.Callback", "eventType=3", "--tls",
               "--ca", self.file("right.crt"))
        self.assertEqual('TIME  event 3  ""  ""', untimed(listener.line()))

    def testOpenGoesThroughTls(self):
        broker = start(self, "serve", "broker", "--tls", "--cert", self.file("right.crt"),
                       "--key", self.file("right.key"), "--reply", "CloseEmp=true", "--reply",
                       'OpenEmp={"empServicePort": %s}' % self.server().split(":")[1])
        status, out, err = tavctl("open", broker.address(), "camera", "1.0", "--run", "Close",
                                  "--quiet", "--tls", "--ca", self.file("right.crt"),
                                  TAV_CREDENTIAL="sesame")
        self.assertEqual((0, ""), (status, err))
        self.assertIn("TavEmp.Close  3\n", out)

    def testOpenShowsEventsThroughTlsIfItHasACertificate(self):
        port = free_port()
        certificate = ["--cert", self.file("right.crt"), "--key", self.file("right.key")]
        trusted = ["--tls", "--ca", self.file("right.crt")]
        broker = start(self, "serve", "broker", "--tls", *certificate, "--reply", "OpenEmp=" +
                       json.dumps({"callbackServicePort": port, "empServicePort": 1})).address()

        def opened(*words):
            process = start(self, "open", broker, "camera", "1.0", *trusted, *words,
                            TAV_CREDENTIAL="sesame")
            return process, process.line("stderr")

        self.assertEqual("tavctl: no events: with --tls these need --cert and --key", opened()[1])
        process, note = opened(*certificate)
        self.assertEqual("tavctl: open until a signal comes", note)
        self.assertEqual(0, tavctl("call", "127.0.0.1:%d" % port, "TavEmpEvent.Callback",
                                   "eventType=3", *trusted, *certificate)[0])
        shown = [process.line() for _ in range(5)]
        self.assertEqual('TIME  event 3  ""  ""', untimed(shown[-1]))

    def testSpyPassesTlsOnAndSaysThatItCannotReadIt(self):
        spy = start(self, "spy", "127.0.0.1:0", self.server())
        self.assertEqual((0, "3\n", ""), tavctl("call", spy.address(), "TavEmp.Close", "--tls",
                                                "--ca", self.file("right.crt")))
        self.assertIn("  it looks like TLS, which only its two ends can read",
                      [spy.line() for _ in range(4)])

    def testFilesThatAreNotCertificatesAreBadUsage(self):
        file = self.file("right.key")
        self.assertErrorHas(2, "TLS: cannot use '%s': " % file,
                            tavctl("call", self.server(), "TavEmp.Close", "--tls", "--ca", file))


if __name__ == "__main__":
    unittest.main()
