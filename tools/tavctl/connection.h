#ifndef TAVCTL_CONNECTION_H
#define TAVCTL_CONNECTION_H

#include <TavIDL/thrift.h>
#include <thrift/server/TServer.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// Connections and servers: how they are asked for, and what bounds them. libthrift's own
// settings trust every peer.

using apache::thrift::TProcessor;
using apache::thrift::protocol::TProtocol;
using apache::thrift::transport::TTransport;

// No message is longer. libthrift makes room for a string before the first of its bytes is there.
constexpr int kMessageLimit = 16 << 20;

// No record of these services holds a container: what has to be skipped need not be longer.
constexpr int kContainerLimit = 10000;

// Structures in structures. libthrift's own limit for what it skips.
constexpr int kDepthLimit = 64;

// A server gives each connection a thread.
constexpr int kConnections = 64;

struct Address {
    std::string host;
    int port = 0;
    std::string path;  // of a unix socket, if not empty

    std::string text() const;
};

// Throws a Failure. Port 0 is for servers: the system chooses one.
Address addressFrom(const std::string& text, bool zeroAllowed = false);

const std::vector<std::string> kProtocols = {"binary", "compact", "json"};
const std::vector<std::string> kTransports = {"buffered", "framed"};

struct Settings {
    std::string protocol = "binary";
    std::string transport = "buffered";
    bool tls = false;
    std::string ca;
    std::string cert;
    std::string key;
    double connectTimeout = 5;  // seconds
    double timeout = 10;

    bool framed() const { return transport == "framed"; }
};

// The protocol of the settings, with its limits, over a transport that bounds a message.
TavIDL::ProtocolPointer protocolOver(const Settings& settings,
                                     std::shared_ptr<TTransport> transport);

// A socket that has been connected. Throws a Failure.
std::shared_ptr<apache::thrift::transport::TSocket> connectSocket(const Address& address,
                                                                  const Settings& settings);

// Whether the peer shakes hands as TLS has it. Throws a Failure if there is no connection.
bool speaksTls(const Address& address, Settings settings);

// A client's connection. Each exchange, with all that is read and written in it, ends within the
// time-out.
class Connection {
public:
    // Connects. Throws a Failure.
    Connection(Address address, const Settings& settings);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Makes one call by `action`, which gets the protocol. `what` names the call: what goes wrong
    // becomes a Failure that says so.
    void exchange(const std::string& what,
                  const std::function<void(TavIDL::ProtocolPointer)>& action);

    // Ends what waits for the peer. From another thread.
    void interrupt();

private:
    class Deadline;
    class ReplyType;

    const Address address_;
    std::shared_ptr<apache::thrift::transport::TSocket> socket_;
    std::shared_ptr<Deadline> deadline_;
    std::shared_ptr<ReplyType> protocol_;
};

// A server in threads of its own.
class Server {
public:
    // `processor` is called with protocols of the settings.
    Server(Address address, const Settings& settings, std::shared_ptr<TProcessor> processor);
    // `serve` is called with each connection's bare socket, and returns when it is done.
    Server(Address address, const Settings& settings,
           std::function<void(std::shared_ptr<apache::thrift::transport::TSocket>)> serve);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // With the port that it got.
    const Address& address() const { return address_; }

    // Waits for all connections that were made up to now to end, but not longer than `ms`.
    void drain(int ms);

    // Ends all connections. Throws a Failure if it had given up by itself; a stop is then
    // requested too.
    void stop();

private:
    class Events;

    void start(const Settings& settings, std::shared_ptr<TProcessor> processor,
               std::shared_ptr<apache::thrift::transport::TTransportFactory> transports);
    void end();

    Address address_;
    std::shared_ptr<apache::thrift::transport::TServerSocket> socket_;
    std::shared_ptr<Events> events_;
    std::unique_ptr<apache::thrift::server::TServer> server_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    std::string failure_;
};

// The name of an application exception's kind.
std::string kindOf(int type);

// libthrift prints what it meets to standard error; here the caller is told instead.
void silenceThrift();

#endif
