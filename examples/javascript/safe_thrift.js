// How these processes connect and serve: the same limits as TavIDL::Host has in C++.
//
// Thrift's defaults trust every peer. Copy this file into your own program.
"use strict";

const thrift = require("thrift");

// The longest string. Thrift's own code would collect up to two gibibytes for a string that
// claims to be that long.
const stringLimit = 1 << 20;

// How long to wait for a peer, in milliseconds.
const clientTimeout = 5000;
const serverTimeout = 10000;

const connections = 64;

class SafeProtocol extends thrift.TBinaryProtocol {
  constructor(transport) {
    // Strict: a message that does not begin with the protocol's version is rejected immediately.
    super(transport, true, true);
  }

  readString() {
    const length = this.readI32();
    if (length < 0 || length > stringLimit) {
      throw new Error("a text beyond the limit");
    }
    return length === 0 ? "" : this.trans.readString(length);
  }
}

const wire = { transport: thrift.TBufferedTransport, protocol: SafeProtocol };

// A client of a service on this machine. A generated client does not report a failed
// connection or an invalid reply to its callers; this one does.
class SafeClient {
  constructor(service, port) {
    this.connection = thrift.createConnection("127.0.0.1", port, {
      ...wire,
      timeout: clientTimeout,
    });
    this.client = thrift.createClient(service, this.connection);
    this.broken = new Promise((_, reject) => {
      this.connection.on("error", reject);
      this.connection.on("close", () => {
        if (!this.ended) {
          reject(new Error("the connection was closed"));
        }
      });
      this.connection.on("timeout", () => reject(new Error("no answer in time")));
    });
    this.broken.catch(() => this.connection.destroy());
  }

  call(operation, ...args) {
    return Promise.race([this.client[operation](...args), this.broken]);
  }

  // Sends a one-way call. Resolves immediately: there is no reply.
  send(operation, ...args) {
    this.client[operation](...args);
  }

  // Ends the connection when everything is sent: calls are kept until it is connected.
  end() {
    this.ended = true;
    if (this.connection.connected) {
      this.connection.end();
    } else {
      this.connection.once("connect", () => this.connection.end());
    }
  }
}

// Serves on a local port, since connections are not encrypted. Resolves when it listens.
function serve(service, handler, port) {
  const server = thrift.createServer(service, handler, wire);
  server.maxConnections = connections;
  server.on("connection", (socket) => socket.setTimeout(serverTimeout, () => socket.destroy()));
  return new Promise((resolve, reject) => {
    server.once("error", reject);
    server.listen(port, "127.0.0.1", () => {
      server.off("error", reject);
      // Without a listener an error of one connection, such as an invalid message, would end
      // the process. The server has closed that connection.
      server.on("error", (error) => console.error(`closed a connection: ${error.message}`));
      resolve(server);
    });
  });
}

module.exports = { SafeClient, serve };
