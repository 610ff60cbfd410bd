"""The verb that undoes decode: encode."""

import os
import pty
import random

from support import *


def encode(*words, stdin=b"", **extra):
    """Runs tavctl encode. Returns status, the bytes, and the error."""
    ended = subprocess.run([TAVCTL, "encode", *words], input=stdin, env=environment(**extra),
                           capture_output=True, timeout=PATIENCE)
    return ended.returncode, ended.stdout, ended.stderr.decode()


def wire(protocol, transport):
    return ["--protocol", protocol, "--transport", transport]


def line(*fields, **message):
    """A message as decode --json prints it."""
    return json.dumps({"operation": "x", "type": "call", "seqid": 1, "fields": fields,
                       **message}).encode() + b"\n"


class RandomMessage:
    """A message as decode prints it, with values of all types that it shows."""

    SCALARS = {
        "bool": lambda chance: chance.random() < 0.5,
        "byte": lambda chance: chance.randint(-128, 127),
        "i16": lambda chance: chance.choice([-2**15, 0, 2**15 - 1]),
        "i32": lambda chance: chance.choice([-2**31, -1, 2**31 - 1]),
        "i64": lambda chance: chance.choice([-2**63, 1, 2**63 - 1]),
        "double": lambda chance: chance.choice([0.1, -0.0, 1e300, 5e-324, -2.5]),
    }

    def __init__(self, seed, protocol):
        self.chance = random.Random(seed)
        # None that the interface knows, whose names would be added.
        self.ids = [100, 101, 120, 2**15 - 1]
        self.texts = ["", "caf\u00e9", "\u20ac\U0001f600", "\"\\\n\1", "a" * 200, {"hex": "ff80"}]
        if protocol != "json":  # libthrift's reads neither negative ids nor zeros in strings
            self.ids += [-2**15, -1]
            self.texts += ["a\0", {"hex": "00ff"}]
        self.message = {
            "operation": self.chance.choice(["Nonsense", "Close", "Callback"]),
            "type": self.chance.choice(["call", "reply", "exception", "oneway"]),
            "seqid": self.chance.choice([0, 1, -2**31, 2**31 - 1]),
            "fields": self.fields(0)}

    def fields(self, depth):
        return [self.field(number, depth)
                for number in self.chance.sample(self.ids, self.chance.randint(1, 4))]

    def field(self, number, depth):
        kind = self.kind(depth)
        value, shape = self.value(kind, depth)
        return {"id": number, "type": kind, "value": value, **(shape or {})}

    def kind(self, depth):
        return self.chance.choice([*self.SCALARS, "string"] +
                                  (["struct", "list", "set", "map"] if depth < 4 else []))

    def value(self, kind, depth):
        if kind in self.SCALARS:
            return self.SCALARS[kind](self.chance), None
        if kind == "string":
            return self.chance.choice(self.texts), None
        if kind == "struct":
            return self.fields(depth + 1), None
        size = self.chance.choice([1, 2, 20])
        element = self.kind(depth + 2)
        values, shapes = zip(*[self.value(element, depth + 2) for _ in range(size)])
        if kind != "map":
            return list(values), {"of": element, **({"each": list(shapes)} if shapes[0] else {})}
        key = self.chance.choice(["string", "i32"])
        return ([[self.value(key, depth)[0], value] for value in values],
                {"of": [key, element],
                 **({"each": [[None, shape] for shape in shapes]} if shapes[0] else {})})


