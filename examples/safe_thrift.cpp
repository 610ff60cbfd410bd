#include "safe_thrift.h"

#include <unistd.h>

#include <exception>
#include <future>
#include <utility>

#include "say.h"
#include "thrift_output.h"

using apache::thrift::TProcessor;
using apache::thrift::protocol::TProtocol;
using apache::thrift::server::TServerEventHandler;
using apache::thrift::transport::TServerSocket;
using apache::thrift::transport::TTransportException;

namespace {

// Stands between the server and the processor. A TThreadedServer closes the connection on a
// TException; anything else that comes out of process() leaves its thread and ends the process:
// what a handler throws that is no std::exception, and a std::bad_alloc while reading.
class Guard : public TProcessor {
public:
    explicit Guard(std::shared_ptr<TProcessor> processor) : processor_(std::move(processor)) {}

    bool process(std::shared_ptr<TProtocol> input, std::shared_ptr<TProtocol> output,
                 void* context) override {
        try {
            return processor_->process(std::move(input), std::move(output), context);
        } catch (const TTransportException&) {
            throw;  // The peer has gone, or is silent for too long: the server knows what to do.
        } catch (const std::exception& failure) {
            say("closed", std::string("a connection: ") + failure.what());
        } catch (...) {
            say("closed", "a connection: its handler threw what is no std::exception");
        }
        return false;  // The server closes the connection, and no other.
    }

private:
    std::shared_ptr<TProcessor> processor_;
};

// Tells when the server listens. Its stop() is lost on a server that does not yet.
struct Listening : TServerEventHandler {
    std::promise<void> promise;
    bool told = false;
    void preServe() override {
        told = true;
        promise.set_value();
    }
};

std::shared_ptr<TServerSocket> listener(int port) {
    // This machine alone: the services know no encryption.
    auto socket = std::make_shared<TServerSocket>("127.0.0.1", port);
    socket->setSendTimeout(kSendMs);
    socket->setRecvTimeout(kReceiveMs);
    return socket;
}

}  // namespace

SafeServer::SafeServer(std::shared_ptr<TProcessor> processor, int port)
    : socket_(listener(port)),
      server_(std::make_shared<Guard>(std::move(processor)), socket_,
              std::make_shared<BufferedFactory>(),
              std::make_shared<BinaryFactory>(kStringLimit, kContainerLimit, kStrictRead,
                                              kStrictWrite)) {
    onThriftOutput([](const char* text) { say("thrift", text); });
    server_.setConcurrentClientLimit(kConnections);

    auto listening = std::make_shared<Listening>();
    auto listens = listening->promise.get_future();
    server_.setServerEventHandler(listening);
    thread_ = std::thread([this, listening] {
        try {
            server_.serve();
        } catch (...) {
            if (!listening->told) {
                listening->promise.set_exception(std::current_exception());
                return;
            }
        }
        if (!stopping_) {
            // It accepts no more connections, for want of file descriptors for instance. A
            // process that lived on without serving would only look alive.
            say("failed", "no longer serves");
            _exit(1);
        }
    });
    try {
        listens.get();
    } catch (...) {
        thread_.join();
        throw;
    }
}

SafeServer::~SafeServer() {
    stopping_ = true;
    server_.stop();
    thread_.join();
}
