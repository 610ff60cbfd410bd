#include "memory.h"

#include <functional>
#include <numeric>
#include <stdexcept>

namespace bench {

using apache::thrift::transport::TMemoryBuffer;

MemoryExchange::MemoryExchange(const Contestant& contestant, Operation operation, Encoding encoding,
                               std::size_t length)
    : operation_(operation),
      request_(std::make_shared<TMemoryBuffer>()),
      reply_(std::make_shared<TMemoryBuffer>()),
      processor_(contestant.makeProcessor(serviceOf(operation), encoding, length)),
      processorInput_(makeProtocol(encoding, request_)),
      processorOutput_(makeProtocol(encoding, reply_)),
      caller_(contestant.makeCaller(encoding, length, makeProtocol(encoding, reply_),
                                    makeProtocol(encoding, request_))) {
}

void MemoryExchange::send() {
    request_->resetBuffer();
    caller_->send(operation_);
}

void MemoryExchange::process() {
    reply_->resetBuffer();
    processor_->process(processorInput_, processorOutput_, nullptr);
}

void MemoryExchange::receive() {
    caller_->receive(operation_);
}

void MemoryExchange::call() {
    send();
    process();
    receive();
}

std::pair<std::string, std::string> MemoryExchange::requestAndReply() {
    std::pair<std::string, std::string> messages;
    send();
    messages.first = request_->getBufferAsString();  // before it is read and discarded
    process();
    messages.second = reply_->getBufferAsString();
    receive();
    return messages;
}

void checkSameBytes(Operation operation, Encoding encoding, std::size_t length) {
    const auto messages = [&](const Contestant& contestant) {
        return MemoryExchange(contestant, operation, encoding, length).requestAndReply();
    };
    const auto expected = messages(kOurs);
    for (const Contestant* contestant : {&kGenerated, &kTemplates}) {
        const auto found = messages(*contestant);
        // The library calls the one-way operation with T_CALL, generated code with T_ONEWAY:
        // one byte in every encoding.
        const int otherBytes = operation == Operation::eventCallback ? 1 : 0;
        if (found.first.size() != expected.first.size() ||
            std::inner_product(found.first.begin(), found.first.end(), expected.first.begin(), 0,
                               std::plus<>(), std::not_equal_to<>()) != otherBytes ||
            found.second != expected.second) {
            throw std::runtime_error(std::string(contestant->name) +
                                     " exchanges other bytes than ours: " + nameOf(operation) +
                                     ", " + nameOf(encoding));
        }
    }
}

}  // namespace bench
