#ifndef TAVIDL_HOST_CHANNEL_H
#define TAVIDL_HOST_CHANNEL_H

#include <TavIDL/host/Settings.h>

// libTavIDL recognizes the protocols over these transports by the addresses of their type
// information, which the two libraries must share. So it must not be hidden.
#pragma GCC visibility push(default)
#include <thrift/transport/TBufferTransports.h>
#pragma GCC visibility pop

#include <memory>

#include "socket.h"

// The layers between a socket and a client or processor: a buffer, frames if set, and a protocol.

namespace TavIDL::host {

// Throws std::invalid_argument with the name of the invalid member.
void check(const Settings& settings);

// From 0.14 on, libthrift counts the bytes of all messages of a connection against the limit for a
// single message, and ends the connection when they reach it. This resets the count for each
// message.
template <typename Transport>
class CountsEachMessage : public Transport {
public:
    using Transport::Transport;

    uint32_t readEnd() override {
        restart(this, 0);
        return Transport::readEnd();
    }

private:
    template <typename Self>
    static auto restart(Self* self, int) -> decltype(self->resetConsumedMessageSize()) {
        self->resetConsumedMessageSize();
    }
    static void restart(void*, long) {}
};

// The buffers of a connection. Limits the length of a message with any protocol: some protocols
// limit the length of a string, and frames limit that of a frame, but none limits the sum of the
// fields.
class Buffer : public CountsEachMessage<apache::thrift::transport::TBufferedTransport> {
public:
    Buffer(std::shared_ptr<Socket> socket, const Settings& settings);

    uint32_t readEnd() override;

    // Whether there is input that has been received but not read.
    bool hasInput() const { return rBase_ != rBound_; }

protected:
    uint32_t readSlow(uint8_t* bytes, uint32_t count) override;

    const std::shared_ptr<Socket> socket_;

private:
    // Throws if `more` bytes make the message too long.
    void limit(uint32_t more) const;
    // The number of bytes of the connection that have been read.
    uint64_t position() const {
        return socket_->received() - static_cast<uint64_t>(rBound_ - rBase_);
    }

    const uint32_t limit_;
    uint64_t messageBegin_ = 0;
};

using TransportPointer = std::shared_ptr<apache::thrift::transport::TTransport>;

// Returns `buffer`, or frames over it if the settings say so. Frames write each message to `buffer`
// in one piece.
std::shared_ptr<apache::thrift::transport::TBufferBase> framesOver(
    std::shared_ptr<apache::thrift::transport::TBufferBase> buffer, const Settings& settings);

ProtocolPointer protocolOver(std::shared_ptr<apache::thrift::transport::TBufferBase> transport,
                             const Settings& settings);

}  // namespace TavIDL::host

#endif