class RoundTripTest(ToolTest):
    def testWhatWasDecodedIsEncodedToTheSameBytes(self):
        for protocol, transport in COMBINATIONS:
            messages = [RandomMessage(seed, protocol).message for seed in range(100)]
            lines = "".join(json.dumps(message) + "\n" for message in messages).encode()
            with self.subTest(protocol=protocol, transport=transport):
                status, data, err = encode(*wire(protocol, transport), stdin=lines)
                self.assertEqual((0, ""), (status, err))
                status, out, err = tavctl("decode", "--json", "--format", "raw",
                                          *wire(protocol, transport), stdin=data)
                self.assertEqual((0, ""), (status, err))
                decoded = [json.loads(text) for text in out.splitlines()]
                self.assertEqual(messages, [{key: message[key] for key in message
                                             if key not in ("offset", "size")}
                                            for message in decoded])
                self.assertEqual((0, data, ""),
                                 encode(*wire(protocol, transport), stdin=out.encode()))

    def testMessagesOfThePeersOfTestsStayTheSame(self):
        """That libthrift's encoding is what others write, too."""
        for protocol, transport in COMBINATIONS:
            with self.subTest(protocol=protocol, transport=transport):
                data = CLOSE[protocol]
                data = 2 * (frame(data) if transport == "framed" else data)
                out = tavctl("decode", "--json", *wire(protocol, transport), stdin=data)[1]
                self.assertEqual((0, data, ""),
                                 encode(*wire(protocol, transport), stdin=out.encode()))

    def testNumbersThatJsonDoesNotHaveAreKept(self):
        for number in ("7ff0000000000000", "fff0000000000000", "7ff8000000000001"):
            data = bytes.fromhex("80010001 00000001 78 00000000 04 0001 %s 00" % number)
            status, out, err = tavctl("decode", "--json", stdin=data)
            self.assertEqual({"hex": number}, json.loads(out)["fields"][0]["value"])
            self.assertEqual((0, data, ""), encode(stdin=out.encode()))

    def testAnEmptyMapWithoutTypesIsKept(self):
        data = bytes.fromhex("8221 00 01 78 1b 00 00")
        status, out, err = tavctl("decode", "--json", "--protocol", "compact", stdin=data)
        self.assertEqual((0, ""), (status, err))
        self.assertEqual([None, None], json.loads(out)["fields"][0]["of"])
        self.assertEqual((0, data, ""), encode("--protocol", "compact", stdin=out.encode()))

    def testAnEmptyContainerWithoutTypesIsKept(self):
        for container in ("0d 0001 00 00 00000000", "0e 0001 00 00000000", "0f 0001 00 00000000"):
            with self.subTest(container):
                data = bytes.fromhex("80010001 00000001 78 00000000 " + container + " 00")
                out = tavctl("decode", "--json", stdin=data)[1]
                self.assertEqual((0, data, ""), encode(stdin=out.encode()))

    def testTheTypeOfAMessageThatHasNoNameIsKept(self):
        data = bytes.fromhex("80010009 00000001 78 00000000 00")
        out = tavctl("decode", "--json", stdin=data)[1]
        self.assertEqual("type 9", json.loads(out)["type"])
        self.assertEqual((0, data, ""), encode(stdin=out.encode()))

    def testAMessageAsDeepAsDecodeReadsItIsEncoded(self):
        for deep in (bytes.fromhex("0c0001"), bytes.fromhex("0f0001 0c 00000001")):
            end = 1 if len(deep) == 3 else 2
            for depth in range(64 // end, 0, -1):
                data = (bytes.fromhex("80010001 00000001 78 00000000") + deep * depth +
                        b"\0" * (depth + 1))
                status, out, err = tavctl("decode", "--json", stdin=data)
                if status == 0:
                    break
            self.assertGreater(depth, 20)
            self.assertEqual((0, data, ""), encode(stdin=out.encode()))


class CredentialTest(ToolTest):
    OPEN = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0003 00000006"
                         "736573616d65 00")

    def masked(self):
        return tavctl("decode", "--json", stdin=self.OPEN)[1].encode()

    def testAMaskedCredentialIsAskedFor(self):
        status, data, err = encode(stdin=self.masked())
        self.assertEqual((2, b""), (status, data))
        self.assertIn("line 1, whose credential is masked: this needs a credential; "
                      "set TAV_CREDENTIAL", err)

    def testItIsTakenFromWhereTheOtherVerbsTakeIt(self):
        self.assertEqual((0, self.OPEN, ""), encode(stdin=self.masked(), TAV_CREDENTIAL="sesame"))
        file = os.path.join(self.directory(), "credential")
        with open(file, "w") as text:
            text.write("sesame\n")
        self.assertEqual((0, self.OPEN, ""),
                         encode("--credential-file", file, stdin=self.masked()))
        status, data, err = encode("--credential-file", "-", stdin=self.masked())
        self.assertEqual((2, b""), (status, data))

    def testOneThatStandsInTheMessageIsUsed(self):
        message = self.masked().replace(b"***", b"sesame")
        self.assertEqual((0, self.OPEN, ""), encode(stdin=message))

    def testAnotherFieldMayBeThreeAsterisks(self):
        data = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0001 00000003 2a2a2a 00")
        out = tavctl("decode", "--json", stdin=data)[1]
        self.assertEqual((0, data, ""), encode(stdin=out.encode()))

    def testOnTheCommandLineItIsRefused(self):
        status, data, err = encode("TavBroker.OpenEmp", "credential=sesame")
        self.assertEqual((2, b""), (status, data))
        self.assertIn("a credential cannot be given on the command line", err)


