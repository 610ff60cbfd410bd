#ifndef BENCH_MEMORY_H
#define BENCH_MEMORY_H

#include "contestant.h"

#include <thrift/transport/TBufferTransports.h>

#include <utility>

namespace bench {

// A client and a processor of one contestant, connected by two memory buffers.
class MemoryExchange {
public:
    MemoryExchange(const Contestant& contestant, Operation operation, Encoding encoding,
                   std::size_t length);

    // One whole call: client send, processor, client receive.
    void call();

    // The same, and the bytes sent in each direction.
    std::pair<std::string, std::string> requestAndReply();

private:
    void send();
    void process();
    void receive();

    const Operation operation_;
    std::shared_ptr<apache::thrift::transport::TMemoryBuffer> request_;
    std::shared_ptr<apache::thrift::transport::TMemoryBuffer> reply_;
    std::shared_ptr<TProcessor> processor_;
    std::shared_ptr<TProtocol> processorInput_;
    std::shared_ptr<TProtocol> processorOutput_;
    std::unique_ptr<Caller> caller_;
};

// Throws unless all contestants exchange the same bytes in this call.
void checkSameBytes(Operation operation, Encoding encoding, std::size_t length);

}  // namespace bench

#endif
