#include "serve.h"

#include <thrift/protocol/TProtocolDecorator.h>

#include <utility>

#include "channel.h"

namespace TavIDL::host {

using apache::thrift::TProcessor;
using apache::thrift::protocol::TMessageType;
using apache::thrift::transport::TTransportException;

namespace {

// The buffers of a server's connection. Knows when a request begins and when reading would wait.
class ServerBuffer : public Buffer {
public:
    ServerBuffer(std::shared_ptr<Socket> socket, const Settings& settings)
        : Buffer(std::move(socket), settings), settings_(settings) {}

    // Waits for the next request. Returns false if the client closes the connection instead.
    bool peek() override {
        if (!hasInput()) {
            send();
            socket_->readLimit().set(settings_.idleTimeout);
            if (!waitForInput()) {
                return false;
            }
        }
        socket_->readLimit().set(settings_.receiveTimeout);
        return true;
    }

    // Called after each reply. If there is another request, the reply waits for the next one.
    void flush() override {
        if (!settings_.deferReplies || !hasInput()) {
            send();
        }
    }

    void send() {
        socket_->writeLimit().set(settings_.sendTimeout);
        Buffer::flush();
    }

protected:
    uint32_t readSlow(uint8_t* bytes, uint32_t count) override {
        send();  // the client may wait for replies before it sends more
        return Buffer::readSlow(bytes, count);
    }

    void writeSlow(const uint8_t* bytes, uint32_t count) override {
        socket_->writeLimit().set(settings_.sendTimeout);
        try {
            Buffer::writeSlow(bytes, count);
        } catch (...) {
            wBase_ = wBuf_.get();  // the rest must not be sent, after a gap
            throw;
        }
    }

private:
    bool waitForInput() {
        try {
            return Buffer::peek();
        } catch (const TTransportException& failure) {
            switch (failure.getType()) {
                case TTransportException::END_OF_FILE:
                    return false;  // reset by the client: harmless between two calls
                case TTransportException::TIMED_OUT:
                    throw TTransportException("the client was idle for too long");
                default:
                    throw;
            }
        }
    }

    const Settings& settings_;
};

// Records for Settings::onCall what a call was and how it was answered.
class ObservedProtocol : public apache::thrift::protocol::TProtocolDecorator {
public:
    using TProtocolDecorator::TProtocolDecorator;

    uint32_t readMessageBegin_virt(std::string& name, TMessageType& type, int32_t& seqid) override {
        const uint32_t bytes = TProtocolDecorator::readMessageBegin_virt(name, type, seqid);
        call.operation = name;
        return bytes;
    }

    uint32_t writeMessageBegin_virt(const std::string& name, const TMessageType type,
                                    const int32_t seqid) override {
        if (type == apache::thrift::protocol::T_EXCEPTION) {
            call.outcome = ServedCall::Refused;
        }
        return TProtocolDecorator::writeMessageBegin_virt(name, type, seqid);
    }

    ServedCall call;
};

// Like TProcessor::process(), and also calls Settings::onCall.
void processObserved(TProcessor& processor, const std::shared_ptr<ObservedProtocol>& protocol,
                     const Settings& settings, const std::string& peer) {
    const auto begin = Clock::now();
    ServedCall& call = protocol->call;
    call = ServedCall();
    call.peer = peer;
    const auto tell = [&] {
        call.duration = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
        try {
            settings.onCall(call);
        } catch (...) {  // NOLINT(bugprone-empty-catch): as Settings::onCall says
        }
    };
    try {
        processor.process(protocol, protocol, nullptr);
    } catch (...) {
        call.outcome = ServedCall::Failed;
        tell();
        throw;
    }
    tell();
}

}  // namespace

void serveCalls(const std::shared_ptr<Socket>& socket, TProcessor& processor,
                const Settings& settings, const std::function<bool()>& stopped, CallCount& calls) {
    const auto buffer = std::make_shared<ServerBuffer>(socket, settings);
    const auto transport = framesOver(buffer, settings);
    const auto protocol = protocolOver(transport, settings);
    std::shared_ptr<ObservedProtocol> observed;
    std::string peer;
    if (settings.onCall) {
        observed = std::make_shared<ObservedProtocol>(protocol);
        peer = socket->peer();
    }
    try {
        while (!stopped() && transport->peek() && !stopped()) {
            ++calls;
            if (observed) {
                processObserved(processor, observed, settings, peer);
            } else {
                processor.process(protocol, protocol, nullptr);
            }
            ++calls;
        }
    } catch (...) {
        buffer->send();  // replies to earlier calls
        throw;
    }
    buffer->send();
}

}  // namespace TavIDL::host
