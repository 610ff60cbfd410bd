"""decode of what tcpdump wrote, and its sequence diagrams."""

import ipaddress
import itertools
import os
import random
import struct

from support import *

SYN, FIN, RST, PUSH, ACK = 2, 1, 4, 8, 16
REPLY = {
    "binary": bytes.fromhex("80010002 00000005 436c6f7365 00000000 08 0000 00000003 00"),
    "compact": bytes.fromhex("8241 00 05 436c6f7365 05 00 06 00"),
    "json": b'[1,"Close",2,0,{"0":{"i32":3}}]',
}
CALL = CLOSE["binary"]
CLIENT, SERVER = ("10.0.0.1", 40000), ("10.0.0.2", 9090)
LINKS = {  # by their number: what stands before an IP packet
    0: lambda kind: b"\2\0\0\0",
    1: lambda kind: 12 * b"\1" + kind,
    101: lambda kind: b"",
    108: lambda kind: b"\0\0\0\2",
    113: lambda kind: 14 * b"\0" + kind,
    228: lambda kind: b"",
    229: lambda kind: b"",
    276: lambda kind: kind + 18 * b"\0",
}


def segment(source, target, sequence, data=b"", flags=ACK | PUSH):
    """An IP packet. Checksums are 0: the kernel's own packets have none, either."""
    tcp = struct.pack("!HHIIBBHHH", source[1], target[1], sequence % 2**32, 0, 5 << 4, flags,
                      1000, 0, 0) + data
    addresses = b"".join(ipaddress.ip_address(host).packed for host in (source[0], target[0]))
    if len(addresses) == 8:
        return struct.pack("!BBHHHBBH", 0x45, 0, 20 + len(tcp), 0, 0, 64, 6, 0) + addresses + tcp
    return struct.pack("!IHBB", 0x60012345, len(tcp), 6, 64) + addresses + tcp


def record(packet, number, cut):
    return struct.pack("<IIII", 1600000000 + number, 0, len(packet[:cut]),
                       len(packet)) + packet[:cut]


def patched(packet, begin, *replacement):
    """The packet with other bytes from `begin` on."""
    return packet[:begin] + bytes(replacement) + packet[begin + len(replacement):]


def pcap(packets, link=101, cut=None):
    """A capture of IP packets, a second apart."""
    linked = [LINKS[link](b"\x08\0" if packet[0] >> 4 == 4 else b"\x86\xdd") + packet
              for packet in packets]
    return (struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, link) +
            b"".join(record(packet, number, cut) for number, packet in enumerate(linked)))


class Talk:
    """A conversation: makes the segments that its ends send."""

    def __init__(self, client=CLIENT, server=SERVER, first=(1000, 5000), opened=True):
        self.ends = {"client": (client, server), "target": (server, client)}
        self.next = dict(zip(self.ends, first))
        self.packets = [] if not opened else [
            segment(client, server, first[0] - 1, flags=SYN),
            segment(server, client, first[1] - 1, flags=SYN | ACK)]

    def make(self, end, data):
        packet = segment(*self.ends[end], self.next[end], data)
        self.next[end] += len(data)
        return packet

    def say(self, end, *parts):
        self.packets += [self.make(end, part) for part in parts]
        return self


def decode(data, *words):
    return tavctl("decode", *words, stdin=data)


class Captures(ToolTest):
    def messages(self, data, *words, status=0, error=""):
        """What each message is: connection, who sent it, operation, type; or why it breaks."""
        ended, out, err = decode(data, "--json", *words)
        self.assertEqual(status, ended, err)
        self.assertIn(error, err)
        self.assertTrue(error or status or not err, err)
        self.lines = [json.loads(line) for line in out.splitlines()]
        return [(line["connection"], line["from"], line["operation"], line["type"])
                if "broken" not in line else line["broken"]["reason"] for line in self.lines]

    BOTH = [(1, "client", "Close", "call"), (1, "target", "Close", "reply")]