class CallTest(ToolTest):
    def testACallIsEncodedAsTheOtherVerbsSendIt(self):
        for words in (["TavEmp.Close", "clientID=7"], ["TavBroker.CloseEmp"],
                      ["TavBroker.CloseEmp", "connectionInfo.empID=x"],
                      ["TavEmp.ExecuteWithParamList", "paramList.param3=y", "cmd=z"],
                      ["TavEmpEvent.Callback", "eventType=1"], ["TavBroker.OpenEmp", "name=n"]):
            for protocol, transport in COMBINATIONS:
                with self.subTest(words, protocol=protocol, transport=transport):
                    sent = []
                    arrived = threading.Event()

                    def serve(connection):
                        # The answer is nonsense: the call ends.
                        sent.append(connection.recv(65536))
                        arrived.set()

                    peer = Peer(self, serve)
                    tavctl("call", peer.address, *words, *wire(protocol, transport),
                           TAV_CREDENTIAL="sesame")
                    self.assertTrue(arrived.wait(PATIENCE))
                    self.assertEqual((0, sent[0], ""),
                                     encode(*words, *wire(protocol, transport),
                                            TAV_CREDENTIAL="sesame"))

    def testHexIsALineAMessage(self):
        for words in (["--format", "hex"], ["--protocol", "binary", "--format", "hex"]):
            self.assertEqual((0, CLOSE["binary"].hex().encode() + b"\n", ""),
                             encode("TavEmp.Close", "clientID=7", *words))
        text = encode("TavEmp.Close", "clientID=7", "--json")[1]
        self.assertEqual({"hex": CLOSE["binary"].hex()}, json.loads(text))

    def testRawIsTheBytesThemselves(self):
        self.assertEqual((0, CLOSE["binary"], ""),
                         encode("TavEmp.Close", "clientID=7", "--format", "raw"))

    def testATerminalGetsHex(self):
        terminal, theirs = pty.openpty()
        self.addCleanup(os.close, terminal)
        subprocess.run([TAVCTL, "encode", "TavEmp.Close", "clientID=7"], stdout=theirs, check=True)
        os.close(theirs)
        self.assertEqual(CLOSE["binary"].hex().encode() + b"\r\n", os.read(terminal, 65536))


class RefusedTest(ToolTest):
    def refused(self, data, error):
        status, out, err = encode(stdin=data)
        self.assertEqual((2, b""), (status, out), err)
        self.assertIn(error, err)
        self.assertEqual(1, err.count("\n"))

    def testABrokenMessageIsRefused(self):
        out = tavctl("decode", "--json", stdin=CLOSE["binary"][:-3])[1]
        self.refused(out.encode(), "line 1 is a broken message")

    def testWhatIsNotAMessageIsRefused(self):
        for data in (b"[]", b"1", b"null", b'"x"', b"{}", b"{", b"\xff", b'{"fields":[1]}',
                     line(type=1), line(type="what"), line(seqid=2**31), line(seqid=0.5),
                     line(1), line({}), line({"id": 1, "type": "what", "value": 1}),
                     line({"id": 2**15, "type": "i32", "value": 1}),
                     line({"id": 1, "type": "i32"}), line({"id": 1, "type": "i32", "value": "1"}),
                     line({"id": 1, "type": "i64", "value": 2**63}),
                     line({"id": 1, "type": "byte", "value": -129}),
                     line({"id": 1, "type": "bool", "value": 1}),
                     line({"id": 1, "type": "string", "value": {"hex": "0"}}),
                     line({"id": 1, "type": "double", "value": "1"}),
                     line({"id": 1, "type": "double", "value": {"hex": "00"}}),
                     line({"id": 1, "type": "struct", "value": 7}),
                     line({"id": 1, "type": "list", "value": [1]}),
                     line({"id": 1, "type": "list", "of": None, "value": [1]}),
                     line({"id": 1, "type": "list", "of": "i32", "value": 1}),
                     line({"id": 1, "type": "list", "of": "list", "value": [[1]]}),
                     line({"id": 1, "type": "list", "of": "list", "value": [[1]], "each": []}),
                     line({"id": 1, "type": "map", "of": "i32", "value": []}),
                     line({"id": 1, "type": "map", "of": ["i32", "i32"], "value": [[1]]})):
            with self.subTest(data):
                self.refused(data, "line 1 ")

    def testALineWithoutAMessageIsRefused(self):
        self.refused(b"\n", "line 1 takes JSON, but it breaks at byte 0")

    def testNestingIsLimited(self):
        self.refused(1000000 * b"[", "nested too deeply")

    def testALineWithoutEndIsLimited(self):
        self.refused(40000000 * b" ", "too long")


if __name__ == "__main__":
    unittest.main()
