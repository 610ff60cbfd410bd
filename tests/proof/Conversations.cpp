#include "Conversations.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>

namespace proof {

using namespace apache::thrift::protocol;

namespace {

// The library does not know these, and makes virtual calls.
template <typename Protocol>
class Derived : public Protocol {
public:
    using Protocol::Protocol;
};

constexpr int kStringLimit = 1 << 20;
constexpr int kContainerLimit = 1000;

// An operation of another service.
const Operation& foreignTo(const Operation& operation) {
    return kOperations[static_cast<std::size_t>(
        operation.service == Service::broker ? Call::close : Call::openEmp)];
}

// One that has a result, and another name.
const Operation& otherThan(const Operation& operation) {
    return kOperations[static_cast<std::size_t>(operation.call == Call::close ? Call::open
                                                                              : Call::close)];
}

std::string emptyReplyTo(const Operation& operation, const Encoding& encoding) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    const auto protocol = makeProtocol(encoding, buffer);
    protocol->writeMessageBegin(operation.name, T_REPLY, 0);
    infoOf<Library>(someValues()).write(protocol.get());  // has no field 0
    protocol->writeMessageEnd();
    return buffer->getBufferAsString();
}

}  // namespace

const std::vector<Encoding> kEncodings = {
    {"binary", Wire::binary, Calls::exact},
    {"binary over TBufferBase", Wire::binary, Calls::exactOverBuffer},
    {"binary by virtual calls", Wire::binary, Calls::virtually},
    {"compact", Wire::compact, Calls::exact},
    {"compact over TBufferBase", Wire::compact, Calls::exactOverBuffer},
    {"compact by virtual calls", Wire::compact, Calls::virtually},
    {"json", Wire::json, Calls::virtually},
};

std::shared_ptr<TProtocol> makeProtocol(const Encoding& encoding,
                                        const std::shared_ptr<TBufferBase>& buffer) {
    const auto binary = [&](auto* type) -> std::shared_ptr<TProtocol> {
        return std::make_shared<std::remove_pointer_t<decltype(type)>>(buffer, kStringLimit,
                                                                       kContainerLimit, true, true);
    };
    const auto compact = [&](auto* type) -> std::shared_ptr<TProtocol> {
        return std::make_shared<std::remove_pointer_t<decltype(type)>>(buffer, kStringLimit,
                                                                       kContainerLimit);
    };
    if (encoding.wire == Wire::json) {
        return std::make_shared<TJSONProtocol>(buffer);
    }
    const bool isBinary = encoding.wire == Wire::binary;
    switch (encoding.calls) {
        case Calls::exact:
            return isBinary ? binary(static_cast<TBinaryProtocol*>(nullptr))
                            : compact(static_cast<TCompactProtocol*>(nullptr));
        case Calls::exactOverBuffer:
            return isBinary ? binary(static_cast<TBinaryProtocolT<TBufferBase>*>(nullptr))
                            : compact(static_cast<TCompactProtocolT<TBufferBase>*>(nullptr));
        default:
            return isBinary ? binary(static_cast<Derived<TBinaryProtocol>*>(nullptr))
                            : compact(static_cast<Derived<TCompactProtocol>*>(nullptr));
    }
}

const std::vector<Operation> kOperations = {
    {Call::openEmp, Service::broker, "OpenEmp", "OpenEmp"},
    {Call::brokerExecute, Service::broker, "Execute", "TavBroker Execute"},
    {Call::closeEmp, Service::broker, "CloseEmp", "CloseEmp"},
    {Call::open, Service::emp, "Open", "Open"},
    {Call::close, Service::emp, "Close", "Close"},
    {Call::empExecute, Service::emp, "Execute", "TavEmp Execute"},
    {Call::executeWithParamList, Service::emp, "ExecuteWithParamList", "ExecuteWithParamList"},
    {Call::callback, Service::event, "Callback", "Callback"},
};

Values someValues() {
    Values values;
    values.number = 1234567;
    values.secondNumber = -89;
    values.flag = true;
    for (std::size_t i = 0; i < values.texts.size(); ++i) {
        values.texts.at(i) = "text number " + std::to_string(i) + ", with quite a few characters";
    }
    return values;
}

std::string Conversation::name() const {
    static const char* const paths[] = {
        "send",          "receive",         "receive refusal", "receive foreign",
        "receive empty", "receive request", "serve",           "serve refusing",
        "serve foreign", "serve reply"};
    return std::string(operation->title) + ", " + paths[static_cast<std::size_t>(path)];
}

std::vector<Conversation> conversations() {
    std::vector<Conversation> all;
    for (const Operation& operation : kOperations) {
        for (const Path path :
             {Path::send, Path::receive, Path::receiveRefusal, Path::receiveForeign,
              Path::receiveEmpty, Path::receiveRequest, Path::serve, Path::serveRefusing,
              Path::serveForeign, Path::serveReply}) {
            if (operation.call != Call::callback || path == Path::send || isServers(path)) {
                all.push_back({&operation, path});
            }
        }
    }
    return all;
}

std::string requestOf(const Operation& operation, const Encoding& encoding) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    const auto protocol = makeProtocol(encoding, buffer);
    Caller<Library>(protocol, protocol).send(operation.call, someValues());
    return buffer->getBufferAsString();
}

std::string replyTo(const Operation& operation, const Encoding& encoding, bool refused) {
    const auto handler = std::make_shared<Handler<Library>>();
    handler->answer = someValues();
    handler->refuses = refused;
    const std::string request = requestOf(operation, encoding);
    const auto input = std::make_shared<TMemoryBuffer>();
    input->write(reinterpret_cast<const uint8_t*>(request.data()),
                 static_cast<uint32_t>(request.size()));
    const auto output = std::make_shared<TMemoryBuffer>();
    makeProcessor<Library>(operation.service, handler)
        ->process(makeProtocol(encoding, input), makeProtocol(encoding, output), nullptr);
    return output->getBufferAsString();
}

std::string messageOf(const Conversation& conversation, const Encoding& encoding) {
    const Operation& operation = *conversation.operation;
    switch (conversation.path) {
        case Path::send:
            return "";
        case Path::receive:
            return replyTo(operation, encoding);
        case Path::receiveRefusal:
            return replyTo(operation, encoding, true);
        case Path::receiveForeign:
        case Path::serveReply:
            return replyTo(otherThan(operation), encoding);
        case Path::receiveEmpty:
            return emptyReplyTo(operation, encoding);
        case Path::serveForeign:
            return requestOf(foreignTo(operation), encoding);
        default:
            return requestOf(operation, encoding);
    }
}

}  // namespace proof
