#include "channel.h"

#include <TavIDL/thrift.h>

// Not hidden: channel.h says why.
#pragma GCC visibility push(default)
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#pragma GCC visibility pop

#include <stdexcept>
#include <utility>

namespace TavIDL::host {

using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::protocol::TCompactProtocolT;
using apache::thrift::transport::TBufferBase;
using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TTransportException;

namespace {

// No record of these services has a container, so this limits only what is skipped.
constexpr int kContainerLimit = 10000;

void require(bool usable, const char* what) {
    if (!usable) {
        throw std::invalid_argument(std::string("Settings::") + what);
    }
}

class Frames : public CountsEachMessage<TFramedTransport> {
public:
    Frames(std::shared_ptr<TBufferBase> buffer, const Settings& settings)
        // Releases the memory of a frame that is longer than the buffer.
        : CountsEachMessage(buffer, settings.bufferSize, settings.bufferSize),
          buffer_(std::move(buffer)) {
        setMaxFrameSize(settings.maxMessageSize);
    }

    uint32_t readEnd() override {
        buffer_->readEnd();
        return CountsEachMessage::readEnd();
    }

private:
    std::shared_ptr<TBufferBase> buffer_;
};

}  // namespace

void check(const Settings& settings) {
    constexpr uint32_t kSmallestBuffer = 64;
    constexpr uint32_t kLargest = 100 << 20;  // libthrift's limit for a message
    require(settings.bufferSize >= kSmallestBuffer && settings.bufferSize <= kLargest,
            "bufferSize must be from 64 bytes to 100 MiB");
    require(settings.maxMessageSize >= kSmallestBuffer && settings.maxMessageSize <= kLargest,
            "maxMessageSize must be from 64 bytes to 100 MiB");
    require(settings.batchWindow > 0, "batchWindow must not be 0");
    require(settings.maxConnections > 0, "maxConnections must not be 0");
    require(settings.maxClients > 0, "maxClients must not be 0");
    require(settings.unixMode <= 0777, "unixMode must be from 0 to 0777");
    constexpr milliseconds kLongest = std::chrono::hours(24 * 365);
    const std::pair<milliseconds, const char*> limits[] = {
        {settings.connectTimeout, "connectTimeout must be from 1 ms to a year"},
        {settings.callTimeout, "callTimeout must be from 1 ms to a year"},
        {settings.idleTimeout, "idleTimeout must be from 1 ms to a year"},
        {settings.receiveTimeout, "receiveTimeout must be from 1 ms to a year"},
        {settings.sendTimeout, "sendTimeout must be from 1 ms to a year"}};
    for (const auto& [limit, what] : limits) {
        require(limit.count() > 0 && limit <= kLongest, what);
    }
    require(settings.stopTimeout.count() >= 0 && settings.stopTimeout <= kLongest,
            "stopTimeout must be from 0 ms to a year");
}

Buffer::Buffer(std::shared_ptr<Socket> socket, const Settings& settings)
    : CountsEachMessage(socket, settings.bufferSize),
      socket_(std::move(socket)),
      // A frame also has its length.
      limit_(settings.maxMessageSize + (settings.framed ? 4U : 0U)) {
}

void Buffer::limit(uint32_t more) const {
    if (position() + more - messageBegin_ > limit_) {
        throw TTransportException(
            TTransportException::CORRUPTED_DATA,
            "the message is longer than " + std::to_string(limit_) + " bytes");
    }
}

uint32_t Buffer::readEnd() {
    limit(0);  // also checks a message that was in the buffer completely
    messageBegin_ = position();
    return CountsEachMessage::readEnd();
}

uint32_t Buffer::readSlow(uint8_t* bytes, uint32_t count) {
    limit(count);
    if (!hasInput() && count >= rBufSize_) {
        return socket_->read(bytes, count);  // a long string, without copying it
    }
    return CountsEachMessage::readSlow(bytes, count);
}

std::shared_ptr<TBufferBase> framesOver(std::shared_ptr<TBufferBase> buffer,
                                        const Settings& settings) {
    if (settings.framed) {
        return std::make_shared<Frames>(std::move(buffer), settings);
    }
    return buffer;
}

ProtocolPointer protocolOver(std::shared_ptr<TBufferBase> transport, const Settings& settings) {
    if (settings.makeProtocol) {
        return settings.makeProtocol(std::move(transport));
    }
    const int limit = static_cast<int>(settings.maxMessageSize);
    if (settings.protocol == Settings::Compact) {
        return std::make_shared<TCompactProtocolT<TBufferBase>>(std::move(transport), limit,
                                                                kContainerLimit);
    }
    // Strict: a message that does not begin with the protocol's version, such as an HTTP request,
    // is rejected immediately, instead of reading its first bytes as the length of a name.
    return std::make_shared<TBinaryProtocolT<TBufferBase>>(std::move(transport), limit,
                                                           kContainerLimit, true, true);
}

}  // namespace TavIDL::host
