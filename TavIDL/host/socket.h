#ifndef TAVIDL_HOST_SOCKET_H
#define TAVIDL_HOST_SOCKET_H

#include <TavIDL/host/Connection.h>
#include <thrift/transport/TVirtualTransport.h>

#include <atomic>
#include <memory>

#include "address.h"
#include "tls.h"

// A connected socket with time limits: the lowest transport. Why not libthrift's: it prints
// failures to standard error, restarts its time-out at each receive, and polls to be interruptible.

namespace TavIDL::host {

// How much time is left. The clock is first read when there is something to wait for, and the time
// then runs until the next set() or until().
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
    // Throws a TTransportException of type TIMED_OUT if no time is left.
    milliseconds left();

private:
    milliseconds limit_{};
    Clock::time_point end_;
    bool running_ = false;
};

class Socket : public apache::thrift::transport::TVirtualTransport<Socket, Connection>,
               private TlsSession::Bytes {
public:
    explicit Socket(Descriptor descriptor);

    int descriptor() const { return descriptor_.get(); }

    // Does the TLS handshake and encrypts from here on. `host` is the server that a client expects.
    void startTls(const TlsContext& context, const std::string& host);

    // For the following reads and writes.
    TimeLimit& readLimit() { return readLimit_; }
    TimeLimit& writeLimit() { return writeLimit_; }
    // Limits each single read and write from here on.
    void limitEach(milliseconds read, milliseconds write);

    // Bytes read, not counting those of TLS itself.
    uint64_t received() const { return received_; }
    // Whether the system has taken any bytes since forgetSent().
    bool sent() const { return sent_; }
    void forgetSent() { sent_ = false; }

    // Whether the peer has closed the connection, or has sent something unasked.
    bool isStale() const;

    uint32_t read(uint8_t* bytes, uint32_t count);
    void write(const uint8_t* bytes, uint32_t count);

    // Ends a read() in which another thread waits. What has arrived can still be read.
    void endInput();
    // Makes sure that the peer gets everything written: closing a socket with unread input discards
    // it.
    void closeGently();

    bool isOpen() const override { return !closed_; }
    void close() override;
    void closeOutput() override;
    std::string peer() const override { return peerOf(descriptor_.get()); }

private:
    enum class Direction { in, out };

    std::size_t receive(void* bytes, std::size_t count) override;
    std::size_t send(const void* bytes, std::size_t count) override;
    void limitReceive();
    void waitToSend();
    void restartLimit(Direction direction);

    const Descriptor descriptor_;
    std::unique_ptr<TlsSession> tls_;
    TimeLimit readLimit_;
    TimeLimit writeLimit_;
    bool limitEach_ = false;
    milliseconds eachRead_{};
    milliseconds eachWrite_{};
    milliseconds systemLimit_{};  // what SO_RCVTIMEO says
    bool mayWait_ = true;         // for room to send
    uint64_t received_ = 0;
    bool sent_ = false;
    std::atomic<bool> closed_{false};
};

}  // namespace TavIDL::host

#endif
