#!/usr/bin/env python3
"""Holds random conversations with the real processes, as a peer that was written from doc/wire.md
alone (see peer_encodings.py): as a client of the examples' broker and EMP and of `tavctl serve`, and as
a server for the EMP's events, `tavctl call` and `tavctl open`.

    python_peer.py BUILD [--runs=N] [--seed=N] [--first=N]

BUILD has the examples and tavctl. The seed and its number alone determine a conversation.
"""

import json
import math
import os
import random
import select
import socket
import struct
import subprocess
import sys
import tempfile

from peer_encodings import PROTOCOLS, Wire

CALL, REPLY, EXCEPTION, ONEWAY = 1, 2, 3, 4
UNKNOWN, UNKNOWN_METHOD, WRONG_TYPE, WRONG_NAME, NO_RESULT = 0, 1, 2, 3, 5
KINDS = {UNKNOWN: "UNKNOWN", UNKNOWN_METHOD: "UNKNOWN_METHOD", WRONG_TYPE: "INVALID_MESSAGE_TYPE",
         WRONG_NAME: "WRONG_METHOD_NAME", NO_RESULT: "MISSING_RESULT"}

INFO = (("callbackServicePort", "i32"), ("empServicePort", "i32"), ("empID", "str"))
LIST = tuple((f"param{number}", "str") for number in range(1, 11))
FOUR = tuple((f"param{number}", "str") for number in range(1, 5))
NAMED = (("name", "str"), ("version", "str"), ("credential", "str"))

# The arguments of each operation, with ids from 1, and its result. A tuple is a record.
SERVICES = {
    "TavBroker": {
        "OpenEmp": (NAMED, INFO),
        "Execute": ((("fromPort", "i32"), ("cmd", "str"), *FOUR), "str"),
        "CloseEmp": ((("connectionInfo", INFO),), "tf"),
    },
    "TavEmp": {
        "Open": ((("clientID", "i32"), *NAMED), "tf"),
        "Close": ((("clientID", "i32"),), "i32"),
        "Execute": ((("clientID", "i32"), ("cmd", "str"), *FOUR), "str"),
        "ExecuteWithParamList": ((("clientID", "i32"), ("cmd", "str"), ("paramList", LIST)), "str"),
    },
    "TavEmpEvent": {
        "Callback": ((("eventType", "i32"), ("param1", "str"), ("param2", "str")), None),
    },
}
SERVED = {"TavBroker": "broker", "TavEmp": "emp", "TavEmpEvent": "event"}

# No wait should take this long: a conversation that does so fails.
PATIENCE = 60
# A server gives the same answers for this many conversations.
CONVERSATIONS_OF_A_SERVER = 200
CREDENTIAL = "swordfish"


class Wrong(Exception):
    pass


def expect(what, found, expected):
    if found != expected:
        raise Wrong(f"{what}: {found!r}, not {expected!r}")


def wire_type(kind):
    return "rec" if isinstance(kind, tuple) else kind


# Values.

def random_i32(dice):
    return dice.choice((0, 1, -1, 63, 64, -64, -65, 127, 128, 8191, 8192, 2**31 - 1, -2**31,
                        dice.randint(-2**31, 2**31 - 1), dice.randint(-1000, 1000)))


def random_text(dice):
    """Unicode without NUL, as a JSON string has to be."""
    length = dice.choice((0, 1, 3, 10, 14, 15, 16, 127, 128, dice.randint(0, 300)))
    if dice.random() < 0.01:
        length = dice.choice((4096, 16384, dice.randint(1000, 20000)))
    characters = dice.choice(("ab C/:=", "\1\b\f\n\r\t\x1f \"\\/{}[],:\x7f", "aä€\U0001f600\ud7ff"))
    return "".join(dice.choices(characters, k=length)).encode()


def random_string(dice, protocol):
    if protocol != "json" and dice.random() < 0.3:
        return dice.randbytes(dice.randint(0, 40))
    return random_text(dice)