class CaptureTest(Captures):
    def testAConversationIsDecodedWhateverCarriesIt(self):
        for link in LINKS:
            for hosts in (("10.0.0.1", "10.0.0.2"), ("fe80::1", "2001:db8::2")):
                for protocol, transport in COMBINATIONS:
                    with self.subTest(link=link, hosts=hosts, protocol=protocol,
                                      transport=transport):
                        wrap = frame if transport == "framed" else bytes
                        talk = Talk((hosts[0], 40000), (hosts[1], 9090))
                        talk.say("client", wrap(CLOSE[protocol]))
                        talk.say("target", wrap(REPLY[protocol]))
                        self.assertEqual(self.BOTH, self.messages(
                            pcap(talk.packets, link), "--protocol", protocol,
                            "--transport", transport))
                        form = "%s:%d" if "." in hosts[0] else "[%s]:%d"
                        self.assertEqual(
                            {"connection": 1, "from": "target", "client": form % (hosts[0], 40000),
                             "target": form % (hosts[1], 9090), "ms": 3000.0, "offset": 0},
                            dict(list(self.lines[1].items())[:6]))

    def testPeopleSeeWhoSpeaks(self):
        data = pcap(Talk().say("client", CALL).packets)
        self.assertEqual((0, "[1] client 10.0.0.1:40000\n  Close call seqid 0, 25 bytes at 0\n"
                             "    1  clientID  i32    7\n", ""), decode(data))

    def testTagsOfVirtualNetworksAreSkipped(self):
        packets = Talk().say("client", CALL).packets
        tag = b"\x81\0\0\x07\x88\xa8\0\x08\x08\0"
        data = pcap([], 1) + b"".join(record(12 * b"\1" + tag + packet, 0, None)
                                      for packet in packets)
        self.assertEqual(self.BOTH[:1], self.messages(data))

    def testExtensionsOfIpv6AreSkipped(self):
        packet = segment(("fe80::1", 1), ("fe80::2", 2), 1000, CALL)
        hops = bytes([60, 0, 1, 4, 0, 0, 0, 0]) + bytes([43, 1]) + 14 * b"\0" + \
            bytes([6, 0]) + 6 * b"\0"
        packet = packet[:4] + struct.pack("!H", len(packet) - 40 + len(hops)) + b"\0\x40" + \
            packet[8:40] + hops + packet[40:]
        self.assertEqual(self.BOTH[:1],
                         self.messages(pcap([packet]), error="is older than the capture"))

    def testPaddingIsNotData(self):
        talk = Talk().say("client", CALL, CALL)
        packets = [packet + 6 * b"\0" for packet in talk.packets]
        self.assertEqual(2 * self.BOTH[:1], self.messages(pcap(packets, 1)))

    def testThePacketsOfOffloadingHaveNoLength(self):
        for hosts, begin in [(("10.0.0.1", "10.0.0.2"), 2), (("fe80::1", "fe80::2"), 4)]:
            for length, expected in [((0, 0), self.BOTH[:1]), ((0, 1), [])]:
                with self.subTest(hosts=hosts, length=length):
                    talk = Talk((hosts[0], 1), (hosts[1], 2)).say("client", CALL)
                    talk.packets[-1] = patched(talk.packets[-1], begin, *length)
                    self.assertEqual(expected, self.messages(pcap(talk.packets, 1)))

    def testWhatIsNotASegmentIsLeftOut(self):
        talk = Talk().say("client", CALL)
        call = talk.packets[-1]
        for packet in (patched(call, 9, 17), patched(call, 0, 0x35), patched(call, 0, 0x65),
                       patched(call, 32, 0x40), patched(call, 32, 0xC0), patched(call, 3, 39)):
            with self.subTest(packet):
                self.assertEqual([], self.messages(pcap(talk.packets[:2] + [packet])))
        # Options take all of the segment but 5 bytes.
        self.assertEqual([], self.messages(
            pcap(talk.packets[:2] + [patched(call, 32, 0xA0)]), status=6,
            error="no TCP connection in it carries binary over buffered; check --protocol"))
        self.assertEqual([], self.messages(pcap([b"\x08" + call[1:]], 1)))
        for kind in (b"\x08\x06", b"\x86\xdd\x81\0", b"\x81\0", b"\x81\0\0", b"\x08", b""):
            with self.subTest(kind):
                self.assertEqual([], self.messages(pcap([], 1) + record(12 * b"\1" + kind, 0, None)))

    def testASegmentIsKnownByItsHeadersAlone(self):
        lack = ["the capture lacks 25 bytes here, and what follows them cannot be decoded"]
        for hosts, size in [(("10.0.0.1", "10.0.0.2"), 40), (("fe80::1", "fe80::2"), 60)]:
            call = Talk((hosts[0], 1), (hosts[1], 2)).say("client", CALL).packets[-1]
            for cut, found in [(size - 1, []), (size, lack), (size + 24, [lack[0].replace("25", "1")]),
                               (size + 25, self.BOTH[:1])]:
                with self.subTest(hosts=hosts, cut=cut):
                    self.assertEqual(found, self.messages(
                        pcap([call], cut=cut), status=6 if found and cut < size + 25 else 0,
                        error="is older than the capture" if found else ""))

    def testTheTimeOfAPacketHasMicroseconds(self):
        talk = Talk().say("client", CALL)
        for order, magic, unit in [("<", 0xA1B2C3D4, 1), (">", 0xA1B2C3D4, 1),
                                   ("<", 0xA1B23C4D, 1000), (">", 0xA1B23C4D, 1000)]:
            with self.subTest(order=order, magic=magic):
                data = struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 262144, 101)
                for packet, (seconds, micros) in zip(talk.packets, [(5, 999000), (6, 0), (8, 1234)]):
                    data += struct.pack(order + "IIII", seconds, micros * unit, len(packet),
                                        len(packet)) + packet
                self.assertEqual(self.BOTH[:1], self.messages(data))
                self.assertEqual(2002.234, self.lines[0]["ms"])

    def testBothFormatsOfFilesAreRead(self):
        def block(kind, body):
            body += -len(body) % 4 * b"\0"
            return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)

        data = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) + \
            block(1, struct.pack("<HHI", 101, 0, 0))
        for packet in Talk().say("client", CALL).say("target", REPLY["binary"]).packets:
            data += block(6, struct.pack("<IIIII", 0, 0, 0, len(packet), len(packet)) + packet)
        self.assertEqual(self.BOTH, self.messages(data))
        self.assertEqual(self.BOTH, self.messages(data, "--format", "pcap"))

    def testWhatTcpdumpWroteIsRead(self):
        """Of three calls over loopback: on lo, and on any, where each packet comes twice."""
        for name in ("loopback", "any"):
            path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "captures", name + ".pcap")
            status, out, err = tavctl("decode", path, "--json")
            self.assertEqual((0, ""), (status, err))
            lines = [json.loads(line) for line in out.splitlines()]
            self.assertEqual(
                [(number, end, operation, kind)
                 for number, operation, answer in [(1, "Close", "reply"), (2, "Open", "reply"),
                                                   (3, "CloseEmp", "exception")]
                 for end, kind in [("client", "call"), ("target", answer)]],
                [(line["connection"], line["from"], line["operation"], line["type"])
                 for line in lines])
            self.assertNotIn("sesame", out)


