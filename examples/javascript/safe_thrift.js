// How these processes connect and serve: what TavIDL::Host does for programs in C++.
//
// Thrift's defaults trust every peer. Copy this file into your own program.
"use strict";

const thrift = require("thrift");

// No text is longer than this. Thrift's own would gather up to two gibibytes for one that
// says that it is as long.
const stringLimit = 1 << 20;

// No peer is waited for longer than this, in milliseconds.
const clientTimeout = 5000;
const serverTimeout = 10000;

const connections = 64;

class SafeProtocol extends thrift.TBinaryProtocol {
  constructor(transport) {
    // Strict: what does not begin with the protocol's version is refused at once.
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

// A client of a service on this machine. A generated client does not tell its callers that
// the connection has failed, nor of a reply that it cannot read; this one does.
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

  // Sends a one-way call. Resolves at once: nothing comes back.
  send(operation, ...args) {
    this.client[operation](...args);
  }

  // Ends the connection once all is sent: calls before there is one are kept until then.
  end() {
    this.ended = true;
    if (this.connection.connected) {
      this.connection.end();
    } else {
      this.connection.once("connect", () => this.connection.end());
    }
  }
}

// Serves on a port of this machine: the services know no encryption. Resolves once it listens.
function serve(service, handler, port) {
  const server = thrift.createServer(service, handler, wire);
  server.maxConnections = connections;
  server.on("connection", (socket) => socket.setTimeout(serverTimeout, () => socket.destroy()));
  return new Promise((resolve, reject) => {
    server.once("error", reject);
    server.listen(port, "127.0.0.1", () => {
      server.off("error", reject);
      // Without a listener an error of one connection, a broken message for instance, would
      // end the process. The server has closed that connection.
      server.on("error", (error) => console.error(`closed a connection: ${error.message}`));
      resolve(server);
    });
  });
}

module.exports = { SafeClient, serve };