def random_value(dice, kind, protocol, depth=0):
    """A value of one of the eleven types, or of a record of the services."""
    if isinstance(kind, tuple):
        return [(number, wire_type(of), random_value(dice, of, protocol))
                for number, (_, of) in enumerate(kind, 1)]
    if kind == "tf":
        return dice.random() < 0.5
    if kind == "i32":
        return random_i32(dice)
    if kind in ("i8", "i16", "i64"):
        half = {"i8": 2**7, "i16": 2**15, "i64": 2**63}[kind]
        return dice.choice((0, half - 1, -half, dice.randint(-half, half - 1)))
    if kind == "dbl":
        return dice.choice((0.0, -1.5, 1e300, 5e-324, math.inf, -math.inf, math.nan,
                            dice.uniform(-1e6, 1e6)))
    if kind == "str":
        return random_string(dice, protocol)
    count = dice.choice((0, 1, 2, 3, 14, 15, 20)) if depth < 2 else dice.randint(0, 2)
    if kind == "rec":
        return random_fields(dice, protocol, count, depth + 1)
    of = random_type(dice, depth)
    if kind == "map":
        keys = dice.choice(("tf", "i8", "i16", "i32", "i64", "dbl", "str"))
        return keys, of, [(random_value(dice, keys, protocol, depth + 1),
                           random_value(dice, of, protocol, depth + 1)) for _ in range(count)]
    return of, [random_value(dice, of, protocol, depth + 1) for _ in range(count)]


def random_type(dice, depth):
    simple = ("tf", "i8", "i16", "i32", "i64", "dbl", "str")
    return dice.choice(simple if depth > 3 else simple + ("rec", "map", "set", "lst"))


def random_fields(dice, protocol, count, depth=0, wanted=()):
    """Fields that a reader of the ids and types `wanted` has to skip."""
    fields = []
    while len(fields) < count:
        number = dice.choice((0, 1, 2, 7, 16, 17, -1, 2**15 - 1, -2**15,
                              dice.randint(-2**15, 2**15 - 1)))
        kind = random_type(dice, depth)
        # libthrift refuses ids below 0 in JSON.
        if (number, kind) not in wanted and (number >= 0 or protocol != "json"):
            fields.append((number, kind, random_value(dice, kind, protocol, depth)))
    return fields


def stirred(dice, record, protocol):
    """The record as another peer might write it: with unknown fields, fields missing, twice or in
    another order, in its records, too."""
    if dice.random() < 0.5:
        return record
    wanted = [(number, kind) for number, kind, _ in record]
    fields = [field for field in record if dice.random() < 0.8]
    if fields and dice.random() < 0.3:
        number, kind, value = dice.choice(fields)
        if kind != "rec":
            value = random_value(dice, kind, protocol)
        fields.append((number, kind, value))
    fields = [(number, kind, stirred(dice, value, protocol) if kind == "rec" else value)
              for number, kind, value in fields]
    fields += random_fields(dice, protocol, dice.randint(0, 3), 0, wanted)
    if dice.random() < 0.5:
        dice.shuffle(fields)
    return fields


def as_read(fields, expected, values=None):
    """What a reader makes of the fields: the values by name."""
    values = {} if values is None else values
    for name, kind in expected:
        values.setdefault(name, as_read([], kind) if isinstance(kind, tuple)
                          else {"i32": 0, "tf": False, "str": b""}[kind])
    for number, kind, value in fields:
        if 1 <= number <= len(expected):
            name, of = expected[number - 1]
            if wire_type(of) == kind:
                values[name] = as_read(value, of, values[name]) if kind == "rec" else value
    return values


def record_of(values, expected):
    """The fields of the values, as they must be written."""
    return [(number, wire_type(kind),
             record_of(values[name], kind) if isinstance(kind, tuple) else values[name])
            for number, (name, kind) in enumerate(expected, 1)]


def shown(value):
    """As tavctl prints it."""
    if isinstance(value, dict):
        return {name: "***" if name == "credential" else shown(each)
                for name, each in value.items()}
    if isinstance(value, bytes):
        try:
            return value.decode()
        except UnicodeDecodeError:
            return {"hex": value.hex()}
    return value


def failure(text, kind):
    return [(1, "str", text), (2, "i32", kind)]


def not_a(kind, protocol):
    """Types of messages that are not a call, or not a reply. In JSON tavctl refuses others."""
    return ((REPLY, EXCEPTION) if kind == CALL else (CALL, ONEWAY)) + (
        () if protocol == "json" else (0, 5, 6, 7))


