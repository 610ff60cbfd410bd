#ifndef TAVIDL_HOST_SOCKET_H
#define TAVIDL_HOST_SOCKET_H

#include <TavIDL/host/Connection.h>
#include <thrift/transport/TVirtualTransport.h>

#include <atomic>
#include <memory>

#include "address.h"
#include "tls.h"

// A connected socket, with time limits, as the transport under all others. libthrift's own prints
// what fails to standard error, waits for each receive anew, and polls where it can be interrupted.

namespace TavIDL::host {

// How much time is left for something. The clock is read only once there is something to wait for,
// and from then on runs until the next set() or until().
class TimeLimit {
public:
    void set(milliseconds limit) {
        limit_ = limit;
        running_ = false;
    }
    void until(Clock::time_point end) {
        end_ = end;
        running_ = true;
    }
    // Throws a TTransportException of the type TIMED_OUT if nothing is left.
    milliseconds left();

private:
    milliseconds limit_{1000};
    Clock::time_point end_;
    bool running_ = false;
};

class Socket : public apache::thrift::transport::TVirtualTransport<Socket, Connection>,
               private TlsSession::Bytes {
public:
    explicit Socket(Descriptor descriptor);

    int descriptor() const { return descriptor_.get(); }

    // Encrypts from here on: shakes hands. `host` is whom a client expects.
    void startTls(const TlsContext& context, const std::string& host);

    // For what follows.
    TimeLimit& readLimit() { return readLimit_; }
    TimeLimit& writeLimit() { return writeLimit_; }
    // Each single read or write from here on has so long.
    void limitEach(milliseconds read, milliseconds write);

    // Bytes that were read, and whether any were written, without those of TLS itself.
    uint64_t received() const { return received_; }
    bool sent() const { return sent_; }
    void forgetSent() { sent_ = false; }

    // Whether the peer has closed the connection, or has written without being asked.
    bool isStale() const;

    uint32_t read(uint8_t* bytes, uint32_t count);
    void write(const uint8_t* bytes, uint32_t count);

    // Ends what another thread waits for in read(). What has arrived can still be read.
    void endInput();
    // Lets the peer have all that was written: closing a socket with unread input discards it.
    void closeGently();

    bool isOpen() const override { return !closed_; }
    void close() override;
    void closeOutput() override;
    std::string peer() const override { return peerOf(descriptor_.get()); }

private:
    enum class Direction { in, out };

    std::size_t receive(void* bytes, std::size_t count) override;
    std::size_t send(const void* bytes, std::size_t count) override;
    void allow(Direction direction);

    const Descriptor descriptor_;
    std::unique_ptr<TlsSession> tls_;
    TimeLimit readLimit_;
    TimeLimit writeLimit_;
    bool limitEach_ = false;
    milliseconds eachRead_{};
    milliseconds eachWrite_{};
    // What the system has been told by SO_RCVTIMEO and SO_SNDTIMEO.
    milliseconds systemLimits_[2] = {};
    bool wait_ = true;  // until there is room to send
    uint64_t received_ = 0;
    bool sent_ = false;
    std::atomic<bool> closed_{false};
};

}  // namespace TavIDL::host

#endif
