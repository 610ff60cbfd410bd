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

    /// File with the CA certificates that this side trusts. A client checks the server's
    /// certificate with them; empty means the system's CA certificates. A server checks the
    /// clients' certificates with them; empty means that clients need no certificate.
    std::string trusted;

    /// File with this side's certificate and the rest of its chain. A server needs one.
    std::string certificate;

    /// File with the private key of `certificate`.
    std::string key;

    /// Whether a client rejects a server whose certificate is not for the host in its address.
    bool checkHost = true;
};

/// What Settings::onCall gets about a call.
struct ServedCall {
    enum Outcome {
        Done,     ///< answered with a result, or a one-way call that was handled
        Refused,  ///< answered with an application exception
        Failed    ///< not answered: the connection is closed
    };

    std::string operation;                  ///< as in the request, for example "Execute"
    std::string peer;                       ///< the address of the client
    std::chrono::microseconds duration{0};  ///< from the request's first byte to the reply
    Outcome outcome = Done;
};

/// How to connect and how to serve. The defaults suit services on one machine. All limits are
/// finite, so that no peer can make a process wait forever or run out of memory. Both sides must
/// use the same `protocol`, `framed` and `tls.enabled`.
struct Settings {
    // How calls are encoded.

    enum Protocol {
        Binary,  ///< supported by every Thrift peer
        Compact  ///< fewer bytes, for slow links
    };
    Protocol protocol = Binary;

    /// If set, creates the protocol objects instead, for tools that use other protocols. It then
    /// has to limit the size of strings and containers itself. Must be thread-safe.
    std::function<ProtocolPointer(std::shared_ptr<apache::thrift::transport::TTransport>)>
        makeProtocol;

    /// Sends each message as a frame, with its length first. libthrift's non-blocking servers need
    /// this.
    bool framed = false;

    /// Size in bytes of each of a connection's two buffers. A message that fits is sent with one
    /// system call, and received with one.
    uint32_t bufferSize = 4096;

    /// Size in bytes of the longest message that is accepted, with any protocol. A peer can make
    /// this side allocate that much memory for each connection.
    uint32_t maxMessageSize = 1 << 20;

    Tls tls;

    // How to call.

    /// For connecting to a server, including all addresses of its host name and the TLS handshake.
    /// The lookup of the host name is not limited.
    std::chrono::milliseconds connectTimeout{5000};

    /// For a whole call, from getting a connection to the last byte of the reply, even if bytes
    /// keep arriving. Must be longer than the slowest command takes.
    std::chrono::milliseconds callTimeout{10000};

    /// Maximum number of connections of a Remote object, and so of calls at the same time. Further
    /// calls wait.
    std::size_t maxConnections = 8;

    /// Bytes of requests that a batch sends before it reads their replies. They must fit into the
    /// system's buffers for a connection, which 16 KiB always do.
    uint32_t batchWindow = 16 * 1024;

    // How to serve.

    /// Maximum number of connections that a server accepts at the same time. Each has its own
    /// thread. Further connections wait in the system's queue.
    std::size_t maxClients = 64;

    /// How long a client may keep a connection without calling. The default is long enough for
    /// interactive use.
    std::chrono::milliseconds idleTimeout{600000};

    /// For receiving a request, from its first byte to its last.
    std::chrono::milliseconds receiveTimeout{10000};

    /// For sending a reply. A client that does not read occupies a thread for that long.
    std::chrono::milliseconds sendTimeout{10000};

    /// How long running calls may still take when a server stops. Then they are disconnected.
    std::chrono::milliseconds stopTimeout{10000};

    /// Stack size in bytes of each of a server's threads. The system's default of 8 MiB would soon
    /// use up the address space of a 32-bit process.
    std::size_t stackSize = std::size_t{512} * 1024;

    /// Lets a reply wait for the next one if the next request has already been received, so that
    /// the replies to a batch are sent together. A reply is then delayed by the calls after it.
    bool deferReplies = true;

    /// Permissions of a unix socket's file. By default only the same user can connect.
    unsigned unixMode = 0600;

    /// If set, is called with a line of text for each connection that fails, and when a server
    /// cannot accept more connections, unless there is no memory for the text. The library itself
    /// never prints anything. Must be thread-safe; exceptions are ignored.
    std::function<void(const std::string&)> onFailure;

    /// If set, is called for each call that a server has served, for logs and traces. If set, the
    /// protocol's functions are called virtually, which is slower. Must be thread-safe; exceptions
    /// are ignored.
    std::function<void(const ServedCall&)> onCall;
};

}  // namespace TavIDL

#endif
