"""JSON messages are checked before libthrift gets them."""

import os
import socket

from support import *

# What is wrong, and the offset of the first wrong byte.
BROKEN = [
    (b'[1,"Execute",1,0,{"9":{"i8":300}}]', 28, "whole number from -128 to 127, as i8"),
    (b'[1,"Close",1,0,{"9":{"i8":-129}}]', 26, "whole number from -128 to 127, as i8"),
    (b'[1,"Close",1,0,{"9":{"i16":32768}}]', 27, "to 32767, as i16"),
    (b'[1,"Close",1,0,{"1":{"i32":2147483648}}]', 27, "to 2147483647, as i32"),
    (b'[1,"Close",1,0,{"1":{"i32":-2147483649}}]', 27, "from -2147483648 to "),
    (b'[1,"Close",1,0,{"9":{"i64":9223372036854775808}}]', 27, "to 9223372036854775807, as i64"),
    (b'[1,"Close",1,0,{"9":{"i64":99999999999999999999}}]', 27, "as i64"),
    (b'[1,"Close",1,0,{"1":{"i32":}}]', 27, "as i32"),
    (b'[1,"Close",1,0,{"1":{"i32":1.5}}]', 27, "as i32"),
    (b'[1,"Close",1,0,{"1":{"i32":"7"}}]', 27, "as i32"),
    (b'[1,"Close",1,0,{"1":{"i32":null}}]', 27, "as i32"),
    (b'[1,"Close",1,0,{"1":{"i32":007}}]', 27, "as i32"),
    (b'[1,"Close",1,0,{"9":{"i8":300},"9":{"i8":3}}]', 26, "as i8"),
    (b'[1,"Close",1,0,{"9":{"tf":2}}]', 26, "from 0 to 1, as tf"),
    (b'[1,"Close",1,0,{"9":{"tf":true}}]', 26, "as tf"),
    (b'[1,"Close",1,0,{"9":{"dbl":1e999}}]', 27, "this must be a dbl"),
    (b'[1,"Close",1,0,{"9":{"dbl":"nan"}}]', 27, "this must be a dbl"),
    (b'[1,"Close",1,0,{"9":{"dbl":"1.5"}}]', 27, "this must be a dbl"),
    (b'[1,"Close",1,0,{"9":{"dbl":NaN}}]', 27, "this must be a dbl"),
    (b'[1,"Close",1,0,{"9":{"map":["dbl","i8",1,{1.5:1}]}}]', 42, "this must be a dbl"),
    (b'[1,"Close",1,0,{"9":{"str":7}}]', 27, "this must be a str"),
    (b'[1,"Close",1,0,{"9":{"str":"\\ud800"}}]', 27, "this must be a str"),
    (b'[1,"Close",1,0,{"9":{"ixx":7}}]', 21, "this must be a type"),
    (b'[1,"Close",1,0,{"32768":{"i32":7}}]', 16, "to 32767, as i16"),
    (b'[1,"Close",1,0,{"x":{"i32":7}}]', 16, "as i16"),
    (b'[1,"Close",1,0,{"1":{"i32":7,"i32":8}}]', 28, "this field has the wrong number"),
    (b'[1,"Close",1,0,{"9":{"lst":["i8",2,1,300]}}]', 37, "as i8"),
    (b'[1,"Close",1,0,{"9":{"lst":["i8",3,1]}}]', 36, "this lst has the wrong number of values"),
    (b'[1,"Close",1,0,{"9":{"set":["i8",1,1,2]}}]', 36, "this set has the wrong number of values"),
    (b'[1,"Close",1,0,{"9":{"set":["i8",10001]}}]', 33, "to 10000, as number of elements"),
    (b'[1,"Close",1,0,{"9":{"map":["i8","str",1,{"300":"x"}]}}]', 42, "as i8"),
    (b'[1,"Close",1,0,{"9":{"map":["dbl","i8",1,{"nan":1}]}}]', 42, "this must be a dbl"),
    (b'[1,"Close",1,0,{"9":{"map":["str","i8",2,{"a":1}]}}]', 47, "this map has the wrong number"),
    (b'[1,"Close",1,0,{"9":{"map":["lst","i8",1,{"1":1}]}}]', 42, "this must be a lst"),
    (b'[1,"Close",1,0,{"1":{"i32":7}"2":{"i32":7}}]', 29, "this is not JSON"),
    (b'[1,"Close",1,0,{"1":{"i32":7},}]', 30, "as i16"),
    (b'[1,"Close",1,0,{"1" {"i32":7}}]', 19, "this is not JSON"),
    (b'[1,"Close",1,0,{"1":7}]', 20, "this must be a field"),
    (b'[1,"Close",1,0,{1:{"i32":7}}]', 16, "as i16"),
    (b'[1,"Close",1,0,{"1":{"i32": 7}}]', 27, "as i32"),
    (b'[1,"Close",1,0,{"9":{"rec":7}}]', 27, "this must be a rec"),
    (b'[1,"Close",1,0,{"9":{"lst":7}}]', 27, "this must be a lst"),
    (b'[1}', 2, "this message has the wrong number of values"),
    (b'[2,"Close",1,0,{}]', 1, "from 1 to 1, as version"),
    (b'[1,"Close",5,0,{}]', 11, "from 1 to 4, as message type"),
    (b'[1,"Close",1,4294967296,{}]', 13, "as sequence number"),
    (b'[1,"Close",1,0]', 14, "this message has the wrong number of values"),
    (b'[1,"Close",1,0,{},{}]', 17, "this message has the wrong number of values"),
    (b'{"0":{"i32":}}', 0, "this must be a message"),
    (b"HTTP/1.1 400", 0, "this must be a message"),
]


