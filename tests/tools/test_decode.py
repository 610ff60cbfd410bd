import os
import random
import resource

from support import *


def decode(data, *words):
    return tavctl("decode", *words, stdin=data)


class DecodeTest(ToolTest):
    SHOWN = "Close call seqid 0, %d bytes at 0\n  1  clientID  i32    7\n"

    def testEveryProtocolAndTransportIsDecoded(self):
        for protocol, transport in COMBINATIONS:
            with self.subTest(protocol=protocol, transport=transport):
                data = CLOSE[protocol]
                if transport == "framed":
                    data = frame(data)
                self.assertEqual((0, self.SHOWN % len(data), ""),
                                 decode(data, "--protocol", protocol, "--transport", transport))

    def testHexIsDecodedAsTheBytesAre(self):
        text = CLOSE["binary"].hex(" ", 2)
        self.assertEqual((0, self.SHOWN % 25, ""), decode(text.encode()))
        self.assertEqual((0, self.SHOWN % 25, ""), decode((text.upper() + "\r\n").encode()))

    def testHalfAByteOfHexIsBadUsage(self):
        self.assertErrorHas(2, "this is not a hexadecimal byte, at character 3",
                            decode(b"80 0", "--format", "hex"))

    def testBadHexIsBadUsage(self):
        self.assertErrorHas(2, "this is not a hexadecimal byte, at character 3",
                            decode(b"80 0x", "--format", "hex"))

    def testAFileIsDecodedAsStandardInputIs(self):
        path = os.path.join(self.directory(), "message")
        with open(path, "wb") as file:
            file.write(CLOSE["binary"])
        self.assertEqual((0, self.SHOWN % 25, ""), tavctl("decode", path))

    def testWhatCannotBeReadIsBadUsage(self):
        self.assertErrorHas(2, "cannot read '/': Is a directory", tavctl("decode", "/"))
        with open(os.path.join(self.directory(), "unreadable"), "wb") as unreadable:
            ended = subprocess.run([TAVCTL, "decode"], stdin=unreadable, capture_output=True)
        self.assertEqual(2, ended.returncode)
        self.assertIn(b"cannot read standard input: Bad file descriptor", ended.stderr)

    def testMessagesInARowAreShownWithTheirOffsets(self):
        status, out, err = decode(2 * CLOSE["binary"])
        self.assertEqual(0, status)
        self.assertIn("25 bytes at 25\n", out)
        status, out, err = decode(b"\n".join(2 * [CLOSE["json"]]) + b"\n", "--protocol", "json")
        self.assertEqual(0, status, err)
        self.assertIn("31 bytes at 32\n", out)

    def testMessagesAreShownAsTheyCome(self):
        capture = '{"capture":1,"protocol":"binary","transport":"buffered"}\n'
        line = '{"connection":1,"from":"client","ms":1.0,"hex":"%s"}\n' % CLOSE["binary"].hex()
        shown = self.SHOWN.splitlines()[0] % 25
        for data, expected in [(CLOSE["binary"], shown), (CLOSE["binary"].hex().encode(), shown),
                               ((capture + line).encode(), "[1] client")]:
            with self.subTest(data):
                process = start(self, "decode")
                # It looks at 64 bytes to tell what they are.
                process.process.stdin.write(data + data[-1:] + data)
                process.process.stdin.flush()
                self.assertEqual(expected, process.line())

    def testNothingIsNotAMessage(self):
        self.assertEqual((0, "", ""), decode(b""))

    def testTheOperationOfTwoServicesHasBothNames(self):
        message = bytes.fromhex("80010001 00000007 45786563757465 00000000 08 0001 00000007 00")
        self.assertIn("1  fromPort/clientID  i32", decode(message)[1])

    def testAReplysRecordIsShownByItsNames(self):
        message = bytes.fromhex("80010002 00000007 4f70656e456d70 00000009 0c0000 08 0001 00000001"
                                "08 0002 00000002 0b 0003 00000001 78 00 00")
        self.assertEqual((0, 'OpenEmp reply seqid 9, 46 bytes at 0\n'
                             '  0  success  struct \n'
                             '     1  callbackServicePort  i32    1\n'
                             '     2  empServicePort       i32    2\n'
                             '     3  empID                string "x"\n', ""), decode(message))

    def testFieldsThatNobodyKnowsAreShownWithoutName(self):
        message = bytes.fromhex(
            "80010001 00000001 78 00000000"
            "02 0001 01  03 0002 ff  04 0003 3ff8000000000000  06 0004 8000  0a 0005"
            "0000000100000000  0d 0006 0b08 00000001 00000001 61 00000007  0f 0007 08 00000002"
            "0000000100000002  0e 0008 02 00000001 00 00")
        status, out, err = decode(message, "--json")
        self.assertEqual((0, ""), (status, err))
        self.assertEqual(
            [(1, "bool", True), (2, "byte", -1), (3, "double", 1.5), (4, "i16", -32768),
             (5, "i64", 4294967296), (6, "map", [["a", 7]]), (7, "list", [1, 2]),
             (8, "set", [False])],
            [(f["id"], f["type"], f["value"]) for f in json.loads(out)["fields"]])

    def testTheKindOfAnExceptionIsShownByItsName(self):
        message = bytes.fromhex("80010003 00000005 436c6f7365 00000000 0b 0001 00000002 6e6f"
                                "08 0002 00000001 00")
        self.assertEqual((0, 'Close exception seqid 0, 34 bytes at 0\n'
                             '  1  message  string "no"\n'
                             '  2  type     i32    1  UNKNOWN_METHOD\n', ""), decode(message))

    def testTheKindOfAnExceptionIsNotGuessedFromWhatIsNotANumber(self):
        message = bytes.fromhex("80010003 00000005 436c6f7365 00000000 0b 0002 00000001 31 00")
        self.assertIn('  2  type  string "1"\n', decode(message)[1])
        message = bytes.fromhex("80010003 00000005 436c6f7365 00000000"
                                "04 0002 3ff0000000000000 00")
        self.assertIn('  2  type  double 1.0\n', decode(message)[1])

    def testAQuoteInANameStaysAQuote(self):
        message = bytes.fromhex("80010001 00000003 612262 00000000 00")
        self.assertEqual('a"b call seqid 0, 16 bytes at 0\n', decode(message)[1])

    def testWhatIsNotAControlCharacterIsShownAsItIs(self):
        message = bytes.fromhex("80010001 00000001 78 00000000 0b 0001 00000004 c2a7c285 00")
        self.assertIn('string "\u00a7\\u0085"\n', decode(message)[1])

    def testCharactersThatTurnOrEndALineAreEscaped(self):
        around = ("\u061b", "\u061d", "\u200d", "\u2010", "\u2027", "\u202f", "\u2065", "\u206a",
                  "\U0001f600", "\u00a0")
        turning = ("\u061c", "\u200e", "\u200f", "\u2028", "\u202e", "\u2066", "\u2069")
        for character, expected in [
                *((same, same) for same in around),
                *((each, f"\\u{ord(each):04x}") for each in turning)]:
            text = character.encode()
            message = (bytes.fromhex("80010001 00000001 78 00000000 0b 0001") +
                       len(text).to_bytes(4, "big") + text + b"\0")
            self.assertIn(f'string "{expected}"\n', decode(message)[1])

    def testControlCharactersAreEscapedInContainersAndInJson(self):
        message = bytes.fromhex("80010001 00000001 78 00000000 0f 0001 0b 00000002"
                                "00000001 7f 00000002 c285 00")
        self.assertIn('  ["\\u007f","\\u0085"]\n', decode(message)[1])
        self.assertIn('["\\u007f","\\u0085"]', decode(message, "--json")[1])

    def testCredentialsAreMasked(self):
        message = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0003 00000006"
                                "736573616d65 00")
        self.assertIn("3  credential  string ***\n", decode(message)[1])


