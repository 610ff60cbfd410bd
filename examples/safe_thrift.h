#ifndef EXAMPLES_SAFE_THRIFT_H
#define EXAMPLES_SAFE_THRIFT_H

#include <TavIDL/TavIDL.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <atomic>
#include <memory>
#include <thread>

// How these processes connect and serve. libTavIDL leaves that to its user, and libthrift's
// defaults trust every peer. What is set here, and why, is what to take along into a program
// of one's own.

// No string is longer than this. libthrift reads a string's length from the wire and makes room
// for it before the first of its bytes is there: unlimited, four bytes cost a server 2 GiB.
constexpr int kStringLimit = 1 << 20;

// No record of these services holds a container. Those that have to be skipped may be short.
constexpr int kContainerLimit = 1000;

// No peer is waited for longer than this: not to connect, not for one send, not for one
// receive. libthrift's default is to wait for ever. A server ends a connection that is silent for
// so long: the client's next call fails, and the one after it connects anew.
constexpr int kConnectMs = 1000;
constexpr int kSendMs = 5000;
constexpr int kReceiveMs = 5000;

// A server gives each connection a thread. More connections than these wait in the backlog.
constexpr int kConnections = 64;

// A transport with a buffer, always: over a bare socket every field of a message is sent by
// system calls of its own. Frames are a buffer too, and both sides must choose the same; they
// want a frame limit besides, and libthrift 0.17 ends a framed connection after 100 MiB in all.
using Buffered = apache::thrift::transport::TBufferedTransport;
using BufferedFactory = apache::thrift::transport::TBufferedTransportFactory;

// A protocol that is strict: what does not begin with its version, an HTTP request for instance,
// is refused instead of being taken for the length of a name. Over TBufferBase, from which both
// buffers are derived, libTavIDL calls it at the least cost.
using Binary = apache::thrift::protocol::TBinaryProtocolT<apache::thrift::transport::TBufferBase>;
using BinaryFactory =
    apache::thrift::protocol::TBinaryProtocolFactoryT<apache::thrift::transport::TBufferBase>;
constexpr bool kStrictRead = true;
constexpr bool kStrictWrite = true;

// A client of a service on this machine. Belongs to one thread, as its connection carries one
// call at a time: a thread that calls has a SafeClient of its own.
template <typename Client>
class SafeClient {
public:
    explicit SafeClient(int port) : port_(port) {}

    // Makes one call: connects first where that is needed, and hands `operation` the client.
    template <typename Operation>
    auto call(Operation operation) {
        connect();
        try {
            return operation(*client_);
        } catch (const apache::thrift::TApplicationException&) {
            // The peer's answer, read to its end: the connection is as good as before.
            throw;
        } catch (...) {
            // It may stand in the middle of a message, or the answer may come late and be
            // taken for the next call's. The call is not repeated: the peer may have done it.
            client_.reset();  // closes it
            throw;
        }
    }

private:
    void connect() {
        if (client_) {
            return;
        }
        auto socket = std::make_shared<apache::thrift::transport::TSocket>("127.0.0.1", port_);
        socket->setConnTimeout(kConnectMs);
        socket->setSendTimeout(kSendMs);
        socket->setRecvTimeout(kReceiveMs);
        socket->open();
        // Owns the connection from here on.
        client_ = std::make_unique<Client>(
            std::make_shared<Binary>(std::make_shared<Buffered>(socket), kStringLimit,
                                     kContainerLimit, kStrictRead, kStrictWrite));
    }

    int port_;
    std::unique_ptr<Client> client_;
};

// A server on this machine, in threads of its own.
class SafeServer {
public:
    // Listens on `port`, or on one that the system chooses if that is 0, and returns once it
    // does. Throws if it cannot.
    SafeServer(std::shared_ptr<apache::thrift::TProcessor> processor, int port);

    // Ends all connections, lets the calls at work finish, and waits for that.
    ~SafeServer();

    int port() const { return socket_->getPort(); }

private:
    std::shared_ptr<apache::thrift::transport::TServerSocket> socket_;
    apache::thrift::server::TThreadedServer server_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

#endif
