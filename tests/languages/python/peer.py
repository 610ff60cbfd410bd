"""One side of a conversation between two languages, in Python.

Takes the same arguments and reports the same cases as cpp/peer.cpp, which says what
they are. The generated modules are found through PYTHONPATH.
"""

import sys
import threading

from TAV_IDL import TavBroker, TavEmp, TavEmpEvent
from TAV_IDL.ttypes import ConnectionInfo, ParamList
from thrift.protocol.TBinaryProtocol import TBinaryProtocolFactory
from thrift.protocol.TCompactProtocol import TCompactProtocolFactory
from thrift.protocol.TJSONProtocol import TJSONProtocolFactory
from thrift.protocol.TProtocol import TProtocolException
from thrift.server.TServer import TThreadedServer
from thrift.Thrift import TApplicationException, TMessageType
from thrift.transport.TSocket import TServerSocket, TSocket
from thrift.transport.TTransport import (
    TBufferedTransportFactory,
    TFramedTransportFactory,
    TTransportException,
)

PROTOCOLS = {
    "binary": TBinaryProtocolFactory,
    "compact": TCompactProtocolFactory,
    "json": TJSONProtocolFactory,
}
TRANSPORTS = {"buffered": TBufferedTransportFactory, "framed": TFramedTransportFactory}

LONG = "x" * 100000
WITH_NUL = "a\0b"


def byte_count(text):
    return str(len(text.encode("utf-8")))


# --- Serving side

events = []


class Broker(TavBroker.Iface):
    def OpenEmp(self, name, version, credential):
        if name == "none":
            raise RuntimeError("no such EMP: none")
        return ConnectionInfo(49801, -49802, "|".join([name, version, credential]))

    def Execute(self, fromPort, cmd, param1, param2, param3, param4):
        if cmd == "fail":
            raise RuntimeError("the broker cannot: fail")
        if cmd == "failwell":
            raise TApplicationException(5, "the broker cannot: failwell")
        answers = {
            "events": lambda: "|".join(events),
            "length": lambda: byte_count(param1),
            "long": lambda: LONG,
            "nul": lambda: WITH_NUL,
            "nothing": lambda: None,
        }
        if cmd in answers:
            return answers[cmd]()
        return "|".join([str(fromPort), cmd, param1, param2, param3, param4])

    def CloseEmp(self, connectionInfo):
        if connectionInfo.empID == "none":
            raise RuntimeError("no such EMP: none")
        return connectionInfo == ConnectionInfo(49801, -49802, "camera|2.1|key")


class Emp(TavEmp.Iface):
    def Open(self, clientID, name, version, credential):
        if clientID == -1:
            raise RuntimeError("no client -1")
        return [clientID, name, version, credential] == [2147483647, "camera", "2.1", "key"]

    def Close(self, clientID):
        if clientID == -1:
            raise RuntimeError("no client -1")
        return clientID - 10

    def Execute(self, clientID, cmd, param1, param2, param3, param4):
        if cmd == "fail":
            raise RuntimeError("the EMP cannot: fail")
        return "|".join([str(clientID), cmd, param1, param2, param3, param4])

    def ExecuteWithParamList(self, clientID, cmd, paramList):
        if cmd == "fail":
            raise RuntimeError("the EMP cannot: fail")
        params = [getattr(paramList, f"param{i}") for i in range(1, 11)]
        return "|".join([str(clientID), cmd, *params])


class Callbacks(TavEmpEvent.Iface):
    def Callback(self, eventType, param1, param2):
        events.append(f"{eventType}/{param1}/{param2}")
        if param1 == "fail":
            raise RuntimeError("nobody hears this")


class ListeningSocket(TServerSocket):
    """Listens before its server does, so that its port is known."""

    def __init__(self):
        super().__init__("127.0.0.1", 0)
        super().listen()

    def listen(self):
        pass

    def chosen_port(self):
        return self.handle.getsockname()[1]


