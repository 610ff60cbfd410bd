#!/usr/bin/env python3
"""A program in Python: has the broker open an EMP, calls it, receives its events and closes it.

    TAV_CREDENTIAL=... program.py BROKERPORT
"""

import os
import queue
import sys

from safe_thrift import SafeClient, serve
from TAV_IDL import TavBroker, TavEmp, TavEmpEvent
from TAV_IDL.ttypes import ParamList
from thrift.Thrift import TApplicationException, TException

CLIENT = 7


class Callbacks(TavEmpEvent.Iface):
    """Receives events in the server's threads, for the main thread."""

    def __init__(self):
        self.events = queue.Queue(maxsize=1000)

    def Callback(self, eventType, param1, param2):
        self.events.put_nowait((eventType, param1, param2))


def use(emp, credential, callbacks):
    print("Open:", emp.Open(CLIENT, "thermometer", "1.0", credential))
    print("read:", emp.Execute(CLIENT, "read", "", "", "", ""))
    label = ParamList(*["kitchen", "window"], *[""] * 7, "north")
    print("label:", emp.ExecuteWithParamList(CLIENT, "label", label))
    print("watch:", emp.Execute(CLIENT, "watch", "kitchen", "", "", ""))
    for _ in range(3):
        print("event:", *callbacks.events.get(timeout=5))
    try:
        emp.Execute(CLIENT, "fly", "", "", "", "")
    except TApplicationException as refused:
        print("fly:", refused.message)
    print("Close:", emp.Close(CLIENT))


def main():
    try:
        port = int(sys.argv[1])
        credential = os.environ["TAV_CREDENTIAL"]
    except (IndexError, ValueError):
        sys.exit("usage: program.py BROKERPORT")
    except KeyError:
        sys.exit("program.py: TAV_CREDENTIAL is not set")
    try:
        with SafeClient(TavBroker.Client, port) as broker:
            info = broker.OpenEmp("thermometer", "1.0", credential)
            print("OpenEmp:", info.empID)
            try:
                # The EMP sends events to the port that the broker has given to both sides.
                callbacks = Callbacks()
                serve(TavEmpEvent.Processor(callbacks), info.callbackServicePort)
                with SafeClient(TavEmp.Client, info.empServicePort) as emp:
                    use(emp, credential, callbacks)
            finally:
                print("CloseEmp:", broker.CloseEmp(info))
    except (TException, OSError, queue.Empty) as failed:
        sys.exit(f"program.py: {failed or 'no event came'}")


main()