class ReassemblyTest(Captures):
    def testAMessageMayComeInSegments(self):
        talk = Talk().say("client", CALL[:3], CALL[3:10], CALL[10:] + CALL[:1], CALL[1:])
        self.assertEqual(2 * self.BOTH[:1], self.messages(pcap(talk.packets)))
        self.assertEqual([4000.0, 5000.0], [line["ms"] for line in self.lines])
        talk = Talk().say("client", *[bytes([byte]) for byte in CALL])
        self.assertEqual(self.BOTH[:1], self.messages(pcap(talk.packets)))

    def testSegmentsMayComeInAnyOrderTwiceAndOverlapping(self):
        chance = random.Random(7)
        for first in (1000, 2**32 - 60):
            for _ in range(50):
                whole = 8 * CALL
                packets = [segment(CLIENT, SERVER, first + begin, whole[begin:begin + 13])
                           for begin in range(0, len(whole), 10)]
                packets += chance.sample(packets, 5)
                chance.shuffle(packets)
                with self.subTest(first):
                    self.assertEqual(8 * self.BOTH[:1], self.messages(
                        pcap(Talk(first=(first, 5000)).packets + packets)))

    def testASegmentInsideAnotherAddsNothing(self):
        whole = 2 * CALL
        packets = [segment(CLIENT, SERVER, 1000 + begin, whole[begin:end])
                   for begin, end in [(20, 25), (10, 50), (0, 10)]]
        self.assertEqual(2 * self.BOTH[:1], self.messages(pcap(Talk().packets + packets)))

    def testAnyPartOfAnOpeningShowsWhoIsTheClient(self):
        first, second = Talk().packets
        for opening in ([first], [second], [patched(first, 33, SYN | FIN)]):
            talk = Talk(opened=False)
            talk.packets = list(opening)
            talk.say("target", REPLY["binary"]).say("client", CALL)
            # The client ends the conversation.
            talk.packets.append(segment(CLIENT, SERVER, talk.next["client"], flags=FIN | ACK))
            with self.subTest(opening):
                self.assertEqual(self.BOTH[::-1], self.messages(pcap(talk.packets)))

    def testAnOpeningThatIsSentAgainBelongsToTheSameConversation(self):
        talk = Talk()
        talk.packets.insert(0, talk.packets[0])
        talk.say("client", CALL).say("target", REPLY["binary"])
        self.assertEqual(self.BOTH, self.messages(pcap(talk.packets)))

    def testMessagesStandInTheOrderInWhichTheyWereComplete(self):
        one, two = Talk(), Talk(("10.0.0.3", 1), ("10.0.0.2", 9090))
        packets = one.packets + two.packets
        packets += [one.make("client", CALL[:9]), two.make("client", CALL),
                    two.make("target", REPLY["binary"]), one.make("client", CALL[9:]),
                    two.make("client", CALL), one.make("target", REPLY["binary"])]
        self.assertEqual([(2, "client", "Close", "call"), (2, "target", "Close", "reply"),
                          (1, "client", "Close", "call"), (2, "client", "Close", "call"),
                          (1, "target", "Close", "reply")], self.messages(pcap(packets)))

    def testAPortThatIsUsedAgainIsAnotherConversation(self):
        packets = Talk().say("client", CALL, CALL[:5]).packets
        packets += Talk(first=(77000, 99000)).say("client", CALL).say("target", REPLY["binary"]).packets
        self.assertEqual(
            [(1, "client", "Close", "call"), "the bytes end in the header that begins at byte 25",
             (2, "client", "Close", "call"), (2, "target", "Close", "reply")],
            self.messages(pcap(packets), status=6))

    def testAProbeOfAnIdleConnectionIsNotData(self):
        talk = Talk().say("client", CALL)
        probe = segment(CLIENT, SERVER, talk.next["client"] - 1, b"\0")
        talk.packets.append(probe)
        self.assertEqual(2 * self.BOTH[:1],
                         self.messages(pcap(talk.say("client", CALL).packets)))

    def testMissingSegmentsAreReportedAndWhatFollowsIsNotGuessed(self):
        for lost, offset, size in [(1, 25, 25), (2, 50, 25)]:
            talk = Talk()
            calls = [talk.make("client", CALL) for _ in range(4)]
            del calls[lost]
            packets = talk.packets + calls + [talk.make("target", REPLY["binary"])]
            with self.subTest(lost):
                broken = "the capture lacks %d bytes here, and what follows them cannot be decoded"
                found = self.messages(pcap(packets), status=6,
                                      error="breaks at byte %d: the capture lacks" % offset)
                self.assertEqual(lost, found.count((1, "client", "Close", "call")))
                self.assertEqual(1, found.count(broken % size))
                self.assertEqual(1, found.count((1, "target", "Close", "reply")))
                self.assertEqual(lost + 2, len(found))
                self.assertEqual(1000 * (lost + 1), self.lines[found.index(broken % size)]["ms"])

    def testACaptureThatCutsPacketsLacksTheRest(self):
        packets = Talk().say("client", CALL).packets
        self.assertEqual(["the capture lacks 10 bytes here, and what follows them cannot be decoded"],
                         self.messages(pcap(packets, cut=55), status=6))

    def testTheEndOfACaptureWithinAMessageIsABreak(self):
        self.assertEqual(["the bytes end in the header that begins at byte 0"],
                         self.messages(pcap(Talk().say("client", CALL[:9]).packets), status=6))

    def testFragmentsOfPacketsAreNotGuessed(self):
        talk = Talk().say("client", CALL, CALL)
        packet = bytearray(talk.packets[-1])
        packet[6] = 0x20
        talk.packets[-1] = bytes(packet)
        self.assertEqual(self.BOTH[:1], self.messages(
            pcap(talk.packets), error="1 fragments of IP packets are left out"))
        packet = segment(("fe80::1", 1), ("fe80::2", 2), 1000, CALL)
        packet = packet[:6] + bytes([44]) + packet[7:40] + bytes([6, 0, 0, 1, 0, 0, 0, 9]) + \
            packet[40:]
        self.assertEqual([], self.messages(
            pcap([packet]), error="1 fragments of IP packets are left out"))
        # Behind another extension, and of its header no more than the beginning.
        for size, error in [(47, ""), (48, "tavctl: 1 fragments of IP packets are left out\n")]:
            cut = packet[:6] + b"\0" + packet[7:40] + bytes([44, 0]) + packet[42:]
            self.assertEqual((0, "", error), decode(pcap([cut], cut=size)))

    def testAConnectionOlderThanTheCaptureIsDecodedWithANote(self):
        note = "connection 1 is older than the capture"
        talk = Talk(opened=False).say("client", CALL).say("target", REPLY["binary"])
        self.assertEqual(self.BOTH, self.messages(pcap(talk.packets), error=note))
        talk = Talk(opened=False).say("target", REPLY["binary"]).say("client", CALL)
        self.assertEqual(self.BOTH[::-1], self.messages(pcap(talk.packets), error=note))
        self.assertEqual("10.0.0.1:40000", self.lines[0]["client"])
        refused = bytes.fromhex("80010003 00000005 436c6f7365 00000000 00")
        talk = Talk(opened=False).say("target", refused)
        self.assertEqual([(1, "target", "Close", "exception")],
                         self.messages(pcap(talk.packets), error=note))