def serve(protocol, transport):
    ports = []
    for processor in [
        TavBroker.Processor(Broker()),
        TavEmp.Processor(Emp()),
        TavEmpEvent.Processor(Callbacks()),
    ]:
        listening = ListeningSocket()
        ports.append(str(listening.chosen_port()))
        server = TThreadedServer(processor, listening, transport, protocol, daemon=True)
        threading.Thread(target=server.serve, daemon=True).start()
    print(*ports, flush=True)
    sys.stdin.read()


# --- Calling side


class Retyped:
    """A protocol that writes requests with another message type than the client's."""

    def __init__(self, protocol, message_type):
        self.protocol = protocol
        self.message_type = message_type

    def writeMessageBegin(self, name, _, seqid):
        self.protocol.writeMessageBegin(name, self.message_type, seqid)

    def __getattr__(self, name):
        return getattr(self.protocol, name)


def connection(wire, port):
    opened = TSocket("127.0.0.1", port)
    opened.setTimeout(10000)
    opened.open()
    return wire[0].getProtocol(wire[1].getTransport(opened))


def outcome_of(call):
    try:
        return call()
    except TApplicationException as failure:
        # Of these two the text is empty, and each language has its own words for that.
        if failure.type in (
            TApplicationException.INVALID_MESSAGE_TYPE,
            TApplicationException.WRONG_METHOD_NAME,
        ):
            return f"exception {failure.type}"
        return f"exception {failure.type}: {failure.message}"
    except TTransportException as failure:
        return "no answer" if failure.type == TTransportException.TIMED_OUT else "connection closed"
    except TProtocolException:
        return "broken message"
    except UnicodeDecodeError:
        return "UnicodeDecodeError"
    except ConnectionError:
        return "connection closed"


def report(what, call):
    print(f"{what} = {outcome_of(call)}", flush=True)


def opened(broker, name="camera"):
    info = broker.OpenEmp(name, "2.1", "key")
    return f"{info.callbackServicePort}|{info.empServicePort}|{info.empID}"


def closed(broker, callback_port, emp_port, emp_id):
    return str(broker.CloseEmp(ConnectionInfo(callback_port, emp_port, emp_id))).lower()


def executed(broker, command, param1=""):
    return broker.Execute(0, command, param1, "", "", "")


def executed_at_emp(emp, command):
    return emp.Execute(2147483647, command, "eins", "zwei", "drei", "vier")


def executed_with_list(emp, command):
    return emp.ExecuteWithParamList(5, command, ParamList(*"abcd", "", *"fghij"))


def call_broker(wire, port):
    broker = TavBroker.Client(connection(wire, port))
    report("OpenEmp", lambda: opened(broker))
    report("OpenEmp fails", lambda: opened(broker, "none"))
    report(
        "Execute at the broker",
        lambda: broker.Execute(-2147483648, "echo", "one", "", "Gr\u00fc\u00dfe \u20ac", '"four"\\'),
    )
    report("Execute at the broker fails", lambda: executed(broker, "fail"))
    report(
        "Execute fails with an application exception", lambda: executed(broker, "failwell")
    )
    report("CloseEmp", lambda: closed(broker, 49801, -49802, "camera|2.1|key"))
    report("CloseEmp, false", lambda: closed(broker, 0, 0, ""))
    report("CloseEmp fails", lambda: closed(broker, 0, 0, "none"))
    report("100000 bytes sent", lambda: executed(broker, "length", LONG))
    report("100000 bytes received", lambda: byte_count(executed(broker, "long")))
    report("NUL sent", lambda: executed(broker, "length", WITH_NUL))
    report("NUL received", lambda: byte_count(executed(broker, "nul")))


