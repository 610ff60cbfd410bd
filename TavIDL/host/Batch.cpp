#include <TavIDL/host/Batch.h>
#include <thrift/transport/TBufferTransports.h>

#include <functional>
#include <utility>
#include <vector>

#include "pool.h"

namespace TavIDL {

using apache::thrift::transport::TMemoryBuffer;

namespace {

// A call that waits for run().
struct Encoded {
    std::string request;
    // Reads the reply and fulfils the promise. Not there for a one-way call, like `fail`.
    std::function<void(const ProtocolPointer&)> receive;
    std::function<void(const std::exception_ptr&)> fail;
};

// Encodes calls as they go over the wire.
class Encoder {
public:
    explicit Encoder(const Settings& settings)
        : settings_(settings), memory_(std::make_shared<TMemoryBuffer>()) {}

    template <typename Client, typename Send>
    std::string encode(Send send) {
        try {
            if (!protocol_) {
                protocol_ = host::protocolOver(host::framesOver(memory_, settings_), settings_);
            }
            Client client(protocol_);
            send(client);
            std::string request = memory_->getBufferAsString();
            memory_->resetBuffer();
            return request;
        } catch (...) {
            // There may be half a message, in frames too.
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

struct __attribute__((visibility("hidden"))) Batch::Calls {
    explicit Calls(host::Pool& to) : pool(to), encoder(to.settings()) {}

    template <typename Client, typename Send, typename Receive>
    auto add(Send send, Receive receive)
        -> std::future<decltype(receive(std::declval<Client&>()))> {
        using Result = decltype(receive(std::declval<Client&>()));
        const auto promise = std::make_shared<std::promise<Result>>();
        encoded.push_back(
            {encoder.encode<Client>(send),
             [promise, receive](const ProtocolPointer& protocol) {
                 Client client(protocol);
                 try {
                     promise->set_value(receive(client));
                 } catch (const apache::thrift::TApplicationException&) {
                     promise->set_exception(std::current_exception());
                 }
             },
             [promise](const std::exception_ptr& failure) { promise->set_exception(failure); }});
        return promise->get_future();
    }

    void exchange(host::Call& call, const std::vector<Encoded>& calls, std::size_t& answered);

    host::Pool& pool;
    Encoder encoder;
    std::vector<Encoded> encoded;
};

// Writes requests and reads replies, always in this order: no more requests are ever without a
// reply than fit the system's buffers, so writing them never waits for the peer, which could wait
// for this side to read. More are written when reading would otherwise wait.
void Batch::Calls::exchange(host::Call& call, const std::vector<Encoded>& calls,
                            std::size_t& answered) {
    const std::size_t window = pool.settings().batchWindow;
    host::Channel& channel = call.channel();
    std::size_t sent = 0;
    std::size_t waiting = 0;  // bytes of requests without a reply
    std::string next;
    while (answered < calls.size()) {
        if (answered == sent || !channel.buffer->hasInput()) {
            next.clear();
            while (sent < calls.size() &&
                   (waiting == 0 || waiting + calls[sent].request.size() <= window)) {
                waiting += calls[sent].request.size();
                next += calls[sent++].request;
            }
            channel.socket->write(reinterpret_cast<const uint8_t*>(next.data()),
                                  static_cast<uint32_t>(next.size()));
        }
        const Encoded& oldest = calls[answered];
        if (oldest.receive) {
            oldest.receive(channel.protocol);
        }
        waiting -= oldest.request.size();
        ++answered;
    }
}

Batch::Batch(Remote& remote) : calls_(new Calls(*remote.pool_)) {
}

Batch::~Batch() = default;

std::size_t Batch::size() const {
    return calls_->encoded.size();
}

void Batch::run() {
    run(calls_->pool.settings().callTimeout);
}

void Batch::run(std::chrono::milliseconds timeout) {
    std::vector<Encoded> calls;
    calls.swap(calls_->encoded);
    if (calls.empty()) {
        return;
    }
    const std::string what = "a batch of " + std::to_string(calls.size()) + " calls";
    std::size_t answered = 0;
    try {
        host::Call call(calls_->pool, what.c_str(), timeout);
        try {
            calls_->exchange(call, calls, answered);
        } catch (...) {
            call.fail();
        }
        call.keep();
    } catch (...) {
        for (; answered < calls.size(); ++answered) {
            if (calls[answered].fail) {
                calls[answered].fail(std::current_exception());
            }
        }
        throw;
    }
}

std::future<ConnectionInfo> BrokerBatch::OpenEmp(const std::string& name,
                                                 const std::string& version,
                                                 const std::string& credential) {
    return calls_->add<TavBrokerClient>(
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
    return calls_->add<TavBrokerClient>(
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
    return calls_->add<TavBrokerClient>(
        [&](TavBrokerClient& client) { client.send_CloseEmp(connectionInfo); },
        [](TavBrokerClient& client) { return client.recv_CloseEmp(); });
}

std::future<bool> EmpBatch::Open(int32_t clientID, const std::string& name,
                                 const std::string& version, const std::string& credential) {
    return calls_->add<TavEmpClient>(
        [&](TavEmpClient& client) { client.send_Open(clientID, name, version, credential); },
        [](TavEmpClient& client) { return client.recv_Open(); });
}

std::future<int32_t> EmpBatch::Close(int32_t clientID) {
    return calls_->add<TavEmpClient>([&](TavEmpClient& client) { client.send_Close(clientID); },
                                     [](TavEmpClient& client) { return client.recv_Close(); });
}

std::future<std::string> EmpBatch::Execute(int32_t clientID, const std::string& cmd,
                                           const std::string& param1, const std::string& param2,
                                           const std::string& param3, const std::string& param4) {
    return calls_->add<TavEmpClient>(
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
    return calls_->add<TavEmpClient>(
        [&](TavEmpClient& client) { client.send_ExecuteWithParamList(clientID, cmd, paramList); },
        [](TavEmpClient& client) {
            std::string result;
            client.recv_ExecuteWithParamList(result);
            return result;
        });
}

void CallbackBatch::Callback(int32_t eventType, const std::string& param1,
                             const std::string& param2) {
    calls_->encoded.push_back(
        {calls_->encoder.encode<TavEmpEventClient>(
             [&](TavEmpEventClient& client) { client.Callback(eventType, param1, param2); }),
         nullptr, nullptr});
}

}  // namespace TavIDL