class OtherTrafficTest(Captures):
    def testItIsLeftOutWithANote(self):
        other = Talk(("10.0.0.9", 5), ("10.0.0.2", 22))
        other.say("client", b"SSH-2.0-OpenSSH_9.2\r\n").say("target", b"SSH-2.0-OpenSSH_9.2\r\n")
        talk = Talk().say("client", CALL).say("target", REPLY["binary"])
        udp = bytearray(talk.packets[0])
        udp[9] = 17
        data = pcap(other.packets + talk.packets + [bytes(udp), b"\x45", b"\xff" * 30])
        self.assertEqual([(2, *rest) for _, *rest in self.BOTH],
                         self.messages(data, error="2 directions of TCP connections are left out: "
                                                   "they do not carry binary over buffered; "
                                                   "some look like SSH\n"))

    def testNothingElseIsAnError(self):
        data = pcap(Talk().say("client", frame(CLOSE["compact"])).packets)
        self.assertEqual([], self.messages(
            data, status=6, error="no TCP connection in it carries binary over buffered; "
                                  "some look like compact over framed; check"))

    def testNothingAtAllIsNotAMessage(self):
        self.assertEqual((0, "", ""), decode(pcap([])))


class HostileTest(Captures):
    def survives(self, data):
        status, out, err = decode(data, "--format", "pcap")
        self.assertIn(status, (0, 2, 6), err)
        self.assertNotIn("internal", err)
        self.assertNotIn("went wrong here", err)
        return status, err

    def testEveryPrefixEndsWithAnAnswer(self):
        packets = Talk().say("client", CALL).packets
        data = pcap(packets, 1)
        wholes = [len(pcap(packets[:number], 1)) for number in range(len(packets) + 1)]
        for length in range(len(data)):
            with self.subTest(length):
                status, err = self.survives(data[:length])
                self.assertEqual(0 if length in wholes else 6, status)

    def testATruncatedFileIsDecodedUpToThere(self):
        data = pcap(Talk().say("client", CALL).say("target", REPLY["binary"]).packets)
        self.assertEqual(self.BOTH[:1], self.messages(data[:-1], status=6,
                                                      error="the capture breaks off: truncated"))

    def testGarbageIsNotACapture(self):
        for data in (b"", b"\xd4\xc3\xb2\xa1", b"x" * 100, b"\x0a\x0d\x0d\x0a" + b"\xff" * 100):
            self.assertErrorHas(6, "this is not a capture that can be read",
                                decode(data, "--format", "pcap"))
        for link, name in [(105, "IEEE802_11"), (9999, "9999")]:
            self.assertErrorHas(2, "packets of link type %s cannot be read" % name,
                                decode(pcap([])[:20] + struct.pack("<I", link)))

    def testInputThatCannotBeReadIsNotACapture(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            broken = socket.create_connection(server.getsockname())
            other = server.accept()[0]
        other.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        other.close()  # without waiting: reading from it is an error
        with broken:
            ended = subprocess.run([TAVCTL, "decode", "--format", "pcap"], stdin=broken,
                                   env=environment(), capture_output=True)
        self.assertEqual(6, ended.returncode)
        self.assertIn(b"this is not a capture that can be read", ended.stderr)

    def testLengthsThatAreWrongAreBounded(self):
        packets = Talk().say("client", CALL).packets
        for begin, value in [(16, 0xFFFFFFFF), (32, 0xFFFFFFFF), (36, 0xFFFFFFFF), (32, 0x7FFFFFFF),
                             (16, 0), (36, 0)]:
            with self.subTest(begin):
                data = bytearray(pcap(packets))
                data[begin:begin + 4] = struct.pack("<I", value)
                self.survives(bytes(data))
        for begin in (0, 2, 3, 32):  # of the IP and the TCP header
            for value in (0, 0x40, 0x41, 0x4f, 0x60, 0xf0, 0xff):
                packet = bytearray(packets[-1])
                packet[begin] = value
                for size in range(1, len(packet) + 1, 13):
                    self.survives(pcap([bytes(packet)[:size]]))

    def testNoiseEndsWithAnAnswer(self):
        chance = random.Random(3)
        for link in (1, 113, 276, 101):
            for _ in range(60):
                data = bytearray(pcap(Talk().say("client", CALL, CALL).packets, link))
                for _ in range(chance.randint(1, 8)):
                    data[chance.randrange(24, len(data))] = chance.choice(
                        [0, 1, 0x7f, 0x80, 0xff, chance.randrange(256)])
                with self.subTest(bytes(data)):
                    self.survives(bytes(data))

    def testTheMemoryForMessagesIsBounded(self):
        talk = Talk()
        part = CALL + ((1 << 16) - 100 - len(CALL)) * b"x"  # each counts 100 bytes more
        data = [record(talk.make("client", part), 0, None) for _ in range(1026)]
        status, out, err = decode(pcap(talk.packets) + b"".join(data[:1024]))
        self.assertIn("message 2 breaks at byte 25: ", err)
        self.assertIn("  Close call seqid 0, 25 bytes at 0\n", out)
        # Behind a hole it costs as much, and all conversations share it.
        talks = talk, Talk(("10.0.0.3", 40000))
        shared = [record(talks[i % 2].make("client", part), 0, None) for i in range(1025)]
        for opened, records in ((talk.packets, data[1:]), (talks[1].packets, shared)):
            self.assertErrorHas(2, "tavctl: the capture has more than 64 MiB of messages; take a part "
                                "of it, with tcpdump -r FILE -w PART port NUMBER\n",
                                decode(pcap(opened) + b"".join(records)))

    def testAPartThatIsSentAgainAndAgainCostsNothing(self):
        talk = Talk()
        first, again = [record(talk.make("client", part), 0, None) for part in (CALL, CALL[:1])]
        status, out, err = decode(pcap(talk.packets) + 700000 * again + first)
        self.assertIn("Close call seqid 0, 25 bytes at 0", out)

    def testOtherTrafficDoesNotCount(self):
        part = 60000 * b"x"
        data = pcap(Talk().say("client", CALL).packets)
        for ports in (1200 * [5], range(1200)):  # one connection, and many
            position = itertools.count(1, len(part))
            records = [record(segment(("10.0.0.9", port), SERVER, next(position), part), 0, None)
                       for port in ports]
            self.assertEqual(self.BOTH[:1], self.messages(data + b"".join(records),
                                                          error="are left out"))

    def testTheNumberOfConversationsIsBounded(self):
        data = pcap([segment(("10.%d.%d.1" % divmod(number, 256), 1), SERVER, 0, flags=SYN)
                     for number in range(10001)])
        self.assertErrorHas(2, "more than 10000 conversations", decode(data))


class SequenceTest(ToolTest):
    def testACaptureOfTcpdumpIsADiagram(self):
        failed = bytes.fromhex("80010003 00000005 436c6f7365 00000000 0b 0001 00000003 613b23"
                               "08 0002 00000006 00")
        talk = Talk().say("client", CALL).say("target", REPLY["binary"])
        talk.say("client", CALL).say("target", failed).say("client", CALL[:7])
        status, out, err = decode(pcap(talk.packets), "--sequence")
        self.assertEqual((6, """sequenceDiagram
    participant p1 as 10.0.0.1:40000
    participant p2 as 10.0.0.2:9090
    p1->>p2: Close(clientID=7)
    p2-->>p1: Close: 3
    p1->>p2: Close(clientID=7)
    p2--xp1: Close: message=#34;a#59;#35;#34;, type=6
    Note over p1,p2: breaks at byte 57: the bytes end in the header that begins at byte 50
"""), (status, out))

    def testACaptureOfSpyIsADiagram(self):
        lines = ['{"capture":1,"protocol":"binary","transport":"buffered"}']
        for connection, end, message in [(1, "client", CALL), (1, "target", REPLY["binary"]),
                                         (2, "client", CALL)]:
            lines.append(json.dumps({"connection": connection, "from": end, "ms": 1.0,
                                     "hex": message.hex()}))
        self.assertEqual((0, """sequenceDiagram
    participant p1 as client 1
    participant p2 as target
    p1->>p2: Close(clientID=7)
    p2-->>p1: Close: 3
    participant p3 as client 2
    p3->>p2: Close(clientID=7)
""", ""), decode("\n".join(lines).encode(), "--sequence"))

    def testCredentialsAndLongTextsAreNotInIt(self):
        opened = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0001 000003e8") + \
            1000 * b"n" + bytes.fromhex("0b 0003 00000006") + b"sesame\0"
        out = decode(pcap(Talk().say("client", opened).packets), "--sequence")[1]
        self.assertNotIn("sesame", out)
        self.assertLess(len(max(out.splitlines(), key=len)), 300)

    def testACredentialThatIsNotAStringIsMasked(self):
        opened = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0c 0003 08 0001 73657361"
                               "00 00")
        self.assertIn("p1->>p2: OpenEmp(credential=***)\n",
                      decode(pcap(Talk().say("client", opened).packets), "--sequence")[1])

    def testALongTextIsCutOffBetweenCharacters(self):
        for before in range(3):
            with self.subTest(before):
                name = before * b"n" + 300 * "\u20ac".encode()
                opened = bytes.fromhex("80010001 00000007 4f70656e456d70 00000000 0b 0001") + \
                    struct.pack("!I", len(name)) + name + b"\0"
                out = decode(pcap(Talk().say("client", opened).packets), "--sequence")[1]
                self.assertRegex(out, r"\(name=#34;n*\u20ac+\.\.\.\n$")

    def testALabelHas200Bytes(self):
        for size, text in [(198, 198 * "x" + "()"), (199, 199 * "x" + "(...")]:
            message = bytes.fromhex("80010001") + struct.pack("!I", size) + size * b"x" + 5 * b"\0"
            out = decode(pcap(Talk().say("client", message).packets), "--sequence")[1]
            self.assertEqual("    p1->>p2: " + text, out.splitlines()[-1])

    def testOtherBytesAreNotACapture(self):
        self.assertErrorHas(2, "--sequence takes a capture", decode(CALL, "--sequence"))
        self.assertErrorHas(2, "excludes", decode(CALL, "--sequence", "--json"))


if __name__ == "__main__":
    unittest.main()
