#include "server.h"

#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/server/TNonblockingServer.h>
#include <thrift/server/TSimpleServer.h>
#include <thrift/server/TThreadPoolServer.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TNonblockingServerSocket.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <functional>
#include <future>
#include <utility>

using namespace apache::thrift;

namespace {

// Connections that the thread pool serves at the same time.
constexpr std::size_t kWorkers = 8;

class ProtocolFactory : public protocol::TProtocolFactory {
public:
    explicit ProtocolFactory(std::string encoding) : encoding_(std::move(encoding)) {}

    ProtocolPtr getProtocol(TransportPtr transport) override {
        return makeProtocol(encoding_, transport);
    }

private:
    std::string encoding_;
};

// Reports when the server listens: from then on, connections can wait in its queue.
class Ready : public server::TServerEventHandler {
public:
    explicit Ready(std::function<int()> port) : port_(std::move(port)) {}
    void preServe() override { promise_.set_value(port_()); }
    int wait() { return promise_.get_future().get(); }

private:
    std::function<int()> port_;
    std::promise<int> promise_;
};

std::shared_ptr<concurrency::ThreadManager> makeWorkers() {
    auto workers = concurrency::ThreadManager::newSimpleThreadManager(kWorkers);
    workers->threadFactory(std::make_shared<concurrency::ThreadFactory>());
    workers->start();
    return workers;
}

}  // namespace

const char* nameOf(Kind kind) {
    switch (kind) {
        case Kind::Simple:
            return "TSimpleServer";
        case Kind::Threaded:
            return "TThreadedServer";
        case Kind::ThreadPool:
            return "TThreadPoolServer";
        case Kind::Nonblocking:
            return "TNonblockingServer";
    }
    return "";
}

Server::Server(Kind kind, const std::string& encoding, const ProcessorPtr& processor)
    : kind_(kind), encoding_(encoding) {
    const auto protocols = std::make_shared<ProtocolFactory>(encoding);
    const auto buffered = std::make_shared<transport::TBufferedTransportFactory>();
    const auto socket = std::make_shared<transport::TServerSocket>("127.0.0.1", 0);
    std::function<int()> port = [socket] { return socket->getPort(); };
    switch (kind) {
        case Kind::Simple:
            server_ =
                std::make_shared<server::TSimpleServer>(processor, socket, buffered, protocols);
            break;
        case Kind::Threaded:
            server_ =
                std::make_shared<server::TThreadedServer>(processor, socket, buffered, protocols);
            break;
        case Kind::ThreadPool:
            server_ = std::make_shared<server::TThreadPoolServer>(processor, socket, buffered,
                                                                  protocols, makeWorkers());
            break;
        case Kind::Nonblocking: {
            const auto listener =
                std::make_shared<transport::TNonblockingServerSocket>("127.0.0.1", 0);
            port = [listener] { return listener->getListenPort(); };
            workers_ = makeWorkers();
            server_ = std::make_shared<server::TNonblockingServer>(processor, protocols, listener,
                                                                   workers_);
            break;
        }
    }
    const auto ready = std::make_shared<Ready>(port);
    server_->setServerEventHandler(ready);
    thread_ = std::thread([server = server_] { server->serve(); });
    port_ = ready->wait();
}

Server::~Server() {
    if (workers_) {
        // Handlers of events may still be running, because senders do not wait for them. The
        // objects that they use must still exist.
        workers_->stop();
    }
    server_->stop();
    thread_.join();
}

ProtocolPtr Server::connect() const {
    const auto socket = std::make_shared<transport::TSocket>("127.0.0.1", port_);
    // A broken server must fail a test, not hang it.
    socket->setConnTimeout(30000);
    socket->setRecvTimeout(30000);
    socket->setSendTimeout(30000);
    TransportPtr transport;
    if (kind_ == Kind::Nonblocking) {
        transport = std::make_shared<transport::TFramedTransport>(socket);
    } else {
        transport = std::make_shared<transport::TBufferedTransport>(socket);
    }
    transport->open();
    return makeProtocol(encoding_, transport);
}
