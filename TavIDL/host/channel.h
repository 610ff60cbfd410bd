#ifndef TAVIDL_HOST_CHANNEL_H
#define TAVIDL_HOST_CHANNEL_H

#include <TavIDL/host/Settings.h>

// libTavIDL recognizes the protocols over these transports by the addresses of their type
// information, which the two libraries have to share: so it must not be hidden.
#pragma GCC visibility push(default)
#include <thrift/transport/TBufferTransports.h>
#pragma GCC visibility pop

#include <memory>

#include "socket.h"

// What lies between a socket and a client or processor: a buffer, perhaps frames, a protocol.

namespace TavIDL::host {

// Throws std::invalid_argument, with the name of the member that cannot be used.
void check(const Settings& settings);

// libthrift counts the bytes of all messages of a connection against a limit for one, and ends the
// connection when they reach it. This starts anew after each message, where libthrift (from 0.14
// on) counts at all.
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

// The buffers of a connection. Limits the length of a message, whatever the protocol: that of a
// string is limited by some of them, that of a frame by frames, but a sum of fields by none.
class Buffer : public CountsEachMessage<apache::thrift::transport::TBufferedTransport> {
public:
    Buffer(std::shared_ptr<Socket> socket, const Settings& settings);

    uint32_t readEnd() override;

    // Whether there is input that was received and not yet read.
    bool hasInput() const { return rBase_ != rBound_; }
    bool hasOutput() const { return wBase_ != wBuf_.get(); }

protected:
    uint32_t readSlow(uint8_t* bytes, uint32_t count) override;

    const std::shared_ptr<Socket> socket_;

private:
    // Throws if the message becomes too long by so many more bytes.
    void limit(uint32_t more) const;
    // Bytes of the connection up to the next one that is read.
    uint64_t position() const {
        return socket_->received() - static_cast<uint64_t>(rBound_ - rBase_);
    }

    const uint32_t limit_;
    uint64_t messageBegin_ = 0;
};

using TransportPointer = std::shared_ptr<apache::thrift::transport::TTransport>;

// `buffer`, or frames over it if the settings want them. They write each message to `buffer` as a
// whole.
std::shared_ptr<apache::thrift::transport::TBufferBase> framesOver(
    std::shared_ptr<apache::thrift::transport::TBufferBase> buffer, const Settings& settings);

ProtocolPointer protocolOver(std::shared_ptr<apache::thrift::transport::TBufferBase> transport,
                             const Settings& settings);

}  // namespace TavIDL::host

#endif