# The processes.

class Lines:
    """A process, and the lines of its output."""

    def __init__(self, command, stderr=subprocess.DEVNULL):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=stderr, bufsize=0,
            env={**os.environ, "TAV_CREDENTIAL": CREDENTIAL})
        self.unread = {self.process.stdout: b"", self.process.stderr: b""}

    def line(self):
        """The next line of its output. Notes are read, too: it must never wait for that."""
        line = self.line_of(self.process.stdout)
        self.unread[self.process.stderr] = b""
        return line

    def note(self):
        return self.line_of(self.process.stderr)

    def line_of(self, stream):
        streams = [each for each in self.unread if each is not None]
        while b"\n" not in self.unread[stream]:
            ready = select.select(streams, [], [], PATIENCE)[0]
            if not ready:
                raise Wrong("there is no line of output")
            for each in ready:
                more = os.read(each.fileno(), 65536)
                if not more:
                    raise Wrong(f"the output ends with {self.unread[each]!r}")
                self.unread[each] += more
        line, self.unread[stream] = self.unread[stream].split(b"\n", 1)
        return line.decode()

    def end(self):
        """Ends it with a signal, and checks that it printed nothing more."""
        self.process.terminate()
        out, _ = self.process.communicate(timeout=PATIENCE)
        expect("what is left of the output", self.unread[self.process.stdout] + out, b"")
        expect("the status after SIGTERM", self.process.returncode, 0)

    def kill(self):
        """Ends it at once. Returns what it had noted."""
        self.process.kill()
        return (self.process.communicate()[1] or b"").decode()


class Served:
    """`tavctl serve`, with random answers."""

    def __init__(self, peer, service, protocol, framed, dice):
        self.service, self.protocol, self.framed = service, protocol, framed
        self.path = os.path.join(peer.folder, f"{service}-{protocol}-{framed}")
        self.answers, options = {}, []
        for operation, (_, result) in SERVICES[service].items():
            how = dice.choice(("default", "reply", "fail")) if result else "default"
            if how == "fail":
                # Not empty: libthrift has its own text for that. No NUL: it is an argument.
                text = (random_text(dice).replace(b"\0", b"")[:2000].decode(errors="ignore") or "no")
                self.answers[operation] = text
                options += ["--fail", f"{operation}={text}"]
            elif how == "reply":
                if isinstance(result, tuple):
                    value = as_read(random_value(dice, result, "json"), result)
                    text = json.dumps(shown(value))
                elif result == "str":
                    value = random_text(dice).replace(b"\0", b"")
                    text = value.decode()
                else:
                    value = random_value(dice, result, "json")
                    text = json.dumps(value)
                self.answers[operation] = value
                options += ["--reply", f"{operation}={text}"]
        self.lines = Lines([peer.tavctl, "serve", SERVED[service], "--json", "--protocol", protocol,
                            "--transport", "framed" if framed else "buffered",
                            "--listen", "unix:" + self.path, *options], subprocess.PIPE)
        self.lines.note()  # it is ready

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(PATIENCE)
        connection.connect(self.path)
        return connection

    def expected(self, operation):
        """The type of the answer to a call, and its record."""
        result = SERVICES[self.service][operation][1]
        answer = self.answers.get(operation)
        if isinstance(answer, str):
            return EXCEPTION, failure(answer.encode(), UNKNOWN)
        if isinstance(result, tuple):
            return REPLY, [(0, "rec", record_of(answer or as_read([], result), result))]
        if answer is None:
            answer = {"str": b"", "i32": 0, "tf": False}[result]
        return REPLY, [(0, result, answer)]


class Emp:
    """An EMP that the examples' broker has opened, and its events."""

    def __init__(self, peer):
        self.info = peer.ask_broker("OpenEmp", [(1, "str", b"thermometer"), (2, "str", b"1.0"),
                                                (3, "str", CREDENTIAL.encode())])
        expect("the type of the reply to OpenEmp", self.info[1], REPLY)
        [(_, _, self.info)] = self.info[3]
        self.values = as_read(self.info, INFO)
        self.listening = socket.create_server(("127.0.0.1", self.values["callbackServicePort"]))
        self.listening.settimeout(PATIENCE)
        self.events = None

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", self.values["empServicePort"]))
        connection.settimeout(PATIENCE)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return connection

    def event(self):
        if self.events is None:
            connection, _ = self.listening.accept()
            connection.settimeout(PATIENCE)
            self.events = Wire(connection, "binary", False)
        return self.events.receive()

    def close(self):
        self.listening.close()
        if self.events is not None:
            self.events.connection.close()


