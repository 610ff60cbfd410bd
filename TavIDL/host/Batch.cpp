#include <TavIDL/host/Batch.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "pool.h"

namespace TavIDL {

using apache::thrift::transport::TMemoryBuffer;

namespace host {

namespace {

// A call that has been encoded and not answered. This class is for one-way calls.
struct Pending {
    virtual ~Pending() = default;
    // Returns whether the connection can be kept.
    virtual bool receive(const ProtocolPointer&) { return true; }
    virtual void fail(const std::exception_ptr&) {}

    std::size_t size = 0;  // of the encoded request
};

template <typename Client, typename Result, typename Receive>
struct Promised : Pending {
    explicit Promised(Receive how) : receiveWith(how) {}

    bool receive(const ProtocolPointer& protocol) override {
        Client client(protocol);
        try {
            promise.set_value(receiveWith(client));
            return true;
        } catch (const apache::thrift::TApplicationException& failure) {
            promise.set_exception(std::current_exception());
            return canKeepAfter(failure);
        }
    }
    void fail(const std::exception_ptr& failure) override { promise.set_exception(failure); }

    Receive receiveWith;
    std::promise<Result> promise;
};

// Encodes calls as they are sent.
class Encoder {
public:
    explicit Encoder(const Settings& settings)
        : settings_(settings), memory_(std::make_shared<TMemoryBuffer>()) {}

    // Appends the message that `send` writes.
    template <typename Client, typename Send>
    void encode(std::string& bytes, Send send) {
        try {
            if (!protocol_) {
                protocol_ = protocolOver(framesOver(memory_, settings_), settings_);
            }
            Client client(protocol_);
            send(client);
            memory_->appendBufferToString(bytes);
            memory_->resetBuffer();
        } catch (...) {
            // The transports may hold half a message.
            protocol_ = nullptr;
            memory_ = std::make_shared<TMemoryBuffer>();
            throw;
        }
    }

private:
    const Settings& settings_;
    std::shared_ptr<TMemoryBuffer> memory_;
    ProtocolPointer protocol_;
};

}  // namespace

class Requests {
public:
    explicit Requests(Pool& pool) : pool_(pool), encoder_(pool.settings()) {}
    ~Requests() { failFrom(0, abandoned_); }
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

    std::size_t size() const { return pending_.size(); }
    const Settings& settings() const { return pool_.settings(); }

    template <typename Client, typename Send, typename Receive>
    auto add(Send send, Receive receive) {
        using Result = decltype(receive(std::declval<Client&>()));
        auto call = std::make_unique<Promised<Client, Result, Receive>>(receive);
        auto& promise = call->promise;
        enqueue<Client>(send, std::move(call));
        // Last: a promise that breaks while it has a future allocates, and ends the process if it
        // cannot.
        return promise.get_future();
    }

    template <typename Client, typename Send>
    void addOneWay(Send send) {
        enqueue<Client>(send, std::make_unique<Pending>());
    }

    // Makes all calls, then removes them.
    void run(milliseconds timeout);

private:
    template <typename Client, typename Send>
    void enqueue(Send send, std::unique_ptr<Pending> call) {
        const std::size_t before = bytes_.size();
        pending_.push_back(std::move(call));
        try {
            encoder_.encode<Client>(bytes_, send);
        } catch (...) {
            pending_.pop_back();
            throw;
        }
        pending_.back()->size = bytes_.size() - before;
    }

    void failFrom(std::size_t first, const std::exception_ptr& failure) {
        for (; first < pending_.size(); ++first) {
            pending_[first]->fail(failure);
        }
    }
    // Returns whether the connection can be kept.
    bool exchange(Channel& channel);