def call_emp(wire, port):
    emp = TavEmp.Client(connection(wire, port))

    def opens(client_id):
        return str(emp.Open(client_id, "camera", "2.1", "key")).lower()

    report("Open", lambda: opens(2147483647))
    report("Open, false", lambda: opens(0))
    report("Open fails", lambda: opens(-1))
    report("Close", lambda: emp.Close(3))
    report("Close, zero", lambda: emp.Close(10))
    report("Close fails", lambda: emp.Close(-1))
    report("Execute at the EMP", lambda: executed_at_emp(emp, "echo"))
    report("Execute at the EMP fails", lambda: executed_at_emp(emp, "fail"))
    report("ExecuteWithParamList", lambda: executed_with_list(emp, "echo"))
    report("ExecuteWithParamList fails", lambda: executed_with_list(emp, "fail"))


def call_event(wire, broker_port, event_port):
    broker = TavBroker.Client(connection(wire, broker_port))
    for what, sent in [
        ("Callback", [(3, "started", "Gr\u00fc\u00dfe"), (-1, "", ""), (4, "still", "here")]),
        ("Callback fails", [(0, "fail", "")]),
    ]:
        protocol = connection(wire, event_port)
        event = TavEmpEvent.Client(protocol)
        for parameters in sent:
            event.Callback(*parameters)
        misled = TavEmp.Client(protocol)
        report(what + ", then an unknown operation", lambda misled=misled: misled.Close(3))
        report(what, lambda: executed(broker, "events"))


def report_apart(what, wire, port, call, client_class, good_call):
    protocol = connection(wire, port)
    client = client_class(protocol)
    report(what, lambda: call(protocol))
    report(what + ", then", lambda: good_call(client))


def call_wrongly(wire, broker_port, emp_port, event_port):
    def open_as(message_type):
        return lambda protocol: opened(TavBroker.Client(protocol, Retyped(protocol, message_type)))

    def close_as(message_type):
        return lambda protocol: TavEmp.Client(protocol, Retyped(protocol, message_type)).Close(3)

    def at_broker(what, call):
        report_apart(what, wire, broker_port, call, TavBroker.Client, opened)

    def at_emp(what, call):
        report_apart(what, wire, emp_port, call, TavEmp.Client, lambda emp: emp.Close(3))

    at_broker("Unknown operation at the broker", close_as(TMessageType.CALL))
    at_emp("Unknown operation at the EMP", open_as(TMessageType.CALL))
    at_broker("T_ONEWAY request at the broker", open_as(TMessageType.ONEWAY))
    at_emp("T_ONEWAY request at the EMP", close_as(TMessageType.ONEWAY))
    at_broker("T_REPLY request at the broker", open_as(TMessageType.REPLY))
    at_emp("T_REPLY request at the EMP", close_as(TMessageType.REPLY))
    protocol = connection(wire, event_port)
    report(
        "T_REPLY request at the callback service",
        lambda: open_as(TMessageType.REPLY)(protocol),
    )

    at_broker("No result", lambda connected: executed(TavBroker.Client(connected), "nothing"))


def call_odd(wire, port):
    for command in [
        "otherseqid",
        "othertype",
        "othername",
        "unknownfield",
        "nosuccess",
        "othersuccess",
    ]:
        broker = TavBroker.Client(connection(wire, port))
        report(f"Reply: {command}", lambda: executed(broker, command))
        report(f"Reply: {command}, then", lambda: executed(broker, "good"))
    broker = TavBroker.Client(connection(wire, port))
    report(
        "Sequence ids sent",
        lambda: f"{executed(broker, 'tellseqid')}, {executed(broker, 'tellseqid')}",
    )
    report("Reply: notutf8", lambda: byte_count(executed(broker, "notutf8")))


def main(role, protocol, transport, *ports):
    wire = (PROTOCOLS[protocol](), TRANSPORTS[transport]())
    if role == "serve":
        serve(*wire)
        return
    broker, emp, event, *odd = map(int, ports)
    call_broker(wire, broker)
    call_emp(wire, emp)
    call_event(wire, broker, event)
    call_wrongly(wire, broker, emp, event)
    for port in odd:
        call_odd(wire, port)


main(*sys.argv[1:])