class Peer:
    def __init__(self, build, seed):
        self.seed = seed
        self.folder = tempfile.mkdtemp()
        self.tavctl = os.path.join(build, "tools/tavctl/tavctl")
        self.examples = os.path.join(build, "examples")
        self.servers = {}
        self.broker = self.broker_address = self.emp = self.period = None

    # Starting and ending processes.

    def begin_period(self, number):
        """From time to time, starts other servers with other answers."""
        period = number // CONVERSATIONS_OF_A_SERVER
        if period != self.period:
            self.end(good=True)
            self.period = period

    def server(self, service, protocol, framed):
        key = service, protocol, framed
        if key not in self.servers:
            dice = random.Random(f"{self.seed}/server/{self.period}/{key}")
            self.servers[key] = Served(self, *key, dice)
        return self.servers[key]

    def start_emp(self):
        if self.broker is None:
            self.broker = Lines([os.path.join(self.examples, "broker")])
            self.broker_address = "127.0.0.1", int(self.broker.line())
        if self.emp is None:
            self.emp = Emp(self)

    def ask_broker(self, operation, arguments):
        with socket.create_connection(self.broker_address, PATIENCE) as connection:
            wire = Wire(connection, "binary", False)
            wire.send((operation.encode(), CALL, 0, arguments))
            return wire.receive()

    def end(self, good):
        """Ends all processes; after a failure, without looking at how they end."""
        servers, self.servers = self.servers, {}
        emp, self.emp, broker, self.broker = self.emp, None, self.broker, None
        try:
            if good and emp:
                closed = self.ask_broker("CloseEmp", [(1, "rec", emp.info)])
                expect("CloseEmp", closed, (b"CloseEmp", REPLY, 0, [(0, "tf", True)]))
                emp.close()
            if good:
                for process in [each.lines for each in servers.values()] + [broker] * bool(broker):
                    process.end()
        finally:
            for process in [each.lines for each in servers.values()] + [broker] * bool(broker):
                notes = process.kill()
                if not good:
                    print(notes[-500:], end="")

    # Conversations.

    def converse(self, number):
        dice = random.Random(f"{self.seed}/{number}")
        self.begin_period(number)
        draw = dice.random()
        if draw < 0.006:
            self.called(dice)
        elif draw < 0.01:
            self.opened(dice)
        elif draw < 0.1:
            self.with_examples(dice)
        else:
            self.with_server(dice)

    def with_server(self, dice):
        """This side calls `tavctl serve`."""
        protocol = dice.choice(list(PROTOCOLS))
        server = self.server(dice.choice(list(SERVICES)), protocol, dice.random() < 0.5)
        with server.connect() as connection:
            wire = Wire(connection, protocol, server.framed)
            for _ in range(dice.randint(1, 6)):
                draw = dice.random()
                if draw < 0.7:
                    self.call(dice, wire, server)
                elif draw < 0.85:
                    self.call_unknown(dice, wire, server)
                else:
                    self.send_no_call(dice, wire, server)
            if dice.random() < 0.2:
                self.break_off(dice, wire, server)

    def send_in_pieces(self, dice, connection, written):
        if dice.random() < 0.1:
            cut = dice.randrange(len(written))
            connection.sendall(written[:cut])
            written = written[cut:]
        connection.sendall(written)

    def request(self, dice, server):
        """A request of the service, with its operation and its arguments as sent."""
        operation = dice.choice(list(SERVICES[server.service]))
        arguments = random_value(dice, SERVICES[server.service][operation][0], server.protocol)
        arguments = stirred(dice, arguments, server.protocol)
        kind = ONEWAY if dice.random() < 0.2 else CALL
        return operation, (operation.encode(), kind, random_i32(dice), arguments)

    def call(self, dice, wire, server):
        operation, message = self.request(dice, server)
        self.send_in_pieces(dice, wire.connection, wire.packed(message))
        accepted, result = SERVICES[server.service][operation]
        # It prints the call before it answers, and waits until that is read.
        expect(f"what the handler of {operation} got", json.loads(server.lines.line()),
               {"operation": f"{server.service}.{operation}",
                "arguments": shown(as_read(message[3], accepted))})
        if result is not None:
            kind, record = server.expected(operation)
            expect(f"the answer to {operation}", wire.receive(),
                   (message[0], kind, message[2], record))

    def call_unknown(self, dice, wire, server):
        names = [b"", b"execute", b"Exec", b"Execute ", b"TavBroker:OpenEmp",
                 b"Execute\1" if server.protocol == "json" else b"Execute\0",
                 random_string(dice, server.protocol)]
        names += [each.encode() for service in SERVICES for each in SERVICES[service]]
        name = dice.choice(names)
        if name.decode(errors="replace") in SERVICES[server.service]:
            return
        seqid = random_i32(dice)
        wire.send((name, dice.choice((CALL, ONEWAY)), seqid,
                   random_fields(dice, server.protocol, dice.randint(0, 3))))
        expect(f"the answer to {name!r}", wire.receive(),
               (name, EXCEPTION, seqid,
                failure(b"Invalid method name: '" + name + b"'", UNKNOWN_METHOD)))

    def send_no_call(self, dice, wire, server):
        _, (name, _, seqid, arguments) = self.request(dice, server)
        wire.send((name, dice.choice(not_a(CALL, server.protocol)), seqid, arguments))
        expect(f"the answer to a {name!r} that is not a call", wire.receive(),
               (name, EXCEPTION, seqid, failure(b"", WRONG_TYPE)))

    def break_off(self, dice, wire, server):
        """Sends a part of a message, and nothing after it."""
        written = wire.packed(self.request(dice, server)[1])
        wire.connection.sendall(written[:dice.randrange(len(written))])
        wire.connection.shutdown(socket.SHUT_WR)
        expect("the connection has ended after a part of a message", wire.ended(), True)

    def with_examples(self, dice):
        """This side calls the examples' broker and its EMP, and gets the EMP's events."""
        self.start_emp()
        if dice.random() < 0.2:
            self.with_broker(dice)
            return
        client, count = random_i32(dice), None
        with self.emp.connect() as connection:
            wire = Wire(connection, "binary", False)
            for _ in range(dice.randint(1, 8)):
                count = self.use_emp(dice, wire, client, count)
            expect("Close", self.ask(wire, "Close", [(1, "i32", client)]),
                   (REPLY, [(0, "i32", count or 0)]))
            if dice.random() < 0.2:
                expect("Open", self.open_emp(wire, client, CREDENTIAL), True)
                wire.send((b"Execute", CALL, 0, [(1, "i32", client), (2, "str", b"jam")]))
                expect("the connection has ended after `throw 7`", wire.ended(), True)
                with self.emp.connect() as other:
                    expect("Close after `throw 7`",
                           self.ask(Wire(other, "binary", False), "Close", [(1, "i32", client)]),
                           (REPLY, [(0, "i32", 1)]))

    def ask(self, wire, operation, arguments):
        wire.send((operation.encode(), CALL, 0, arguments))
        name, kind, seqid, record = wire.receive()
        expect("the header of a reply", (name, seqid), (operation.encode(), 0))
        return kind, record

    def open_emp(self, wire, client, credential):
        kind, record = self.ask(wire, "Open", [(1, "i32", client), (2, "str", b"thermometer"),
                                               (3, "str", b"1.0"), (4, "str", credential.encode())])
        expect("the type of the reply to Open", kind, REPLY)
        [(_, _, good)] = record
        return good

    def use_emp(self, dice, wire, client, count):
        """One call of the thermometer. Returns how many commands the client has run; None if it is
        not open."""
        command = dice.choice(("Open", "wrong", "read", "watch", "label", "unknown"))
        if command in ("Open", "wrong"):
            good = command == "Open"
            expect(command, self.open_emp(wire, client, CREDENTIAL if good else "guessed"), good)
            return (count or 0) if good else count
        text = random_text(dice)
        listed = [random_string(dice, "binary") for _ in range(10)]
        if command == "label":
            answer = self.ask(wire, "ExecuteWithParamList", [
                (1, "i32", client), (2, "str", b"label"),
                (3, "rec", [(at, "str", each) for at, each in enumerate(listed, 1)])])
        else:
            wire.send((b"Execute", CALL, 0,
                       [(1, "i32", client), (2, "str", command.encode()), (3, "str", text)] +
                       random_fields(dice, "binary", dice.randint(0, 2), 0,
                                     [(at, "i32" if at == 1 else "str") for at in range(1, 7)])))
            if command == "watch" and count is not None:
                for reading in (b"21.5", b"21.7", b"21.6"):
                    expect("an event", self.emp.event(),
                           (b"Callback", CALL, 0,
                            [(1, "i32", 1), (2, "str", text), (3, "str", reading)]))
            answer = wire.receive()[1::2]
        if count is None:
            expect("the answer without Open", answer,
                   (EXCEPTION, failure(f"client {client} has not called Open".encode(), UNKNOWN)))
            return None
        expected = {
            "read": (REPLY, [(0, "str", b"21.5 C")]),
            "watch": (REPLY, [(0, "str", b"watched " + text)]),
            "label": (REPLY, [(0, "str", b"/".join(filter(None, listed)))]),
            "unknown": (EXCEPTION, failure(b"the thermometer has no command 'unknown'", UNKNOWN)),
        }
        expect(f"the answer to {command}", answer, expected[command])
        return count + 1

    def with_broker(self, dice):
        info = self.emp.values
        port = random_i32(dice)
        text = random_string(dice, "binary")
        calls = [
            ("Execute", [(1, "i32", info["callbackServicePort"]), (2, "str", b"name")],
             (REPLY, [(0, "str", info["empID"] + b" is a thermometer")])),
            ("Execute", [(1, "i32", info["callbackServicePort"]), (2, "str", text)],
             (EXCEPTION, failure(b"the broker has no command '" + text + b"'", UNKNOWN))),
            ("Execute", [(1, "i32", -1)],
             (EXCEPTION, failure(b"no EMP is open for port -1", UNKNOWN))),
            ("OpenEmp", [(1, "str", b"baro" + text)],
             (EXCEPTION, failure(b"there is no EMP 'baro" + text + b"'", UNKNOWN))),
            ("OpenEmp", [(1, "str", b"thermometer"), (2, "str", b"1.0")],
             (EXCEPTION, failure(b"wrong credential for 'thermometer'", UNKNOWN))),
            ("CloseEmp", [(1, "rec", [(1, "i32", port), (3, "str", b"x" + text)])],
             (REPLY, [(0, "tf", False)])),
        ]
        # What a handler throws is text up to a NUL.
        calls = [each for each in calls if each[2][0] == REPLY or b"\0" not in each[2][1][0][2]]
        with socket.create_connection(self.broker_address, PATIENCE) as connection:
            wire = Wire(connection, "binary", False)
            for operation, arguments, answer in dice.choices(calls, k=dice.randint(1, 4)):
                expect(f"the broker's answer to {operation}",
                       self.ask(wire, operation, arguments), answer)

    # This side serves.

    def listen(self):
        listening = socket.create_server(("127.0.0.1", 0))
        listening.settimeout(PATIENCE)
        return listening

    def accept(self, listening, protocol, framed):
        connection, _ = listening.accept()
        connection.settimeout(PATIENCE)
        return Wire(connection, protocol, framed)

    def called(self, dice):
        """`tavctl call` calls this side, which answers correctly or not."""
        protocol, framed = dice.choice(list(PROTOCOLS)), dice.random() < 0.5
        service = dice.choice(list(SERVICES))
        operation = dice.choice(list(SERVICES[service]))
        accepted, result = SERVICES[service][operation]
        arguments = random_value(dice, accepted, "json")
        given = as_read(arguments, accepted)
        given.pop("credential", None)
        with self.listen() as listening:
            address = "127.0.0.1:%d" % listening.getsockname()[1]
            with subprocess.Popen(
                    [self.tavctl, "call", address, f"{service}.{operation}", "-", "--json",
                     "--protocol", protocol, "--transport", "framed" if framed else "buffered"],
                    stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                    env={**os.environ, "TAV_CREDENTIAL": CREDENTIAL}) as process:
                try:
                    process.stdin.write(json.dumps(shown(given)).encode())
                    process.stdin.close()
                    process.stdin = None
                    wire = self.accept(listening, protocol, framed)
                    with wire.connection:
                        sent = [(number, kind, CREDENTIAL.encode())
                                if accepted[number - 1][0] == "credential" else
                                (number, kind, value) for number, kind, value in arguments]
                        expect("a request", wire.receive(), (operation.encode(), CALL, 0, sent))
                        status, expected = 0, {"operation": f"{service}.{operation}",
                                               "result": None}
                        if result is not None:
                            status, expected = self.answer(dice, wire, protocol, operation, result,
                                                           expected)
                        out, err = process.communicate(timeout=PATIENCE)
                finally:
                    process.kill()
        expect("the status of tavctl call", (process.returncode, err if status in (0, 6) else b""),
               (status, err if status == 6 else b""))
        if status == 0:
            expect("what tavctl prints", json.loads(out), expected)
        elif status == 5:
            expect("what tavctl prints", json.loads(err).get("exception"), expected)

    def answer(self, dice, wire, protocol, operation, result, good):
        """Answers a request. Returns the status that tavctl must end with, and what it must
        print."""
        name, seqid = operation.encode(), random_i32(dice)
        value = random_value(dice, result, protocol)
        wanted = [(0, wire_type(result))]
        noise = random_fields(dice, protocol, dice.randint(0, 3), 0, wanted)
        how = dice.choice(("good", "good", "refused", "not a reply", "another name", "no result",
                           "cut"))
        if how == "refused":
            text = random_text(dice)[:900].decode(errors="ignore").encode() or b"no"
            kind = dice.choice(list(KINDS))
            wire.send((dice.choice((name, b"", b"Another")), EXCEPTION, seqid,
                       stirred_failure(dice, failure(text, kind), protocol)))
            return 5, {"kind": KINDS[kind], "text": text.decode()}
        if how == "not a reply":
            wire.send((name, dice.choice(not_a(REPLY, protocol)), seqid, noise))
            return 6, None
        if how == "another name":
            wire.send((name + b"s", REPLY, seqid, noise + [(0, wire_type(result), value)]))
            return 6, None
        if how == "no result":
            wire.send((name, REPLY, seqid, noise))
            return 6, None
        fields = [(0, wire_type(result),
                   stirred(dice, value, protocol) if isinstance(result, tuple) else value)]
        if how == "cut":
            written = wire.packed((name, REPLY, seqid, fields))
            wire.connection.sendall(written[:dice.randrange(len(written))])
            wire.connection.shutdown(socket.SHUT_WR)
            return 6, None
        fields = noise + fields + random_fields(dice, protocol, dice.randint(0, 2), 0, wanted)
        wire.send((name, REPLY, seqid, fields))
        good["result"] = shown(as_read(fields[len(noise)][2], result)
                               if isinstance(result, tuple) else value)
        return 0, good

    def opened(self, dice):
        """`tavctl open` gets an EMP from this side, calls it, and gets events."""
        protocol, framed = dice.choice(list(PROTOCOLS)), dice.random() < 0.5
        steps = []
        for _ in range(dice.randint(1, 12)):
            operation = dice.choice(("Close", "Execute", "ExecuteWithParamList"))
            accepted, result = SERVICES["TavEmp"][operation]
            arguments = random_value(dice, accepted, "json")
            steps.append((operation, arguments, random_value(dice, result, protocol)))
        words = []
        for operation, arguments, _ in steps:
            words += ["--run", operation] + self.words(arguments, SERVICES["TavEmp"][operation][0])
        if any("\0" in word for word in words) or sum(map(len, words)) > 50000:
            return
        with self.listen() as broker, self.listen() as emp, self.listen() as reserved:
            callback_port = reserved.getsockname()[1]
            reserved.close()
            process = Lines([self.tavctl, "open", "127.0.0.1:%d" % broker.getsockname()[1],
                             "camera", "1.0", "--json", "--protocol", protocol, "--transport",
                             "framed" if framed else "buffered", *words])
            try:
                info = {"callbackServicePort": callback_port,
                        "empServicePort": emp.getsockname()[1], "empID": b"camera-1"}
                opening = self.accept(broker, protocol, framed)
                expect("OpenEmp", opening.receive(),
                       (b"OpenEmp", CALL, 0, [(1, "str", b"camera"), (2, "str", b"1.0"),
                                              (3, "str", CREDENTIAL.encode())]))
                opening.send((b"OpenEmp", REPLY, 0, [(0, "rec", record_of(info, INFO))]))
                expect("what tavctl prints", json.loads(process.line()),
                       {"operation": "TavBroker.OpenEmp", "result": shown(info)})
                events = Wire(socket.create_connection(("127.0.0.1", callback_port), PATIENCE),
                              protocol, framed)
                calls = self.accept(emp, protocol, framed)
                for operation, arguments, result in steps:
                    expect("a request", calls.receive(),
                           (operation.encode(), CALL, 0, arguments))
                    for _ in range(dice.randint(0, 2)):
                        self.send_event(dice, events, protocol, process)
                    kind = SERVICES["TavEmp"][operation][1]
                    calls.send((operation.encode(), REPLY, 0, [(0, kind, result)]))
                    expect("what tavctl prints", json.loads(process.line()),
                           {"operation": "TavEmp." + operation, "result": shown(result)})
                events.connection.close()
                expect("CloseEmp", opening.receive(),
                       (b"CloseEmp", CALL, 0, [(1, "rec", record_of(info, INFO))]))
                opening.send((b"CloseEmp", REPLY, 0, [(0, "tf", True)]))
                expect("what tavctl prints", json.loads(process.line()),
                       {"operation": "TavBroker.CloseEmp", "result": True})
                process.process.communicate(timeout=PATIENCE)
                expect("the status of tavctl open", process.process.returncode, 0)
                opening.connection.close()
                calls.connection.close()
            finally:
                process.kill()

    def words(self, fields, expected, prefix=""):
        """Arguments as they are written on the command line."""
        words = []
        for (_, kind, value), (name, of) in zip(fields, expected):
            if kind == "rec":
                words += self.words(value, of, prefix + name + ".")
            else:
                words.append(f"{prefix}{name}={value if kind == 'i32' else value.decode()}")
        return words

    def send_event(self, dice, events, protocol, process):
        arguments = SERVICES["TavEmpEvent"]["Callback"][0]
        fields = stirred(dice, random_value(dice, arguments, protocol), protocol)
        events.send((b"Callback", dice.choice((CALL, ONEWAY)), random_i32(dice), fields))
        printed = json.loads(process.line())
        del printed["time"]
        expect("an event", printed, {"event": shown(as_read(fields, arguments))})


