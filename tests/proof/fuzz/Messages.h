#ifndef TESTS_PROOF_FUZZ_MESSAGES_H
#define TESTS_PROOF_FUZZ_MESSAGES_H

#include <array>
#include <string>

#include "../Conversations.h"
#include "Input.h"

// Messages that processors and clients get from memory.
namespace fuzz {

// Binary and compact, each in the three ways in which the library calls a protocol.
using Ways = std::array<proof::Encoding, 3>;
inline const Ways& waysOf(std::size_t wire) {
    const auto& all = proof::kEncodings;
    static const Ways ways[] = {{all.at(0), all.at(1), all.at(2)},
                                {all.at(3), all.at(4), all.at(5)}};
    return ways[wire];
}

inline std::shared_ptr<proof::TMemoryBuffer> bufferWith(const std::string& bytes) {
    auto buffer = std::make_shared<proof::TMemoryBuffer>();
    buffer->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                  static_cast<uint32_t>(bytes.size()));
    return buffer;
}

// What a handler or a caller got, as text.
inline std::string described(const proof::Values& values) {
    std::string text = std::to_string(values.number) + " " + std::to_string(values.secondNumber) +
                       (values.flag ? " true" : " false");
    for (const std::string& each : values.texts) {
        text += "," + std::to_string(each.size()) + ":" + each;
    }
    return text;
}

// Serves requests up to the first one that is broken. Returns what the handler got, and what was
// answered: whole messages.
inline std::string serve(proof::Service service, const proof::TMemoryBuffer& answers,
                         const std::shared_ptr<proof::TProtocol>& in,
                         const std::shared_ptr<proof::TProtocol>& out) {
    const auto handler = std::make_shared<proof::Handler<proof::Library>>();
    handler->answer = proof::someValues();
    const auto processor = proof::makeProcessor(service, handler);
    std::string log;
    int requests = 0;
    try {
        for (;;) {
            handler->refuses = requests % 2 == 1;
            processor->process(in, out, nullptr);
            ++requests;
            log += handler->called + described(handler->seen);
        }
    } catch (const apache::thrift::TApplicationException& failure) {
        require(false, std::string("a processor throws ") + failure.what());
    } catch (const apache::thrift::TException&) {
    }
    require(handler->calls <= requests, "a handler is called for a broken request");

    std::string name;
    proof::TMessageType type{};
    int32_t seqid = 0;
    int replies = 0;
    for (; answers.available_read() > 0; ++replies) {
        out->readMessageBegin(name, type, seqid);
        require(type == apache::thrift::protocol::T_REPLY ||
                    type == apache::thrift::protocol::T_EXCEPTION,
                "an answer is not a reply");
        out->skip(apache::thrift::protocol::T_STRUCT);
        out->readMessageEnd();
        log += name + std::to_string(type) + std::to_string(seqid);
    }
    require(replies <= requests, "there are more answers than requests");
    return log;
}

// Receives replies up to the first one that is broken. Returns what the caller got.
inline std::string receive(proof::Call call, const std::shared_ptr<proof::TProtocol>& protocol) {
    proof::Caller<proof::Library> caller(protocol, protocol);
    std::string log;
    try {
        for (;;) {
            proof::Values result;
            try {
                caller.receive(call, result);
            } catch (const apache::thrift::TApplicationException& failure) {
                // It has read the whole reply, and can go on.
                log += std::to_string(failure.getType()) + failure.what();
            }
            log += described(result);
        }
    } catch (const apache::thrift::TException&) {
    }
    return log;
}

}  // namespace fuzz

#endif
