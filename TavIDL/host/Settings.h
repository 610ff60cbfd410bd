#ifndef TAVIDL_HOST_SETTINGS_H
#define TAVIDL_HOST_SETTINGS_H

#include <TavIDL/thrift.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace TavIDL {

/// Encryption of TCP connections. All files are in PEM form.
struct Tls {
    bool enabled = false;

    /// File of the certificates that are trusted. For a client: who may sign the server's
    /// certificate; empty means those of the system. For a server: who may sign the clients'
    /// certificates; empty means that clients need none.
    std::string trusted;

    /// File of this side's own certificate, and of the others in its chain. A server needs one.
    std::string certificate;

    /// File of the private key that belongs to it.
    std::string key;

    /// A client refuses a server whose certificate is not for the host in its address.
    bool checkHost = true;
};

/// What a server tells its observer about a call.
struct ServedCall {
    enum Outcome {
        Done,     ///< answered with a result; or one-way, and handled
        Refused,  ///< answered with an application exception
        Failed    ///< not answered: the connection is closed
    };

    std::string operation;                  ///< as in the request, "Execute" for instance
    std::string peer;                       ///< the address of the client
    std::chrono::microseconds duration{0};  ///< from the request's first byte to the reply
    Outcome outcome = Done;
};

/// How to connect and how to serve. The defaults suit services on one machine; each is finite, so
/// that no peer can make a process wait for ever or run out of memory. Both sides must agree about
/// `protocol`, `framed` and `tls`.
struct Settings {
    // How calls are encoded.

    enum Protocol {
        Binary,  ///< what every Thrift peer speaks
        Compact  ///< fewer bytes: for slow links
    };
    Protocol protocol = Binary;

    /// If set, makes the protocol objects instead, for tools that speak other ones. It then limits
    /// the size of strings and containers itself. Called by several threads at once.
    std::function<ProtocolPointer(std::shared_ptr<apache::thrift::transport::TTransport>)>
        makeProtocol;

    /// Sends each message with its length in front of it, as libthrift's non-blocking servers want
    /// it.
    bool framed = false;

    /// Bytes of each of a connection's two buffers. A message that fits is sent and received by
    /// one system call each.
    uint32_t bufferSize = 4096;

    /// Bytes of the longest message that is accepted, whatever the protocol. A peer can make this
    /// side allocate so much for each connection.
    uint32_t maxMessageSize = 1 << 20;

    Tls tls;

    // How to call.

    /// For connecting to a server, over all addresses of its name, TLS included. The lookup of the
    /// name is not limited.
    std::chrono::milliseconds connectTimeout{5000};

    /// For a call as a whole: for getting a connection, sending, and receiving the last byte of the
    /// reply, however slowly bytes arrive. Longer than the slowest command takes.
    std::chrono::milliseconds callTimeout{10000};

    /// Connections that a Remote object has at most, and so calls at the same time. Others wait.
    std::size_t maxConnections = 8;

    /// Bytes of requests that a batch sends before it reads their replies. They have to fit the
    /// system's buffers of a connection: 16 KiB do everywhere.
    uint32_t batchWindow = 16 * 1024;

    // How to serve.

    /// Connections that a server accepts at the same time, each with a thread. Others wait in the
    /// system's queue.
    std::size_t maxClients = 64;

    /// How long a client may keep a connection without calling. Long enough for a person to think.
    std::chrono::milliseconds idleTimeout{600000};

    /// For receiving a request, from its first byte to its last.
    std::chrono::milliseconds receiveTimeout{10000};

    /// For sending a reply. A client that does not read occupies a thread for so long.
    std::chrono::milliseconds sendTimeout{10000};

    /// How long running calls may take when a server stops, before they are disconnected.
    std::chrono::milliseconds stopTimeout{10000};

    /// Bytes of stack of each of a server's threads. The system's default, 8 MiB, would soon use up
    /// the address space of a 32-bit process.
    std::size_t stackSize = std::size_t{512} * 1024;

    /// Lets a reply wait for the next one while the next request has already been received, so
    /// that the replies to a batch leave together. A reply then takes as long as the calls after
    /// it.
    bool deferReplies = true;

    /// Permissions of a unix socket's file: by default those of the same user alone.
    unsigned unixMode = 0600;

    /// If set, gets a line about each connection that failed and about what keeps a server from
    /// accepting more. Nothing is ever printed. Called by several threads at once; what it throws
    /// is ignored.
    std::function<void(const std::string&)> onFailure;

    /// If set, gets each call that a server has served: for logs and traces. Costs virtual calls to
    /// the protocol; costs nothing if not set. Called by several threads at once; what it throws is
    /// ignored.
    std::function<void(const ServedCall&)> onCall;
};

}  // namespace TavIDL

#endif