def stirred_failure(dice, fields, protocol):
    """A failure with unknown fields."""
    return fields + random_fields(dice, protocol, dice.randint(0, 2), 0,
                                  [(1, "str"), (2, "i32")])


def main():
    build, *words = sys.argv[1:] or [None]
    options = dict(word.lstrip("-").split("=", 1) for word in words if "=" in word)
    if build is None or len(options) != len(words) or set(options) - {"runs", "seed", "first"}:
        sys.exit(__doc__)
    runs, first = int(options.get("runs", 10000)), int(options.get("first", 0))
    seed = int(options.get("seed", struct.unpack("I", os.urandom(4))[0]))
    print(f"seed {seed}", flush=True)
    peer, failures, done = Peer(build, seed), 0, 0
    for number in range(first, first + runs):
        done += 1
        try:
            peer.converse(number)
        except Exception as wrong:
            failures += 1
            print(f"FAILED: {type(wrong).__name__}: {str(wrong)[:2000]}\n"
                  f"  {sys.argv[0]} {build} --seed={seed} --first={number} --runs=1", flush=True)
            peer.end(good=False)
            if failures == 20:
                break
    try:
        peer.end(good=True)
    except Exception as wrong:
        failures += 1
        print(f"FAILED: {wrong}\n  {sys.argv[0]} {build} --seed={seed} --first={first} --runs={runs}")
    print(f"proof: {done} runs, {failures} failures")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
