#include "memory.h"

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

void MemoryExchange::call() {
    request_->resetBuffer();
    reply_->resetBuffer();
    caller_->send(operation_);
    processor_->process(processorInput_, processorOutput_, nullptr);
    caller_->receive(operation_);
}

void checkSameBytes(std::size_t length) {
    for (const Operation operation : kOperations) {
        for (const Encoding encoding : kEncodings) {
            MemoryExchange first(*kContestants[0], operation, encoding, length);
            first.call();
            for (const Contestant* contestant : kContestants) {
                MemoryExchange other(*contestant, operation, encoding, length);
                other.call();
                if (other.request() != first.request() || other.reply() != first.reply()) {
                    throw std::runtime_error(std::string("other bytes than ") +
                                             kContestants[0]->name + ": " + contestant->name + " " +
                                             nameOf(operation) + " " + nameOf(encoding));
                }
            }
        }
    }
}

}  // namespace bench
