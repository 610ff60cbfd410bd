"""How these processes connect and serve: what TavIDL::Host does for programs in C++.

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

# No text is longer than this, and no container, of which there are none in these services.
STRING_LIMIT = 1 << 20
CONTAINER_LIMIT = 1000

# No peer is waited for longer than this, in milliseconds.
CLIENT_TIMEOUT = 5000
SERVER_TIMEOUT = 10000

# Connections that are served at once. More wait in the backlog.
CONNECTIONS = 16

# Strict: what does not begin with the protocol's version is refused at once.
PROTOCOLS = TBinaryProtocolFactory(
    strictRead=True,
    strictWrite=True,
    string_length_limit=STRING_LIMIT,
    container_length_limit=CONTAINER_LIMIT,
)


class SafeClient:
    """A client of a service on this machine, over a connection of its own.

    Belongs to one thread. After any failure but a TApplicationException the connection may
    stand in the middle of a message: close it, and make another client.
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
    """Listens from the start, so that who is told may connect."""

    def __init__(self, port):
        # This machine alone: the services know no encryption.
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
