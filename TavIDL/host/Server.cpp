#include <TavIDL/host/Server.h>

#include <utility>

#include "acceptor.h"
#include "signals.h"

namespace TavIDL {

using apache::thrift::TProcessor;

namespace {

template <typename Processor, typename Handler>
std::shared_ptr<TProcessor> processorOf(std::shared_ptr<Handler> handler) {
    return handler ? std::make_shared<Processor>(std::move(handler)) : nullptr;
}

}  // namespace

Server::Server(const std::string& address, std::shared_ptr<TavBrokerIf> handler,
               const Settings& settings)
    : Server(address, processorOf<TavBrokerProcessor>(std::move(handler)), settings) {
}

Server::Server(const std::string& address, std::shared_ptr<TavEmpIf> handler,
               const Settings& settings)
    : Server(address, processorOf<TavEmpProcessor>(std::move(handler)), settings) {
}

Server::Server(const std::string& address, std::shared_ptr<TavEmpEventIf> handler,
               const Settings& settings)
    : Server(address, processorOf<TavEmpEventProcessor>(std::move(handler)), settings) {
}

Server::Server(const std::string& address, std::shared_ptr<TProcessor> processor,
               const Settings& settings)
    : acceptor_(new host::Acceptor(address, settings, std::move(processor), nullptr)) {
}

Server::Server(const std::string& address,
               std::function<void(const std::shared_ptr<Connection>&)> serve,
               const Settings& settings)
    : acceptor_(new host::Acceptor(address, settings, nullptr, std::move(serve))) {
}

Server::~Server() = default;

const std::string& Server::address() const {
    return acceptor_->address();
}

void Server::runUntilSignal() {
    host::waitForSignal();
    stop();
}

void Server::stop() {
    acceptor_->stop(false);
}

void Server::finish() {
    acceptor_->stop(true);
}

}  // namespace TavIDL