    // Made in time: a promise that breaks without memory would end the process.
    const std::exception_ptr abandoned_ =
        std::make_exception_ptr(std::future_error(std::future_errc::broken_promise));
    Pool& pool_;
    Encoder encoder_;
    std::vector<std::unique_ptr<Pending>> pending_;
    std::string bytes_;         // of all requests
    std::size_t answered_ = 0;  // calls that run() has completed
};

void Requests::run(milliseconds timeout) {
    const auto forget = [this] {
        pending_.clear();
        bytes_.clear();
    };
    answered_ = 0;
    try {
        const std::string what = "a batch of " + std::to_string(size()) + " calls";
        Call call(pool_, what.c_str(), timeout);
        try {
            if (exchange(call.channel())) {
                call.keep();
            }
        } catch (...) {
            call.fail();
        }
    } catch (...) {
        failFrom(answered_, std::current_exception());
        forget();
        throw;
    }
    forget();
}

// Writes requests and reads replies in turn. The unanswered requests always fit into the system's
// buffers, so writing never waits for the peer, which might be waiting for this side to read.
// Requests are written when reading would wait, and then many in one write: a unix socket's buffer
// has room for only about 200 writes, even short ones.
bool Requests::exchange(Channel& channel) {
    const std::size_t window = settings().batchWindow;
    const auto* next = reinterpret_cast<const uint8_t*>(bytes_.data());
    std::size_t sent = 0;
    std::size_t waiting = 0;  // bytes of requests without a reply
    bool canKeep = true;
    for (; answered_ < pending_.size(); ++answered_) {
        Pending& oldest = *pending_[answered_];
        if (answered_ == sent || (!channel.buffer->hasInput() && waiting <= window / 2)) {
            std::size_t size = 0;
            while (sent < pending_.size() &&
                   (waiting + size == 0 || waiting + size + pending_[sent]->size <= window)) {
                size += pending_[sent++]->size;
            }
            channel.socket->write(next, static_cast<uint32_t>(size));
            next += size;
            waiting += size;
        }
        canKeep = oldest.receive(channel.protocol) && canKeep;
        waiting -= oldest.size;
    }
    return canKeep;
}

}  // namespace host

Batch::Batch(Remote& remote) : requests_(new host::Requests(*remote.pool_)) {
}

Batch::~Batch() = default;

std::size_t Batch::size() const {
    return requests_->size();
}

void Batch::run() {
    run(requests_->settings().callTimeout);
}

void Batch::run(std::chrono::milliseconds timeout) {
    // A time-out of more than a year, which settings cannot have either, might overflow a time
    // point.
    timeout = std::clamp<std::chrono::milliseconds>(timeout, std::chrono::milliseconds(0),
                                                    std::chrono::hours(24 * 365));
    if (size() > 0) {
        requests_->run(timeout);
    }
}

BrokerBatch::BrokerBatch(RemoteBroker& broker) : Batch(broker) {
}

BrokerBatch::~BrokerBatch() = default;

std::future<ConnectionInfo> BrokerBatch::OpenEmp(const std::string& name,
                                                 const std::string& version,
                                                 const std::string& credential) {
    return requests_->add<TavBrokerClient>(
        [&](TavBrokerClient& client) { client.send_OpenEmp(name, version, credential); },
        [](TavBrokerClient& client) {
            ConnectionInfo result;
            client.recv_OpenEmp(result);
            return result;
        });
}

std::future<std::string> BrokerBatch::Execute(int32_t fromPort, const std::string& cmd,
                                              const std::string& param1, const std::string& param2,
                                              const std::string& param3,
                                              const std::string& param4) {
    return requests_->add<TavBrokerClient>(
        [&](TavBrokerClient& client) {
            client.send_Execute(fromPort, cmd, param1, param2, param3, param4);
        },
        [](TavBrokerClient& client) {
            std::string result;
            client.recv_Execute(result);
            return result;
        });
}

std::future<bool> BrokerBatch::CloseEmp(const ConnectionInfo& connectionInfo) {
    return requests_->add<TavBrokerClient>(
        [&](TavBrokerClient& client) { client.send_CloseEmp(connectionInfo); },
        [](TavBrokerClient& client) { return client.recv_CloseEmp(); });
}

EmpBatch::EmpBatch(RemoteEmp& emp) : Batch(emp) {
}

EmpBatch::~EmpBatch() = default;

std::future<bool> EmpBatch::Open(int32_t clientID, const std::string& name,
                                 const std::string& version, const std::string& credential) {
    return requests_->add<TavEmpClient>(
        [&](TavEmpClient& client) { client.send_Open(clientID, name, version, credential); },
        [](TavEmpClient& client) { return client.recv_Open(); });
}

std::future<int32_t> EmpBatch::Close(int32_t clientID) {
    return requests_->add<TavEmpClient>([&](TavEmpClient& client) { client.send_Close(clientID); },
                                        [](TavEmpClient& client) { return client.recv_Close(); });
}

std::future<std::string> EmpBatch::Execute(int32_t clientID, const std::string& cmd,
                                           const std::string& param1, const std::string& param2,
                                           const std::string& param3, const std::string& param4) {
    return requests_->add<TavEmpClient>(
        [&](TavEmpClient& client) {
            client.send_Execute(clientID, cmd, param1, param2, param3, param4);
        },
        [](TavEmpClient& client) {
            std::string result;
            client.recv_Execute(result);
            return result;
        });
}

std::future<std::string> EmpBatch::ExecuteWithParamList(int32_t clientID, const std::string& cmd,
                                                        const ParamList& paramList) {
    return requests_->add<TavEmpClient>(
        [&](TavEmpClient& client) { client.send_ExecuteWithParamList(clientID, cmd, paramList); },
        [](TavEmpClient& client) {
            std::string result;
            client.recv_ExecuteWithParamList(result);
            return result;
        });
}

CallbackBatch::CallbackBatch(RemoteCallback& callback) : Batch(callback) {
}

CallbackBatch::~CallbackBatch() = default;

void CallbackBatch::Callback(int32_t eventType, const std::string& param1,
                             const std::string& param2) {
    requests_->addOneWay<TavEmpEventClient>(
        [&](TavEmpEventClient& client) { client.Callback(eventType, param1, param2); });
}

}  // namespace TavIDL
