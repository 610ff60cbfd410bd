#ifndef TAVCTL_LOOKAHEAD_H
#define TAVCTL_LOOKAHEAD_H

#include <thrift/transport/TVirtualTransport.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace tavctl {

using apache::thrift::transport::TTransport;

// A stream whose next bytes can be looked at before they are read.
class Lookahead : public apache::thrift::transport::TVirtualTransport<Lookahead> {
public:
    explicit Lookahead(std::shared_ptr<TTransport> stream) : stream_(std::move(stream)) {}

    // What has been received, but not read.
    std::string_view ahead() const { return std::string_view(buffer_).substr(next_); }

    // Waits for more of it. Returns false at the end of the stream.
    bool receive() {
        char bytes[1 << 16];
        const uint32_t count = stream_->read(reinterpret_cast<uint8_t*>(bytes), sizeof bytes);
        buffer_.erase(0, next_).append(bytes, count);
        next_ = 0;
        return count > 0;
    }

    // Whether there is another byte, which then is in ahead().
    bool more() { return !ahead().empty() || receive(); }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        if (!more()) {
            return 0;
        }
        const std::size_t got = ahead().copy(reinterpret_cast<char*>(bytes), count);
        next_ += got;
        return static_cast<uint32_t>(got);
    }

    bool get(char& c) { return read(reinterpret_cast<uint8_t*>(&c), 1) == 1; }

private:
    const std::shared_ptr<TTransport> stream_;
    std::string buffer_;
    std::size_t next_ = 0;
};

}  // namespace tavctl

#endif
