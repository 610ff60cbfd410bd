#include "socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace TavIDL::host {

using apache::thrift::transport::TTransportException;

namespace {

[[noreturn]] void failed(const char* what, int error) {
    throw TTransportException(error == ECONNRESET || error == EPIPE
                                  ? TTransportException::END_OF_FILE
                                  : TTransportException::UNKNOWN,
                              what, error);
}

// Worth another try: a signal came, or the system's limit expired, which may be shorter.
bool isTemporary(int error) {
    return error == EINTR || error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

milliseconds TimeLimit::left() {
    if (!running_) {
        until(Clock::now() + limit_);
        return limit_;
    }
    const auto left = std::chrono::duration_cast<milliseconds>(end_ - Clock::now());
    if (left.count() <= 0) {
        throw TTransportException(TTransportException::TIMED_OUT, "the time-out has expired");
    }
    return left;
}

Socket::Socket(Descriptor descriptor) : descriptor_(std::move(descriptor)) {
}

void Socket::startTls(const TlsContext& context, const std::string& host) {
    TlsSession::Bytes& bytes = *this;
    tls_ = std::make_unique<TlsSession>(context, bytes, host);
    tls_->shakeHands();
}

void Socket::limitEach(milliseconds read, milliseconds write) {
    limitEach_ = true;
    eachRead_ = read;
    eachWrite_ = write;
}

bool Socket::isStale() const {
    pollfd state = {descriptor_.get(), POLLIN | POLLRDHUP, 0};
    if (poll(&state, 1, 0) != 1) {
        return false;
    }
    // Over TLS, a server also sends records that were not requested.
    return tls_ == nullptr || (state.revents & ~POLLIN) != 0;
}

// Sets the system's limit so that a wait does not end before the time-out, nor much later. In most
// calls it has been correct since the connection was made, so this costs nothing.
void Socket::limitReceive() {
    constexpr milliseconds kTolerance(10);
    const milliseconds left = readLimit_.left();
    if (left <= systemLimit_ && systemLimit_ <= left + kTolerance) {
        return;
    }
    systemLimit_ = left;
    timeval time = {};
    time.tv_sec = static_cast<time_t>(left.count() / 1000);
    time.tv_usec = static_cast<suseconds_t>(left.count() % 1000 * 1000);
    if (setsockopt(descriptor_.get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time) != 0) {
        failed("setsockopt", errno);
    }
}

void Socket::waitToSend() {
    pollfd room = {descriptor_.get(), POLLOUT, 0};
    const auto left = std::min<milliseconds::rep>(writeLimit_.left().count(), INT_MAX);
    if (poll(&room, 1, static_cast<int>(left)) < 0 && errno != EINTR) {
        failed("poll", errno);
    }
}

// Called when a read or write with its own limit begins. Over TLS each may also do the other.
void Socket::restartLimit(Direction direction) {
    if (limitEach_ && (tls_ || direction == Direction::in)) {
        readLimit_.set(eachRead_);
    }
    if (limitEach_ && (tls_ || direction == Direction::out)) {
        writeLimit_.set(eachWrite_);
    }
}

std::size_t Socket::receive(void* bytes, std::size_t count) {
    for (;;) {
        limitReceive();
        const ssize_t got = ::recv(descriptor_.get(), bytes, count, 0);
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (!isTemporary(errno)) {
            failed("cannot receive", errno);
        }
    }
}

std::size_t Socket::send(const void* bytes, std::size_t count) {
    for (;;) {
        // Without waiting: SO_SNDTIMEO would limit each piece into which a unix socket divides a
        // message.
        const ssize_t sent = ::send(descriptor_.get(), bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            sent_ = true;
            return static_cast<std::size_t>(sent);
        }
        if (!mayWait_ || !isTemporary(errno)) {
            failed("cannot send", errno);
        }
        waitToSend();
    }
}

uint32_t Socket::read(uint8_t* bytes, uint32_t count) {
    restartLimit(Direction::in);
    const std::size_t got = tls_ ? tls_->read(bytes, count) : receive(bytes, count);
    received_ += got;
    return static_cast<uint32_t>(got);
}

void Socket::write(const uint8_t* bytes, uint32_t count) {
    restartLimit(Direction::out);
    while (count > 0) {
        const std::size_t sent = tls_ ? tls_->write(bytes, count) : send(bytes, count);
        bytes += sent;
        count -= static_cast<uint32_t>(sent);
        if (count > 0) {
            writeLimit_.left();  // throws if a slowly reading peer has used up the time
        }
    }
}

void Socket::endInput() {
    ::shutdown(descriptor_.get(), SHUT_RD);
}

void Socket::closeGently() {
    closeOutput();
    // Input must not be left unread. This neither waits for the peer nor reads forever.
    uint8_t ignored[4096];
    int most = 64;
    while (most-- > 0 && ::recv(descriptor_.get(), ignored, sizeof ignored, MSG_DONTWAIT) > 0) {
    }
}

void Socket::close() {
    closed_ = true;
    ::shutdown(descriptor_.get(), SHUT_RDWR);
}

void Socket::closeOutput() {
    if (tls_) {
        mayWait_ = false;  // if the peer does not read, skip the end of TLS
        tls_->closeOutput();
    }
    ::shutdown(descriptor_.get(), SHUT_WR);
}

}  // namespace TavIDL::host
