#ifndef TAVIDL_TESTS_INTEROP_EXCHANGE_H
#define TAVIDL_TESTS_INTEROP_EXCHANGE_H

#include <thrift/transport/TBufferTransports.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "roles.h"

inline TransportPtr wrap(const std::string& framing, const TransportPtr& transport) {
    using namespace apache::thrift::transport;
    if (framing == "memory") {
        return transport;
    }
    if (framing == "buffered") {
        return std::make_shared<TBufferedTransport>(transport);
    }
    if (framing == "framed") {
        return std::make_shared<TFramedTransport>(transport);
    }
    throw std::invalid_argument("no framing is called " + framing);
}

// A client and a server in one thread: the client's flush passes the request to the server,
// and the reply is ready when flush returns.
class Exchange {
public:
    using Serve = std::function<void(const ProtocolPtr& in, const ProtocolPtr& out)>;

    Exchange(const std::string& encoding, const std::string& framing, Serve serve)
        : serve_(std::move(serve)),
          upward_(std::make_shared<Upward>(*this)),
          clientOut_(makeProtocol(encoding, wrap(framing, upward_))),
          clientIn_(makeProtocol(encoding, wrap(framing, downward_))),
          serverIn_(makeProtocol(encoding, wrap(framing, upward_))),
          serverOut_(makeProtocol(encoding, wrap(framing, downward_))) {}

    Exchange(const std::string& encoding, const std::string& framing, const ProcessorPtr& processor)
        : Exchange(encoding, framing, [processor](const ProtocolPtr& in, const ProtocolPtr& out) {
              processor->process(in, out, nullptr);
          }) {}

    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    template <typename Family>
    std::string call(const char* service, const char* operation, const char* word) {
        return ::call<Family>(service, operation, word, clientIn_, clientOut_);
    }

    // The bytes of the last request, and the unread rest of its reply.
    const std::string& request() const { return request_; }
    const std::string& reply() const { return reply_; }
    std::string unread() const { return downward_->getBufferAsString(); }

    ProtocolPtr clientIn() const { return clientIn_; }
    ProtocolPtr clientOut() const { return clientOut_; }

private:
    class Upward : public apache::thrift::transport::TMemoryBuffer {
    public:
        explicit Upward(Exchange& exchange) : exchange_(exchange) {}
        void flush() override { exchange_.handOver(); }

    private:
        Exchange& exchange_;
    };

    void handOver() {
        request_ = upward_->getBufferAsString();
        serve_(serverIn_, serverOut_);
        reply_ = downward_->getBufferAsString();
    }

    Serve serve_;
    std::shared_ptr<Upward> upward_;
    std::shared_ptr<apache::thrift::transport::TMemoryBuffer> downward_ =
        std::make_shared<apache::thrift::transport::TMemoryBuffer>();
    ProtocolPtr clientOut_;
    ProtocolPtr clientIn_;
    ProtocolPtr serverIn_;
    ProtocolPtr serverOut_;
    std::string request_;
    std::string reply_;
};

#endif
