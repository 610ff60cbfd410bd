#ifndef TAVCTL_JSON_H
#define TAVCTL_JSON_H

#include <TavIDL/thrift.h>
#include <thrift/protocol/TProtocolException.h>
#include <thrift/transport/TVirtualTransport.h>

#include <memory>
#include <string>

// libthrift's JSON protocol trusts what it reads: numbers that are missing or out of range end the
// process or are replaced by others. So each message is received as a whole, and checked, before
// libthrift gets any of it.

namespace tavctl {

// The text is not a message.
struct BrokenJson : apache::thrift::protocol::TProtocolException {
    BrokenJson(std::size_t at, const std::string& reason)
        : TProtocolException(INVALID_DATA, reason), offset(at) {}

    std::size_t offset;  // in the text, of the first byte that is wrong
};

// The stream under a JSON protocol. It takes no more from below than the message that is read; what
// is below limits its length.
class CheckedJson : public apache::thrift::transport::TVirtualTransport<CheckedJson> {
public:
    using TTransport = apache::thrift::transport::TTransport;

    explicit CheckedJson(std::shared_ptr<TTransport> stream) : stream_(std::move(stream)) {}

    uint32_t read(uint8_t* bytes, uint32_t count);
    uint32_t readEnd() override { return stream_->readEnd(); }
    void write(const uint8_t* bytes, uint32_t count) { stream_->write(bytes, count); }
    uint32_t writeEnd() override { return stream_->writeEnd(); }
    void flush() override { stream_->flush(); }

    // How much was received, but not read.
    std::size_t ahead() const { return text_.size() - next_; }

private:
    void receive();

    const std::shared_ptr<TTransport> stream_;
    std::string text_;
    std::size_t checked_ = 0;
    std::size_t next_ = 0;
};

// libthrift's protocol over a CheckedJson.
TavIDL::ProtocolPointer jsonProtocolOver(std::shared_ptr<CheckedJson::TTransport> stream);

}  // namespace tavctl

#endif
