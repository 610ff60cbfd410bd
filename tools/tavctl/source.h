#ifndef TAVCTL_SOURCE_H
#define TAVCTL_SOURCE_H

#include <algorithm>
#include <cstdint>
#include <limits>

#include "connection.h"
#include "lookahead.h"

namespace tavctl {

// A stream as a row of messages: counts its bytes, keeps those of the current message, limits its
// length, and ends at the end of its frame.
class Source : public apache::thrift::transport::TVirtualTransport<Source> {
public:
    explicit Source(std::shared_ptr<TTransport> bytes) : stream(std::move(bytes)) {}

    Lookahead stream;
    std::string message;  // so far
    uint64_t begin = 0;   // of the message

    uint64_t offset() const { return begin + message.size(); }

    void beginMessage() {
        begin = offset();
        message.clear();
        frameEnd_ = kNoFrame;
    }

    void beginFrame(uint32_t length) { frameEnd_ = offset() + length; }
    bool framed() const { return frameEnd_ != kNoFrame; }
    bool frameEnded() const { return offset() == frameEnd_; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        const auto wanted = static_cast<uint32_t>(std::min<uint64_t>(count, frameEnd_ - offset()));
        const uint32_t got = wanted == 0 ? 0 : stream.read(bytes, wanted);
        message.append(reinterpret_cast<const char*>(bytes), got);
        if (message.size() > kMessageLimit + (framed() ? 4 : 0)) {  // with the frame's length
            throw apache::thrift::transport::TTransportException(
                apache::thrift::transport::TTransportException::CORRUPTED_DATA,
                "the message is longer than " + std::to_string(kMessageLimit) + " bytes");
        }
        return got;
    }

private:
    static constexpr uint64_t kNoFrame = std::numeric_limits<uint64_t>::max();

    uint64_t frameEnd_ = kNoFrame;
};

}  // namespace tavctl

#endif
