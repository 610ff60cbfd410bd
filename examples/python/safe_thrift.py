"""How these processes connect and serve: the same limits as TavIDL::Host has in C++.

Thrift's defaults trust every peer. Copy this file into your own program.
"""

import logging
import threading

from thrift.protocol.TBinaryProtocol import TBinaryProtocolFactory
from thrift.server.TServer import TThreadPoolServer
from thrift.transport.TSocket import TServerSocket, TSocket
from thrift.transport.TTransport import TBufferedTransport, TBufferedTransportFactory

# Thrift raises what it logs.
logging.getLogger("thrift").addHandler(logging.NullHandler())

# The longest string, and the longest container (these services have none).
STRING_LIMIT = 1 << 20
CONTAINER_LIMIT = 1000

# How long to wait for a peer, in milliseconds.
CLIENT_TIMEOUT = 5000
SERVER_TIMEOUT = 10000

# Connections that are served at the same time. Further ones wait in the backlog.
CONNECTIONS = 16

# Strict: a message that does not begin with the protocol's version is rejected immediately.
PROTOCOLS = TBinaryProtocolFactory(
    strictRead=True,
    strictWrite=True,
    string_length_limit=STRING_LIMIT,
    container_length_limit=CONTAINER_LIMIT,
)


class SafeClient:
    """A client of a service on this machine, over its own connection.

    Belongs to one thread. After any failure but a TApplicationException the connection may
    be in the middle of a message: close it, and create another client.
    """

    def __init__(self, client_class, port):
        connection = TSocket("127.0.0.1", port)
        connection.setTimeout(CLIENT_TIMEOUT)
        self.transport = TBufferedTransport(connection)
        self.transport.open()
        self.client = client_class(PROTOCOLS.getProtocol(self.transport))

    def __enter__(self):
        return self.client

    def __exit__(self, *_):
        self.transport.close()


class ListeningSocket(TServerSocket):
    """Listens from construction, so that others can already connect."""

    def __init__(self, port):
        # Only this machine, since connections are not encrypted.
        super().__init__("127.0.0.1", port)
        super().listen()

    def listen(self):
        pass

    def accept(self):
        connection = super().accept()
        connection.setTimeout(SERVER_TIMEOUT)
        return connection


def serve(processor, port):
    """Serves in threads that end with the process. Returns once it listens."""
    listening = ListeningSocket(port)
    server = TThreadPoolServer(
        processor, listening, TBufferedTransportFactory(), PROTOCOLS, daemon=True
    )
    server.setNumThreads(CONNECTIONS)
    threading.Thread(target=server.serve, daemon=True).start()
