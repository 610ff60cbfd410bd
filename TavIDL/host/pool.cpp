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

std::string Pool::localHost() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return localHost_;
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
    : pool_(pool), operation_(operation), timeout_(timeout), end_(Clock::now() + timeout) {
    {
        const std::lock_guard<std::mutex> lock(pool_.mutex_);
        place_ = pool_.calls_.insert(pool_.calls_.end(), this);
    }
    try {
        waitForTurn();
        if (!takeIdle()) {
            connect();
        }
        if (Clock::now() >= end_) {
            throw failure(CallFailed::NoAnswerInTime,
                          inMs(timeout_) + " passed before it was sent");
        }
        Socket& socket = *channel().socket;
        publish(socket.descriptor());
        socket.forgetSent();
        socket.readLimit().until(end_);
        socket.writeLimit().until(end_);
    } catch (...) {
        leave();
        throw;
    }
}

Call::~Call() {
    leave();
}

void Call::waitForTurn() {
    std::unique_lock<std::mutex> lock(pool_.mutex_);
    // In the order of their arrival: a thread that calls again and again would else always come
    // before those that have to wake up first.
    const auto isNext = [this] {
        const auto next = std::find_if(pool_.calls_.begin(), pool_.calls_.end(),
                                       [](const Call* call) { return !call->connected_; });
        return next == place_;
    };
    const bool free = pool_.changed_.wait_until(lock, end_, [this, &isNext] {
        return cancelled_ || (pool_.connected_ < pool_.most_ && isNext());
    });
    if (!free) {
        throw failure(CallFailed::NoAnswerInTime,
                      "all connections were in use for " + inMs(timeout_));
    }
    ++pool_.connected_;
    connected_ = true;
    pool_.changed_.notify_all();  // now another call is next
}

bool Call::takeIdle() {
    for (;;) {
        {
            const std::lock_guard<std::mutex> lock(pool_.mutex_);
            channel_.clear();
            if (pool_.idle_.empty()) {
                return false;
            }
            channel_.splice(channel_.end(), pool_.idle_, std::prev(pool_.idle_.end()));
        }
        const bool recent = end_ - timeout_ - channel().lastUse < kTrusted;
        if ((recent && !channel().suspect) || !channel().socket->isStale()) {
            channel().suspect = false;
            return true;
        }
        channel().socket->closeGently();
    }
}

void Call::connect() {
    const Address& address = pool_.address_;
    const Settings& settings = pool_.settings_;
    const auto end = std::min(end_, Clock::now() + settings.connectTimeout);
    try {
        auto socket = std::make_shared<Socket>(
            connectTo(address, end, [this](int descriptor) { publish(descriptor); }));
        if (pool_.tls_) {
            publish(socket->descriptor());
            socket->readLimit().until(end);
            socket->writeLimit().until(end);
            try {
                socket->startTls(*pool_.tls_, address.host);
                publish(-1);
            } catch (...) {
                publish(-1);
                throw;
            }
        }
        channel_.emplace_back(std::move(socket), settings);
        std::string localHost = localHostOf(channel().socket->descriptor());
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
    const std::lock_guard<std::mutex> lock(pool_.mutex_);
    pool_.calls_.erase(place_);
    if (connected_) {
        --pool_.connected_;
    }
    if (keep_ && !cancelled_ && !channel().hasInput()) {
        channel().lastUse = Clock::now();
        pool_.idle_.splice(pool_.idle_.end(), channel_);
    } else if (!channel_.empty() && !cancelled_) {
        // The server may have restarted.
        for (Channel& other : pool_.idle_) {
            other.suspect = true;
        }
    }
    pool_.changed_.notify_all();
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
