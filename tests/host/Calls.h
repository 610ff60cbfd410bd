#ifndef TESTS_HOST_CALLS_H
#define TESTS_HOST_CALLS_H

#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Settings.h>
#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "Emp.h"
#include "Peer.h"

namespace TavIDL {

// For the messages of failing tests.
inline void PrintTo(CallFailed::Reason reason, std::ostream* out) {
    static const char* const names[] = {"CannotConnect", "NoAnswerInTime", "ConnectionClosed",
                                        "NotOurProtocol", "Cancelled"};
    *out << names[reason];
}

}  // namespace TavIDL

namespace calls {

using TavIDL::CallFailed;
using TavIDL::Settings;

// How both sides communicate.
struct Way {
    const char* name;
    const char* address;  // where to listen; empty for a unix socket
    Settings::Protocol protocol = Settings::Binary;
    bool framed = false;

    Settings settings() const {
        Settings made;
        made.protocol = protocol;
        made.framed = framed;
        return made;
    }
};

inline void PrintTo(const Way& way, std::ostream* out) {
    *out << way.name;
}

inline std::string nameOf(const testing::TestParamInfo<Way>& info) {
    return info.param.name;
}

constexpr Way kTcp = {"Tcp", "127.0.0.1:0"};
constexpr Way kIpv6 = {"Ipv6", "[::1]:0"};
constexpr Way kUnix = {"Unix", ""};
constexpr Way kFramed = {"Framed", "127.0.0.1:0", Settings::Binary, true};
constexpr Way kCompact = {"Compact", "127.0.0.1:0", Settings::Compact};
constexpr Way kUnixFramedCompact = {"UnixFramedCompact", "", Settings::Compact, true};

// Tests that run with each way.
class EachWay : public testing::TestWithParam<Way> {
protected:
    void SetUp() override {
        if (std::string(GetParam().address) == kIpv6.address && !peers::hasIpv6()) {
            GTEST_SKIP() << "this machine has no IPv6";
        }
    }

    std::string where() const {
        return *GetParam().address != '\0' ? GetParam().address : directory_.socket();
    }
    Settings settings() const { return GetParam().settings(); }

private:
    peers::Directory directory_;
};

#define ON_EACH_WAY(Suite)                                                                        \
    INSTANTIATE_TEST_SUITE_P(                                                                     \
        , Suite,                                                                                  \
        testing::Values(calls::kTcp, calls::kIpv6, calls::kUnix, calls::kFramed, calls::kCompact, \
                        calls::kUnixFramedCompact),                                               \
        calls::nameOf)

// The bytes of messages, from libthrift's own transports and protocols.
class Messages {
public:
    explicit Messages(Settings settings) : settings_(std::move(settings)) {}

    template <typename Client, typename Send>
    std::string messageOf(Send send) const {
        const auto memory = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
        Client client(over(memory));
        send(client);
        return memory->getBufferAsString();
    }

    std::string reply(const std::string& request, std::shared_ptr<TavEmpIf> emp) const {
        const auto in = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
        const auto out = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
        in->write(reinterpret_cast<const uint8_t*>(request.data()),
                  static_cast<uint32_t>(request.size()));
        TavEmpProcessor(std::move(emp)).process(over(in), over(out), nullptr);
        return out->getBufferAsString();
    }

    // Of execute(emp, cmd, param1).
    std::string request(const std::string& cmd, const std::string& param1 = "") const {
        return messageOf<TavEmpClient>(
            [&](TavEmpClient& client) { client.send_Execute(7, cmd, param1, "", "", ""); });
    }
    // Its result.
    std::string reply(const std::string& result) const {
        return reply(
            request("read"),
            std::make_shared<Emp>([&](const std::string&, const std::string&) { return result; }));
    }

private:
    TavIDL::ProtocolPointer over(
        std::shared_ptr<apache::thrift::transport::TTransport> transport) const {
        if (settings_.framed) {
            transport = std::make_shared<apache::thrift::transport::TFramedTransport>(transport);
        }
        if (settings_.protocol == Settings::Compact) {
            return std::make_shared<apache::thrift::protocol::TCompactProtocol>(transport);
        }
        return std::make_shared<apache::thrift::protocol::TBinaryProtocol>(transport);
    }

    const Settings settings_;
};

// Returns what `call` throws.
template <typename Call>
CallFailed failureOf(Call call) {
    try {
        call();
    } catch (const CallFailed& failure) {
        return failure;
    }
    throw std::logic_error("the call did not fail");
}

// A call in its own thread.
class Running {
public:
    template <typename Call>
    explicit Running(Call call) {
        std::promise<long> started;
        result_ = std::async(std::launch::async, [call, &started] {
            started.set_value(peers::thisThread());
            return std::string(call());
        });
        thread_ = started.get_future().get();
    }

    void waitUntilAsleep() const { peers::waitUntilAsleep(thread_); }
    bool hasEnded() const {
        return result_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    // Throws what the call threw.
    std::string result() { return result_.get(); }
    CallFailed failure() {
        return failureOf([this] { result_.get(); });
    }

private:
    std::future<std::string> result_;
    long thread_ = 0;
};

}  // namespace calls

#endif