class JsonTest(ToolTest):
    def testWhatIsWrongInAMessageIsReportedWithItsOffset(self):
        for message, offset, reason in BROKEN:
            with self.subTest(message):
                status, out, err = tavctl("decode", "--protocol", "json", "--json", "--format",
                                          "raw", stdin=message)
                self.assertEqual(6, status, err)
                broken = json.loads(out)["broken"]
                self.assertEqual(offset, broken["offset"])
                self.assertIn(reason, broken["reason"])

    def testAReplyIsChecked(self):
        for result in ('{"0":{"i32":}}', '{"9":{"i8":300}}', '{"0":{"i32":2147483648}}'):
            with self.subTest(result):
                peer = saying(self, b'[1,"Close",2,0,%s]' % result.encode())
                self.assertErrorHas(6, "the peer sent something that is not a reply: this ",
                                    tavctl("call", peer.address, "TavEmp.Close", "--protocol", "json"))

    def testARequestIsCheckedAndOthersAreServed(self):
        server = start(self, "serve", "emp", "--protocol", "json")
        host, port = server.address().split(":")
        for message, _, reason in BROKEN:
            with self.subTest(message), socket.create_connection((host, int(port))) as connection:
                connection.settimeout(PATIENCE)
                connection.sendall(message)
                self.assertEqual(b"", self.all(connection))
                self.assertIn(reason, server.line("stderr"))
        self.assertEqual((0, "0\n", ""), tavctl("call", host + ":" + port, "TavEmp.Close",
                                                "--protocol", "json"))

    def all(self, connection):
        try:
            return connection.recv(4096)
        except ConnectionResetError:
            return b""

    def testPaddingInAFieldThatNobodyKnowsIsSkipped(self):
        server = start(self, "serve", "emp", "--protocol", "json", "--reply", "Close=3")
        host, port = server.address().split(":")
        with socket.create_connection((host, int(port))) as connection:
            connection.settimeout(PATIENCE)
            connection.sendall(b'[1,"Close",1,0,{"9":{"str":"=="}}]')
            self.assertEqual(b'[1,"Close",2,0,{"0":{"i32":3}}]', connection.recv(4096))

    def testWhatLibthriftWritesIsReadAsItIs(self):
        message = (b'[1,"x",1,-1,{"1":{"tf":1},"2":{"i8":-128},"3":{"i16":-32768},'
                   b'"4":{"i64":-9223372036854775808},"5":{"dbl":-1.5e-300},"6":{"dbl":"Infinity"},'
                   b'"7":{"str":"\xe4\\u0001\\\\\\"[{"},"8":{"rec":{"1":{"i32":7}}},'
                   b'"9":{"lst":["rec",2,{},{"1":{"i8":1}}]},"10":{"set":["str",1,"]"]},'
                   b'"11":{"map":["i16","lst",2,{"-1":["i8",0],"2":["i8",1,5]}]},'
                   b'"12":{"map":["dbl","tf",1,{"-Infinity":1}]}}]')
        status, out, err = tavctl("decode", "--protocol", "json", "--json", stdin=message)
        self.assertEqual((0, ""), (status, err))
        self.assertEqual(
            [True, -128, -32768, -9223372036854775808, -1.5e-300, {"hex": "7ff0000000000000"}, {"hex": "e4015c225b7b"},
             [{"id": 1, "type": "i32", "value": 7}], [[], [{"id": 1, "type": "byte", "value": 1}]],
             ["]"], [[-1, []], [2, [5]]], [[{"hex": "fff0000000000000"}, True]]],
            [field["value"] for field in json.loads(out)["fields"]])

    def testAnEmptyNameIsRead(self):
        self.assertEqual((0, " call seqid 0, 13 bytes at 0\n", ""),
                         tavctl("decode", "--protocol", "json", stdin=b'[1,"",1,0,{}]'))

    def testADoubleThatIsNotANumberIsRead(self):
        status, out, err = tavctl("decode", "--protocol", "json", "--json",
                                  stdin=b'[1,"x",1,0,{"1":{"dbl":"NaN"}}]')
        self.assertEqual((0, ""), (status, err))
        # Processors differ in its sign.
        self.assertRegex(json.loads(out)["fields"][0]["value"]["hex"], "^[7f]ff8000000000000$")

    def testNothingOfABrokenMessageIsKeptByASpy(self):
        file = os.path.join(self.directory(), "capture")
        peer = saying(self, b"")
        spy = start(self, "spy", "127.0.0.1:0", peer.address, "--write", file, "--protocol", "json")
        host, port = spy.address().split(":")
        with socket.create_connection((host, int(port))) as connection:
            connection.sendall(b'[1,"OpenEmp",1,0,{"3":{"str":"sesame"},"9":{"i8":300}}]')
            spy.line(), spy.line()
            self.assertIn("breaks at byte 49", spy.line())
        spy.signal(signal.SIGTERM)
        out = spy.wait()
        with open(file) as written:
            text = written.read()
        self.assertNotIn(b"sesame".hex(), text)
        self.assertNotIn("sesame", text + str(out))
        self.assertIn(b"*".hex() * 55, text)

    def testDepthIsLimited(self):
        """64 structures, each in a field of the one around it."""
        def nested(levels):
            return (b'[1,"x",1,0,' + levels * b'{"1":{"rec":' + b"{}" + levels * b"}}" + b"]")

        for levels, status in [(63, 0), (64, 0), (65, 6)]:
            with self.subTest(levels):
                self.assertEqual(status, tavctl("decode", "--protocol", "json",
                                                stdin=nested(levels))[0])


if __name__ == "__main__":
    unittest.main()
