#include "pool.h"

#include <sys/socket.h>
#include <thrift/protocol/TProtocolException.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace TavIDL::host {

using apache::thrift::TException;
using apache::thrift::transport::TTransportException;

namespace {

// The peer of a connection that was not used for longer may have restarted.
constexpr milliseconds kTrusted(1000);

std::string inMs(milliseconds time) {
    return std::to_string(time.count()) + " ms";
}

}  // namespace

Channel::Channel(std::shared_ptr<Socket> connected, const Settings& settings)
    : socket(std::move(connected)),
      buffer(std::make_shared<Buffer>(socket, settings)),
      transport(framesOver(buffer, settings)),
      protocol(protocolOver(transport, settings)) {
}

bool Channel::hasInput() const {
    uint32_t restOfFrame = 0;
    transport->borrow(nullptr, &restOfFrame);
    return restOfFrame > 0 || buffer->hasInput();
}

Pool::Pool(const std::string& address, const Settings& settings, bool oneWay)
    : addressText_(address),
      settings_(settings),
      address_(addressFrom(address, Role::client)),
      most_(oneWay ? 1 : settings.maxConnections) {
    check(settings_);
    tls_ = tlsFor(settings_, address_, Role::client);
}

Pool::~Pool() {
    cancel();
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return calls_.empty(); });
    for (Channel& channel : idle_) {
        channel.socket->closeGently();
    }
}

void Pool::cancel() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Call* const call : calls_) {
        call->cancelled_ = true;
        if (call->descriptor_ >= 0) {
            ::shutdown(call->descriptor_, SHUT_RDWR);
        }
    }
    changed_.notify_all();
}

Call::Call(Pool& pool, const char* operation, milliseconds timeout)
    : pool_(pool), operation_(operation), timeout_(timeout), begin_(Clock::now()) {
    std::unique_lock<std::mutex> lock(pool_.mutex_);
    place_ = pool_.calls_.insert(pool_.calls_.end(), this);
    try {
        waitForTurn(lock);
        if (!takeIdle()) {
            lock.unlock();
            connect();
        }
        Socket& socket = *channel().socket;
        socket.forgetSent();
        socket.readLimit().until(begin_ + timeout_);
        socket.writeLimit().until(begin_ + timeout_);
    } catch (...) {
        if (!lock.owns_lock()) {
            lock.lock();
        }
        leave();
        throw;
    }
}

Call::~Call() {
    const std::lock_guard<std::mutex> lock(pool_.mutex_);
    leave();
}

void Call::waitForTurn(std::unique_lock<std::mutex>& lock) {
    const auto free = [this] { return pool_.connected_ < pool_.most_; };
    pool_.changed_.wait_until(lock, begin_ + timeout_, [&] { return cancelled_ || free(); });
    if (cancelled_ || !free()) {
        throw failure(CallFailed::NoAnswerInTime,
                      "all connections were in use for " + inMs(timeout_));
    }
    ++pool_.connected_;
    connected_ = true;
}

bool Call::takeIdle() {
    while (!pool_.idle_.empty()) {
        channel_.splice(channel_.end(), pool_.idle_, std::prev(pool_.idle_.end()));
        Socket& socket = *channel().socket;
        if (begin_ - channel().lastUse < kTrusted || !socket.isStale()) {
            descriptor_ = socket.descriptor();
            return true;
        }
        channel_.clear();
    }
    return false;
}

void Call::connect() {
    const Address& address = pool_.address_;
    const Settings& settings = pool_.settings_;
    const auto end = std::min(begin_ + timeout_, Clock::now() + settings.connectTimeout);
    try {
        auto socket = std::make_shared<Socket>(
            connectTo(address, end, [this](int descriptor) { publish(descriptor); }));
        channel_.emplace_back(socket, settings);
        publish(socket->descriptor());
        if (pool_.tls_) {
            socket->readLimit().until(end);
            socket->writeLimit().until(end);
            socket->startTls(*pool_.tls_, address.host);
        }
    } catch (const CallFailed&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& reason) {
        throw failure(CallFailed::CannotConnect, reason.what());
    }
}

// Lets cancel() end what is done with a socket; -1 before it may be closed.
void Call::publish(int descriptor) {
    const std::lock_guard<std::mutex> lock(pool_.mutex_);
    descriptor_ = descriptor;
    if (cancelled_) {
        descriptor_ = -1;
        throw failure(CallFailed::Cancelled, "");
    }
}

void Call::leave() noexcept {
    pool_.calls_.erase(place_);
    if (connected_) {
        --pool_.connected_;
    }
    if (keep_ && !cancelled_ && !channel().hasInput()) {
        channel().lastUse = begin_;
        pool_.idle_.splice(pool_.idle_.end(), channel_);
    }
    pool_.changed_.notify_one();  // who waits for a connection, or the pool's destructor
}

CallFailed Call::failure(CallFailed::Reason reason, const std::string& detail) {
    const bool sent = !channel_.empty() && channel().socket->sent();
    const bool cancelled = cancelled_;
    return {cancelled ? CallFailed::Cancelled : reason, sent, operation_, pool_.addressText_,
            cancelled ? "" : detail};
}

void Call::fail() {
    try {
        throw;
    } catch (const TTransportException& reason) {
        switch (reason.getType()) {
            case TTransportException::TIMED_OUT:
                throw failure(CallFailed::NoAnswerInTime, inMs(timeout_));
            case TTransportException::CORRUPTED_DATA:
                throw failure(CallFailed::NotOurProtocol, reason.what());
            default:
                throw failure(CallFailed::ConnectionClosed, reason.what());
        }
    } catch (const TException& reason) {
        throw failure(CallFailed::NotOurProtocol, reason.what());
    }
}

}  // namespace TavIDL::host
