#ifndef TAVIDL_HOST_POOL_H
#define TAVIDL_HOST_POOL_H

#include <TavIDL/host/Remote.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "channel.h"

// The connections of a Remote object, and the calls that use them.

namespace TavIDL::host {

// A connection with its layers.
struct Channel {
    Channel(std::shared_ptr<Socket> connected, const Settings& settings);

    // Whether there is unread input, which would be taken for the next reply.
    bool hasInput() const;

    std::shared_ptr<Socket> socket;
    std::shared_ptr<Buffer> buffer;
    std::shared_ptr<apache::thrift::transport::TBufferBase> transport;  // under `protocol`
    ProtocolPointer protocol;
    Clock::time_point lastUse;
    bool suspect = false;  // another connection has failed since
};

// Whether the connection can be kept after a call that ended like this. After a reply to another
// call, the next reply would be wrong, too.
bool canKeepAfter(const apache::thrift::TApplicationException& failure);

class Call;

class Pool {
public:
    // Throws std::invalid_argument.
    Pool(const std::string& address, const Settings& settings, bool oneWay);
    // Cancels the calls and waits for them.
    ~Pool();

    const std::string& addressText() const { return addressText_; }
    const Address& address() const { return address_; }
    const Settings& settings() const { return settings_; }

    // The local address of the last connection. Requires an earlier call.
    std::string localHost();

    void cancel();

private:
    friend class Call;

    const std::string addressText_;
    const Settings settings_;
    const Address address_;
    const std::size_t most_;
    std::unique_ptr<const TlsContext> tls_;

    std::mutex mutex_;  // for all members below
    std::condition_variable empty_;
    std::list<Call*> calls_;
    std::list<Call*> waiting_;   // those that wait for a connection, in order of arrival
    std::size_t connected_ = 0;  // number of the other calls
    std::list<Channel> idle_;    // most recently used last
    std::string localHost_;      // of the last connection
};

// A call, or a batch of them, from its wait for a connection to its end.
class Call {
public:
    // Gets a connection. Throws CallFailed.
    Call(Pool& pool, const char* operation, milliseconds timeout);
    // Closes the connection unless keep() was called.
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    Channel& channel() { return channel_.front(); }

    // The connection is between two messages and can be used again.
    void keep() { keep_ = true; }

    // In a catch block: throws a CallFailed for a failure of the connection, and rethrows any other
    // exception.
    [[noreturn]] void fail();

private:
    friend class Pool;

    void connect();
    void publish(int descriptor);
    // If the call was cancelled, that is the reason.
    CallFailed failure(CallFailed::Reason reason, const std::string& detail, bool sent = false);

    Pool& pool_;
    const char* const operation_;
    const milliseconds timeout_;
    const Clock::time_point begin_;
    bool keep_ = false;

    std::atomic<bool> cancelled_{false};
    std::list<Channel> channel_;  // one, once there is a connection

    // With the pool's mutex locked:
    void waitForTurn(std::unique_lock<std::mutex>& lock);
    bool takeIdle();
    void leave() noexcept;
    std::list<Call*>::iterator place_;
    std::condition_variable turn_;
    bool connected_ = false;  // counted in Pool::connected_
    int descriptor_ = -1;     // for cancel() to shut down
};

}  // namespace TavIDL::host

#endif
