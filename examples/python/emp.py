#!/usr/bin/env python3
"""An EMP in Python: the thermometer of examples/emp.cpp.

    TAV_CREDENTIAL=... emp.py EMPID PORT CALLBACKPORT

Writes a line to standard output once it serves, and ends when its standard input does.
"""

import os
import sys
import threading

from safe_thrift import SafeClient, serve
from TAV_IDL import TavEmp, TavEmpEvent
from thrift.Thrift import TApplicationException, TException
from thrift.transport.TTransport import TTransportException

TEMPERATURE_EVENT = 1


def failure(text):
    """An exception for the caller. For any other, the caller only gets "Internal error"."""
    return TApplicationException(TApplicationException.UNKNOWN, text)


class Thermometer(TavEmp.Iface):
    """Must be thread-safe: several threads call it."""

    def __init__(self, callback_port, credential):
        self.callback_port = callback_port
        self.credential = credential
        self.lock = threading.Lock()
        self.clients = {}  # How many commands each has run.

    def Open(self, clientID, name, version, credential):
        if [name, version, credential] != ["thermometer", "1.0", self.credential]:
            return False
        with self.lock:
            # The limit bounds the memory that callers can make this process use.
            if clientID not in self.clients and len(self.clients) == 100:
                return False
            self.clients.setdefault(clientID, 0)
            return True

    def Close(self, clientID):
        with self.lock:
            return self.clients.pop(clientID, 0)

    def Execute(self, clientID, cmd, param1, param2, param3, param4):
        self.count(clientID)
        if cmd == "read":
            return "21.5 C"
        if cmd == "watch":
            self.watch(param1)
            return f"watched {param1}"
        if cmd == "jam":
            # The only exception that the generated code lets through: it ends the connection.
            raise TTransportException(TTransportException.UNKNOWN, "jammed")
        raise failure(f"the thermometer has no command '{cmd}'")

    def ExecuteWithParamList(self, clientID, cmd, paramList):
        self.count(clientID)
        if cmd != "label":
            raise failure(f"the thermometer has no list command '{cmd}'")
        params = [getattr(paramList, f"param{i}") for i in range(1, 11)]
        return "/".join(filter(None, params))

    def count(self, clientID):
        with self.lock:
            if clientID not in self.clients:
                raise failure(f"client {clientID} has not called Open")
            self.clients[clientID] += 1

    def watch(self, what):
        """Reports three readings."""
        try:
            with SafeClient(TavEmpEvent.Client, self.callback_port) as events:
                for reading in ["21.5", "21.7", "21.6"]:
                    events.Callback(TEMPERATURE_EVENT, what, reading)
        except (TException, OSError) as lost:
            # Nobody receives it: the event is lost, and the command continues.
            print(f"failed to send an event: {lost}", file=sys.stderr)


def main():
    try:
        emp_id, port, callback_port = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
        credential = os.environ["TAV_CREDENTIAL"]
    except (IndexError, ValueError):
        sys.exit("usage: emp.py EMPID PORT CALLBACKPORT")
    except KeyError:
        sys.exit("emp.py: TAV_CREDENTIAL is not set")
    try:
        serve(TavEmp.Processor(Thermometer(callback_port, credential)), port)
    except OSError as refused:
        sys.exit(f"emp.py: {refused}")
    print(f"{emp_id} serves", flush=True)
    sys.stdin.read()  # Until the broker closes it, or has gone.


main()