class BrokenTest(ToolTest):
    OPEN = bytes.fromhex("80010001 00000004 4f70656e 00000000 08 0001 00000007"
                         "0b 0002 00000006 63616d657261 00")

    def broken(self, data, *words):
        status, out, err = decode(data, "--json", *words)
        self.assertEqual(6, status)
        message = json.loads(out.splitlines()[-1])
        self.assertIn("breaks at byte %d" % message["broken"]["offset"], err)
        return message

    def testAMessageCutAnywhereBreaksAtItsEnd(self):
        for protocol in PROTOCOLS:
            for cut in range(1, len(CLOSE[protocol])):
                with self.subTest(protocol=protocol, cut=cut):
                    message = self.broken(CLOSE[protocol][:cut], "--protocol", protocol)
                    self.assertEqual(cut, message["broken"]["offset"])

    def testWhatComesBeforeTheBreakIsShown(self):
        status, out, err = decode(self.OPEN[:-4])
        self.assertEqual(6, status)
        self.assertEqual(
            "Open call seqid 0, 33 bytes at 0\n"
            "  1  clientID  i32    7\n"
            "  2  name      string \n"
            "  breaks at byte 33: the bytes end in a string that begins at byte 26\n", out)

    def testAnExceptionMayBreakAnywhere(self):
        failed = bytes.fromhex("80010003 00000005 436c6f7365 00000000"
                               "0b 0001 00000003 6e6f21 08 0002 00000006 00")
        for cut in range(1, len(failed)):
            with self.subTest(cut=cut):
                self.assertEqual(cut, self.broken(failed[:cut])["broken"]["offset"])

    def testAWrongByteIsWhereItBreaks(self):
        wrong = bytearray(self.OPEN)
        wrong[23] = 0x63
        broken = self.broken(bytes(wrong))["broken"]
        self.assertEqual({"offset": 23, "reason": "unknown type 99 in a field that begins at "
                                                  "byte 23"}, broken)

    def testAStringOverTheLimitBreaksWhereItBegins(self):
        wrong = self.OPEN[:26] + bytes.fromhex("7fffffff") + self.OPEN[30:]
        self.assertEqual(26, self.broken(wrong)["broken"]["offset"])

    def testOffsetsCountFromTheBeginningOfTheFile(self):
        self.assertEqual(37, self.broken(CLOSE["binary"] + self.OPEN[:12])["broken"]["offset"])

    def testOffsetsCountTheLengthsOfFrames(self):
        wrong = self.OPEN[:26] + bytes.fromhex("7fffffff") + self.OPEN[30:]
        data = frame(CLOSE["binary"]) + frame(wrong)
        self.assertEqual(29 + 4 + 26, self.broken(data, "--transport", "framed")["broken"]["offset"])

    def testAFrameLongerThanItsMessageBreaksAtTheMessagesEnd(self):
        data = frame(CLOSE["binary"] + b"xy")
        self.assertEqual(29, self.broken(data, "--transport", "framed")["broken"]["offset"])

    def testAnEmptyFrameBreaksAfterItsLength(self):
        self.assertEqual(4, self.broken(frame(b""), "--transport", "framed")["broken"]["offset"])

    def testTheWrongProtocolIsGuessed(self):
        status, _, err = decode(frame(CLOSE["compact"]))
        self.assertEqual(6, status)
        self.assertIn("; it looks like compact over framed, not binary over buffered\n", err)
        self.assertIn("; it looks like TLS, which only its two ends can read\n",
                      decode(bytes.fromhex("1603010200") + 100 * b"x")[2])

    def testACredentialThatIsCutIsMasked(self):
        message = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0003 00000006 7365736d")
        status, out, err = decode(message)
        self.assertIn("credential  string ***\n", out)
        self.assertNotIn("ses", out + err)

    def testACredentialThatIsNotAStringIsMasked(self):
        message = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 08 0003 73657361 00")
        status, out, err = decode(message)
        self.assertEqual((0, ""), (status, err))
        self.assertIn("3  credential  i32    ***\n", out)

    def testACredentialThatCannotBeReadIsNotQuoted(self):
        message = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0003 ffffffff 736573")
        self.assertEqual({"offset": 22, "reason": "not a credential in a string that begins at "
                                                  "byte 22"}, self.broken(message)["broken"])

    def testWhatFollowsACredentialIsExplained(self):
        wrong = self.OPEN[:-1] + bytes.fromhex("0b 0004 00000003 6b6579 63 0005")
        self.assertEqual("unknown type 99 in a field that begins at byte 46",
                         self.broken(wrong)["broken"]["reason"])

    def testACredentialOfAnotherTypeIsNotQuoted(self):
        for value, expected in [(b'"dbl":"sesame"', (6, "breaks at byte 29: this must be a dbl")),
                                (b'"i32":"sesame"', (6, "breaks at byte")),
                                (b'"str":"', (6, "the bytes end in the header")),
                                (b'"str"', (6, "the bytes end in the header")),
                                (b'"i32":5', (0, "credential  i32    ***")),
                                (b'"rec":{"1":{"str":"sesame"}}', (0, "credential  struct ***"))]:
            with self.subTest(value):
                end = b"}}]" if value.count(b'"') > 3 or value[-1:] == b"5" else b""
                status, out, err = decode(b'[1,"OpenEmp",1,0,{"3":{' + value + end,
                                          "--protocol", "json")
                self.assertEqual(expected[0], status)
                self.assertIn(expected[1], out)
                self.assertNotIn("sesame", out + err)

    def testDepthIsBounded(self):
        deep = bytes.fromhex("80010001 00000001 78 00000000") + 1000 * bytes.fromhex("0c0001")
        self.assertIn("nested too deeply", self.broken(deep)["broken"]["reason"])
        lists = bytes.fromhex("8221 00 01 78 19") + 1000000 * b"\x19"
        self.assertIn("nested too deeply",
                      self.broken(lists, "--protocol", "compact")["broken"]["reason"])

    def testTheDepthThatIsDecodedIs64(self):
        def nested(levels):
            return (bytes.fromhex("80010001 00000001 78 00000000") +
                    levels * bytes.fromhex("0c0001") + (levels + 1) * b"\0")

        def lists(levels):
            return (bytes.fromhex("80010001 00000001 78 00000000 0f 0001") +
                    (levels - 1) * bytes.fromhex("0f 00000001") +
                    bytes.fromhex("02 00000001 01 00"))

        for levels, status in [(63, 0), (64, 0), (65, 6)]:
            with self.subTest(levels):
                self.assertEqual(status, decode(nested(levels))[0])
                self.assertEqual(status, decode(lists(levels))[0])

    def testTheMessageThatIsDecodedHas16MiB(self):
        head = bytes.fromhex("80010001 00000001 78 00000000 0b 0001")
        for size, status in [(-1, 0), (0, 0), (1, 6)]:
            with self.subTest(size):
                length = (1 << 24) + size - len(head) - 5
                message = head + length.to_bytes(4, "big") + length * b"x" + b"\0"
                self.assertEqual(status, decode(message, "--format", "raw")[0])
                self.assertEqual(status, decode(frame(message), "--format", "raw", "--transport",
                                                "framed")[0])
                capture = (b'{"capture":1,"protocol":"binary","transport":"framed"}\n'
                           b'{"connection":1,"from":"client","hex":"%s"}\n')
                self.assertEqual(status, decode(capture % frame(message).hex().encode())[0])
                filled = b'[1,"%s",1,0,{}]' % (((1 << 24) + size - 13) * b"x")
                self.assertEqual(status, decode(filled, "--protocol", "json")[0])

    def testTheValuesThatAreDecodedAre100000(self):
        """Nine lists of 10,000, each a value itself, and a tenth."""
        head = bytes.fromhex("80010001 00000001 78 00000000")

        def lists(*sizes):
            return head + b"".join(bytes.fromhex("0f 0001 02") + size.to_bytes(4, "big") +
                                   size * b"\1" for size in sizes) + b"\0"

        for last, status in [(9989, 0), (9990, 0), (9991, 6)]:
            with self.subTest(last):
                self.assertEqual(status, decode(lists(*(9 * [10000]), last))[0])

    def testTheElementsThatAContainerMayHaveAre10000(self):
        head = bytes.fromhex("80010001 00000001 78 00000000 0f 0001 02")
        for size, status in [(9999, 0), (10000, 0), (10001, 6)]:
            with self.subTest(size):
                self.assertEqual(status, decode(head + size.to_bytes(4, "big") + size * b"\1" +
                                                b"\0")[0])

    def testTheFirstBreakIsReported(self):
        capture = b'{"capture":1,"protocol":"binary","transport":"buffered"}\n'
        for cut in (10, 20):
            capture += (b'{"connection":1,"from":"client","hex":"%s"}\n' %
                        CLOSE["binary"][:cut].hex().encode())
        status, out, err = decode(capture)
        self.assertEqual((6, 2), (status, out.count("breaks at byte")))
        self.assertIn("message 1 breaks at byte 10: ", err)

    def testAFrameOverTheLimitIsNotWaitedFor(self):
        self.assertEqual({"offset": 0, "reason": "a frame of 16777217 bytes is over the limit in "
                                                 "the length of a frame that begins at byte 0"},
                         self.broken(bytes.fromhex("01000001"), "--transport", "framed")["broken"])

    def testTheLengthOfAMessageIsBounded(self):
        self.assertIn("the message is longer than 16777216 bytes",
                      self.broken(b'[1,"' + 17000000 * b"x", "--protocol", "json")
                      ["broken"]["reason"])

    def testTheNumberOfValuesIsBounded(self):
        lists = 11 * (bytes.fromhex("0f 0001 02 00002710") + 10000 * b"\1")
        message = bytes.fromhex("80010001 00000001 78 00000000") + lists + b"\0"
        self.assertIn("more values than a message may have",
                      self.broken(message)["broken"]["reason"])

    def testContainersAreBounded(self):
        huge = bytes.fromhex("80010001 00000001 78 00000000 0f 0001 02 7fffffff")
        self.assertEqual(16, self.broken(huge)["broken"]["offset"])

    def testWhatIsNotACaptureIsReportedWithItsLine(self):
        head = b'{"capture":1,"protocol":"binary","transport":"buffered"}\n'
        for data, line in [(b'{"capture":1}\n', 1),
                           (head.replace(b"binary", b"nonary"), 1),
                           (head.replace(b"buffered", b"unframed"), 1),
                           (head + b'{"connection":1,"from":"client","hex":"8"}\n', 2),
                           (head + b"[" * 100000, 2)]:
            with self.subTest(data[:80]):
                self.assertErrorHas(6, "line %d is not one that tavctl spy writes" % line, decode(data))
        self.assertErrorHas(6, "a line is too long", decode(head + b"[" * 40000000))


