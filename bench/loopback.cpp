#include "loopback.h"
#include "memory.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <future>
#include <stdexcept>
#include <thread>
#include <utility>

namespace bench {

using namespace apache::thrift::protocol;
using namespace apache::thrift::server;
using namespace apache::thrift::transport;

namespace {

constexpr Operation kOperation = Operation::brokerExecute;
constexpr Encoding kEncoding = Encoding::binary;
constexpr std::size_t kLength = 8;
constexpr int kPatience = 10'000;  // milliseconds; a peer that is silent for longer hangs

std::shared_ptr<TTransportFactory> transportFactory(Framing framing) {
    if (framing == Framing::framed) {
        return std::make_shared<TFramedTransportFactory>();
    }
    return std::make_shared<TBufferedTransportFactory>();
}

// Serves on a free port, from construction to destruction.
class Server {
public:
    Server(const std::shared_ptr<TProcessor>& processor,
           const std::shared_ptr<TTransportFactory>& transports)
        : socket_(std::make_shared<TServerSocket>("127.0.0.1", 0)),
          server_(processor, socket_, transports, std::make_shared<TBinaryProtocolFactory>()) {
        const auto listening = std::make_shared<Listening>();
        server_.setServerEventHandler(listening);
        thread_ = std::thread([this] { server_.serve(); });
        listening->promise.get_future().wait();
    }
    ~Server() {
        server_.stop();
        thread_.join();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::shared_ptr<TSocket> connect() const {
        auto socket = std::make_shared<TSocket>("127.0.0.1", socket_->getPort());
        socket->setConnTimeout(kPatience);
        socket->setRecvTimeout(kPatience);
        socket->open();
        return socket;
    }

private:
    struct Listening : TServerEventHandler {
        void preServe() override { promise.set_value(); }
        std::promise<void> promise;
    };

    std::shared_ptr<TServerSocket> socket_;
    TThreadedServer server_;
    std::thread thread_;
};

// Returns false when the other side has closed the connection.
bool receive(TSocket& socket, std::string& bytes) {
    const ssize_t count = recv(socket.getSocketFD(), bytes.data(), bytes.size(), MSG_WAITALL);
    if (count != 0 && count != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("a bare socket received too few bytes, or none in time");
    }
    return count != 0;
}

void send(TSocket& socket, const std::string& bytes) {
    if (::send(socket.getSocketFD(), bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("a bare socket sent too few bytes");
    }
}

std::string onTheWire(Framing framing, const std::string& message) {
    const uint32_t size = htonl(static_cast<uint32_t>(message.size()));
    const std::string prefix(reinterpret_cast<const char*>(&size), sizeof(size));
    return framing == Framing::framed ? prefix + message : message;
}

// Serves a connection until its end. The time-out applies to each message.
class BareProcessor : public TProcessor {
public:
    BareProcessor(std::string request, std::string reply)
        : request_(std::move(request)), reply_(std::move(reply)) {}

    bool process(std::shared_ptr<TProtocol> input, std::shared_ptr<TProtocol>, void*) override {
        const auto transport = input->getTransport();
        auto& socket = dynamic_cast<TSocket&>(*transport);
        std::string request = request_;
        while (receive(socket, request)) {
            send(socket, reply_);
        }
        return false;
    }

private:
    const std::string request_;
    const std::string reply_;
};

}  // namespace

const char* nameOf(Framing framing) {
    return framing == Framing::framed ? "framed" : "buffered";
}

Connect serve(const Contestant& contestant, Framing framing) {
    const auto server = std::make_shared<Server>(
        contestant.makeProcessor(serviceOf(kOperation), kEncoding, kLength),
        transportFactory(framing));
    return [server, &contestant, framing]() -> RoundTrip {
        const auto transport = transportFactory(framing)->getTransport(server->connect());
        const auto protocol =
            makeProtocol(kEncoding, std::dynamic_pointer_cast<TBufferBase>(transport));
        const std::shared_ptr<Caller> caller =
            contestant.makeCaller(kEncoding, kLength, protocol, protocol);
        return [caller] {
            caller->send(kOperation);
            caller->receive(kOperation);
        };
    };
}

Connect serveBareSockets(Framing framing) {
    const auto messages =
        MemoryExchange(*kContestants[0], kOperation, kEncoding, kLength).requestAndReply();
    const std::string request = onTheWire(framing, messages.first);
    const std::string reply = onTheWire(framing, messages.second);
    const auto server = std::make_shared<Server>(std::make_shared<BareProcessor>(request, reply),
                                                 std::make_shared<TTransportFactory>());
    return [server, request, reply]() -> RoundTrip {
        return [socket = server->connect(), request, answer = reply]() mutable {
            send(*socket, request);
            if (!receive(*socket, answer)) {
                throw std::runtime_error("the other bare socket is closed");
            }
        };
    };
}

}  // namespace bench
