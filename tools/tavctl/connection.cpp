#include "connection.h"

#include <TavIDL/host/Remote.h>
#include <thrift/TApplicationException.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TProtocolDecorator.h>

#include <cstring>
#include <iterator>
#include <system_error>
#include <utility>

#include "json.h"
#include "print.h"

namespace tavctl {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::TMessageType;
using std::chrono::milliseconds;
using TavIDL::CallFailed;

namespace {

std::string hintFor(const CallFailed& failed) {
    return std::strstr(failed.what(), "cannot find the host") != nullptr
               ? "check the name, or give its IP address"
               : "check that it runs and listens there";
}

thread_local bool refused = false;

// What all calls go through.
class ClientProtocol : public apache::thrift::protocol::TProtocolDecorator {
public:
    ClientProtocol(TavIDL::ProtocolPointer wrapped, BeforeCall beforeCall)
        : TProtocolDecorator(std::move(wrapped)), beforeCall_(std::move(beforeCall)) {}

    uint32_t writeMessageBegin_virt(const std::string& name, const TMessageType type,
                                    const int32_t seqid) override {
        std::string sent = name;
        refused = false;
        if (beforeCall_) {
            beforeCall_(sent);
        }
        return TProtocolDecorator::writeMessageBegin_virt(sent, type, seqid);
    }

    uint32_t readMessageBegin_virt(std::string& name, TMessageType& type, int32_t& seqid) override {
        const uint32_t bytes = TProtocolDecorator::readMessageBegin_virt(name, type, seqid);
        refused = type == apache::thrift::protocol::T_EXCEPTION;
        return bytes;
    }

private:
    const BeforeCall beforeCall_;
};

milliseconds inMs(double seconds) {
    return std::chrono::duration_cast<milliseconds>(std::chrono::duration<double>(seconds));
}

// Without the full stop that libthrift's texts end with, since more follows.
std::string textOf(const std::exception& thrown) {
    const std::string text = thrown.what();
    return text.substr(0, text.find_last_not_of('.') + 1);
}

}  // namespace

TavIDL::ProtocolPointer protocolOver(const Settings& settings,
                                     std::shared_ptr<TTransport> transport) {
    if (settings.protocol == "compact") {
        return std::make_shared<apache::thrift::protocol::TCompactProtocolT<TTransport>>(
            transport, kMessageLimit, kContainerLimit);
    }
    if (settings.protocol == "json") {
        return jsonProtocolOver(std::move(transport));
    }
    // Strict: what does not begin with the protocol's version, an HTTP answer for instance, is
    // refused at once instead of being taken for the length of a name.
    return std::make_shared<apache::thrift::protocol::TBinaryProtocolT<TTransport>>(
        transport, kMessageLimit, kContainerLimit, true, true);
}

namespace {

// What clients and servers have in common.
TavIDL::Settings hostSettings(const Settings& settings) {
    TavIDL::Settings host;
    host.makeProtocol = [settings](std::shared_ptr<TTransport> transport) {
        return protocolOver(settings, std::move(transport));
    };
    host.framed = settings.framed();
    host.maxMessageSize = kMessageLimit;
    host.tls.enabled = settings.tls;
    host.tls.trusted = settings.ca;
    host.tls.certificate = settings.cert;
    host.tls.key = settings.key;
    host.connectTimeout = inMs(settings.connectTimeout);
    host.callTimeout = inMs(settings.timeout);
    host.idleTimeout = kNoLimit;  // some clients keep a connection for an event a day
    host.sendTimeout = std::chrono::seconds(2);
    host.onFailure = note;
    return host;
}

}  // namespace

TavIDL::Settings serverSettings(const Settings& settings) {
    if (settings.tls && (settings.cert.empty() || settings.key.empty())) {
        throw Failure(Exit::Usage, "a server needs --cert and --key with --tls");
    }
    return hostSettings(settings);
}

TavIDL::Settings clientSettings(const Settings& settings, BeforeCall beforeCall) {
    if (settings.tls && settings.ca.empty()) {
        throw Failure(Exit::Usage, "--tls needs --ca, to check the peer's certificate");
    }
    TavIDL::Settings host = hostSettings(settings);
    host.makeProtocol = [settings, beforeCall](std::shared_ptr<TTransport> transport) {
        return std::make_shared<ClientProtocol>(protocolOver(settings, std::move(transport)),
                                                beforeCall);
    };
    return host;
}

bool peerRefused() {
    return refused;
}

Failure failureFrom(const std::exception& thrown) {
    if (dynamic_cast<const std::invalid_argument*>(&thrown) != nullptr) {
        return {Exit::Usage, thrown.what()};
    }
    if (dynamic_cast<const std::system_error*>(&thrown) != nullptr) {
        return {Exit::NoConnection, thrown.what(), "choose another address, or port 0 for any"};
    }
    if (const auto* failed = dynamic_cast<const CallFailed*>(&thrown)) {
        return {Exit::NoConnection, thrown.what(), hintFor(*failed)};
    }
    return {Exit::Broken, thrown.what()};
}

Failure failureFrom(const std::exception& thrown, const std::string& operation,
                    const TavIDL::Remote& peer) {
    const std::string where = operation + " at " + peer.address() + ": ";
    const std::string probe = "see tavctl probe " + peer.address();
    if (const auto* answer = dynamic_cast<const TApplicationException*>(&thrown)) {
        if (!refused) {
            return {Exit::Broken,
                    where + "the peer sent something that is not a reply: " + textOf(thrown),
                    probe};
        }
        const std::string kind = kindOf(answer->getType());
        Failure failure(Exit::Refused, where + "the peer answered " + kind + ": " + answer->what(),
                        answer->getType() == TApplicationException::UNKNOWN_METHOD
                            ? "it may serve another service, see tavctl describe"
                            : "the connection is fine, check what the call asks for");
        failure.exceptionKind = kind;
        failure.exceptionText = answer->what();
        return failure;
    }
    const auto* failed = dynamic_cast<const CallFailed*>(&thrown);
    if (failed == nullptr) {
        return failureFrom(thrown);
    }
    // Host names the operation of the interface, and the request may have named another.
    const std::string text = textOf(thrown);
    const std::string named = operation + text.substr(text.find(" at "));
    switch (failed->reason()) {
        case CallFailed::CannotConnect:
            return {Exit::NoConnection, named,
                    peer.settings().tls.enabled
                        ? "check the certificates, and that it speaks TLS there"
                        : hintFor(*failed)};
        case CallFailed::NoAnswerInTime:
            return {Exit::TimedOut, named, "try a longer --timeout, or " + probe};
        default:
            return {Exit::Broken, named, probe};
    }
}

std::string kindOf(int type) {
    constexpr const char* kKinds[] = {
        "UNKNOWN",           "UNKNOWN_METHOD",   "INVALID_MESSAGE_TYPE",   "WRONG_METHOD_NAME",
        "BAD_SEQUENCE_ID",   "MISSING_RESULT",   "INTERNAL_ERROR",         "PROTOCOL_ERROR",
        "INVALID_TRANSFORM", "INVALID_PROTOCOL", "UNSUPPORTED_CLIENT_TYPE"};
    return type >= 0 && type < static_cast<int>(std::size(kKinds)) ? kKinds[type]
                                                                   : "kind " + std::to_string(type);
}

}  // namespace tavctl