class HostileTest(ToolTest):
    """Random bytes: each ends with a status that is meant, in bounded memory."""

    MEMORY = 1 << 30

    def setUp(self):
        if "UNLIMITED" not in os.environ:
            limits = resource.getrlimit(resource.RLIMIT_AS)
            resource.setrlimit(resource.RLIMIT_AS, (self.MEMORY, limits[1]))
            self.addCleanup(resource.setrlimit, resource.RLIMIT_AS, limits)

    def survives(self, data, *words):
        status, out, err = decode(data, "--format", "raw", *words)
        self.assertIn(status, (0, 6), (data.hex(), words, err))
        self.assertLessEqual(err.count("\n"), 1)

    def testMessagesWithRandomBytesInThemAreDecodedAsFarAsTheyGo(self):
        chance = random.Random(20061)
        for protocol, transport in COMBINATIONS:
            for _ in range(15):
                data = bytearray(CLOSE[protocol])
                for _ in range(chance.randint(1, 4)):
                    data[chance.randrange(len(data))] = chance.choice(
                        [0, 0x7f, 0x80, 0xff, chance.randrange(256)])
                data += chance.randbytes(chance.randint(0, 40))
                if transport == "framed":
                    data = frame(data)
                self.survives(bytes(data), "--protocol", protocol, "--transport", transport)

    def testAllThatIsEndlessIsBounded(self):
        start_json = b'[1,"x",1,0,{"1":{"'
        for protocol, data in [
            ("json", b'[1,"' + 20000000 * b"x"),
            ("json", start_json + b'lst":["str",10000,' + b",".join(10000 * [b'"x"'])),
            ("json", start_json + 1000 * b'rec":{"1":{"'),
            ("json", start_json + b"i32" + b'":' + 20000000 * b"1"),
            ("compact", bytes.fromhex("8221 00 01 78") + 1000000 * b"\x1c"),
            ("compact", bytes.fromhex("8221 00 01 78 19 fc ffffffff07") + 1000000 * b"\0"),
            ("binary", bytes.fromhex("80010001 00000001 78 00000000") +
             20000 * (bytes.fromhex("0f 0001 02 00002710") + 10000 * b"\1")),
        ]:
            with self.subTest(protocol, data=data[:40]):
                self.survives(data, "--protocol", protocol)


if __name__ == "__main__":
    unittest.main()
