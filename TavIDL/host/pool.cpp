#include "pool.h"

#include <sys/socket.h>
#include <thrift/protocol/TProtocolException.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace TavIDL::host {

using apache::thrift::TApplicationException;
using apache::thrift::TException;
using apache::thrift::transport::TTransportException;

namespace {

// If a connection was idle for longer, the peer may have restarted.
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

bool canKeepAfter(const TApplicationException& failure) {
    return failure.getType() != TApplicationException::WRONG_METHOD_NAME &&
           failure.getType() != TApplicationException::INVALID_MESSAGE_TYPE;
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
    empty_.wait(lock, [this] { return calls_.empty(); });
    for (Channel& channel : idle_) {
        channel.socket->closeGently();
    }
}

std::string Pool::localHost() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return localHost_;
}

void Pool::cancel() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Call* const call : calls_) {
        call->cancelled_ = true;
        ::shutdown(call->descriptor_, SHUT_RDWR);  // has no effect on -1
        call->turn_.notify_one();
    }
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
        if (Clock::now() >= begin_ + timeout_) {
            throw failure(CallFailed::NoAnswerInTime,
                          inMs(timeout_) + " passed before it was sent");
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

// Waits in order of arrival. Otherwise a thread that calls repeatedly would always overtake those
// that must wake up first.
void Call::waitForTurn(std::unique_lock<std::mutex>& lock) {
    if (pool_.connected_ < pool_.most_) {
        ++pool_.connected_;
        connected_ = true;
        return;
    }
    pool_.waiting_.push_back(this);
    turn_.wait_until(lock, begin_ + timeout_, [this] { return cancelled_ || connected_; });
    // Otherwise the call that left its connection to this one has removed it.
    if (!connected_) {
        pool_.waiting_.remove(this);
    }
    if (cancelled_ || !connected_) {
        throw failure(CallFailed::NoAnswerInTime,
                      "all connections were in use for " + inMs(timeout_));
    }
}

bool Call::takeIdle() {
    while (!pool_.idle_.empty()) {
        channel_.splice(channel_.end(), pool_.idle_, std::prev(pool_.idle_.end()));
        Socket& socket = *channel().socket;
        const bool trusted = begin_ - channel().lastUse < kTrusted && !channel().suspect;
        if (trusted || !socket.isStale()) {
            channel().suspect = false;
            descriptor_ = socket.descriptor();
            return true;
        }
        socket.closeGently();  // there may be an event that has not been delivered
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
        std::string localHost = localHostOf(socket->descriptor());
        const std::lock_guard<std::mutex> lock(pool_.mutex_);
        pool_.localHost_ = std::move(localHost);
    } catch (const CallFailed&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& reason) {
        throw failure(CallFailed::CannotConnect, reason.what());
    }
}

// Lets cancel() shut down the socket. Call it with -1 before the socket may be closed.
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
    if (keep_ && !cancelled_ && !channel().hasInput()) {
        channel().lastUse = begin_;
        pool_.idle_.splice(pool_.idle_.end(), channel_);
    } else {
        // The server may have restarted.
        for (Channel& other : pool_.idle_) {
            other.suspect = true;
        }
    }
    if (connected_) {
        if (pool_.waiting_.empty()) {
            --pool_.connected_;
        } else {
            Call& next = *pool_.waiting_.front();
            pool_.waiting_.pop_front();
            next.connected_ = true;
            next.turn_.notify_one();
        }
    }
    if (pool_.calls_.empty()) {
        pool_.empty_.notify_all();
    }
}

CallFailed Call::failure(CallFailed::Reason reason, const std::string& detail, bool sent) {
    const bool cancelled = cancelled_;
    return {cancelled ? CallFailed::Cancelled : reason, sent, operation_, pool_.addressText_,
            cancelled ? "" : detail};
}

void Call::fail() {
    const bool sent = channel().socket->sent();
    try {
        throw;
    } catch (const TTransportException& reason) {
        switch (reason.getType()) {
            case TTransportException::TIMED_OUT:
                throw failure(CallFailed::NoAnswerInTime, inMs(timeout_), sent);
            case TTransportException::CORRUPTED_DATA:
                throw failure(CallFailed::NotOurProtocol, reason.what(), sent);
            default:
                throw failure(CallFailed::ConnectionClosed, reason.what(), sent);
        }
    } catch (const TException& reason) {
        throw failure(CallFailed::NotOurProtocol, reason.what(), sent);
    }
}

}  // namespace TavIDL::host
