#include <TavIDL/host/EmpSession.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Calls.h"
#include "Substitutes.h"

using calls::CallFailed;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

// Lines from several threads.
class Log {
public:
    void note(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
    }
    std::vector<std::string> lines() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

// Returns the ports that a test sets, and logs its calls.
class Broker : public TavBrokerIf {
public:
    explicit Broker(Log& log) : log_(log) { info.empID = "emp-7"; }

    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override {
        log_.note("OpenEmp " + name + " " + version + " " + credential);
        onOpen();
        result = info;
    }
    void Execute(std::string&, int32_t, const std::string&, const std::string&, const std::string&,
                 const std::string&, const std::string&) override {}
    bool CloseEmp(const ConnectionInfo& closed) override {
        log_.note("CloseEmp " + closed.empID);
        onClose();
        return answer;
    }

    ConnectionInfo info;
    std::function<void()> onOpen = [] {};
    std::function<void()> onClose = [] {};
    bool answer = true;

private:
    Log& log_;
};

int portOf(const std::string& address) {
    return std::stoi(address.substr(address.rfind(':') + 1));
}

class SessionTest : public testing::Test {
protected:
    SessionTest() {
        handler_->info.empServicePort = portOf(emp_.address());
        handler_->info.callbackServicePort = eventPort_.number();
        settings_.onFailure = [this](const std::string& failure) { failures_.note(failure); };
    }

    std::unique_ptr<TavIDL::EmpSession> open(TavIDL::EmpSession::OnEvent onEvent) {
        return std::make_unique<TavIDL::EmpSession>(*broker_, "thermometer", "1.0", "secret",
                                                    std::move(onEvent), settings_);
    }
    std::unique_ptr<TavIDL::EmpSession> open() {
        return open([this](int32_t type, const std::string& param1, const std::string& param2) {
            log_.note("event " + std::to_string(type) + " " + param1 + param2);
        });
    }
    // Without the calls of the broker, between which events may arrive.
    std::vector<std::string> events() const {
        std::vector<std::string> events;
        for (const std::string& line : log_.lines()) {
            if (line.compare(0, 6, "event ") == 0) {
                events.push_back(line);
            }
        }
        return events;
    }
    // Where the EMP sends its events.
    std::string callbackAddress() const {
        return ":" + std::to_string(handler_->info.callbackServicePort);
    }
    // For a program that uses a broker at another address.
    void serveBrokerAt(const std::string& address) {
        brokerServer_ = std::make_unique<TavIDL::Server>(address, handler_);
        broker_ = std::make_unique<TavIDL::RemoteBroker>(brokerServer_->address());
    }

    Log log_;
    Log failures_;
    TavIDL::Settings settings_;
    const std::shared_ptr<Broker> handler_ = std::make_shared<Broker>(log_);
    TavIDL::Server emp_{":0", std::make_shared<Emp>()};
    peers::ReservedPort eventPort_;
    std::unique_ptr<TavIDL::Server> brokerServer_ =
        std::make_unique<TavIDL::Server>(":0", handler_);
    std::unique_ptr<TavIDL::RemoteBroker> broker_ =
        std::make_unique<TavIDL::RemoteBroker>(brokerServer_->address());
};

TEST_F(SessionTest, OpensTheEmpCallsItAndClosesIt) {
    {
        const auto session = open();
        EXPECT_EQ(session->info().empID, "emp-7");
        EXPECT_TRUE((*session)->Open(7, "thermometer", "1.0", "secret"));
        EXPECT_EQ(execute(**session, "read"), "read done");
        EXPECT_THAT(log_.lines(), ElementsAre("OpenEmp thermometer 1.0 secret"));
    }
    EXPECT_THAT(log_.lines(), ElementsAre("OpenEmp thermometer 1.0 secret", "CloseEmp emp-7"));
    EXPECT_THAT(failures_.lines(), IsEmpty());
}

TEST_F(SessionTest, UsesTheBrokersSettingsByDefault) {
    TavIDL::Settings settings;
    settings.callTimeout = std::chrono::milliseconds(4711);
    TavIDL::RemoteBroker broker(brokerServer_->address(), settings);
    const TavIDL::EmpSession session(broker, "thermometer", "1.0", "secret");
    EXPECT_EQ(session->settings().callTimeout.count(), 4711);
    EXPECT_THAT(log_.lines(), ElementsAre("OpenEmp thermometer 1.0 secret"));
}

TEST_F(SessionTest, FindsTheEmpOnTheMachineOfABrokerBehindAUnixSocket) {
    const peers::Directory directory;
    serveBrokerAt(directory.socket());
    const auto session = open();
    EXPECT_EQ(execute(**session, "read"), "read done");
    TavIDL::RemoteCallback(callbackAddress()).Callback(1, "warm", "");
    session->close();
    EXPECT_THAT(events(), ElementsAre("event 1 warm"));
    broker_.reset();
    brokerServer_.reset();
}

TEST_F(SessionTest, FindsTheEmpOnTheMachineOfABrokerAtAnIpv6Address) {
    if (!peers::hasIpv6()) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    serveBrokerAt("[::1]:0");
    const TavIDL::Server emp("[::1]:0", std::make_shared<Emp>());
    handler_->info.empServicePort = portOf(emp.address());
    const auto session = open();
    EXPECT_EQ(execute(**session, "read"), "read done");
    TavIDL::RemoteCallback("[::1]" + callbackAddress()).Callback(1, "warm", "");
    session->close();
    EXPECT_THAT(events(), ElementsAre("event 1 warm"));
}

// The host name's first address is not the broker's.
TEST_F(SessionTest, ListensForEventsOnTheAddressThatReachesTheBroker) {
    TavIDL::RemoteBroker broker(substitutes::kBothLoopbacks + std::string(":") +
                                std::to_string(portOf(brokerServer_->address())));
    TavIDL::EmpSession session(
        broker, "", "", "",
        [this](int32_t, const std::string& text, const std::string&) {
            log_.note("event " + text);
        },
        settings_);
    EXPECT_NO_THROW(TavIDL::RemoteCallback(callbackAddress()).Callback(1, "warm", ""));
    session.close();
    EXPECT_THAT(events(), ElementsAre("event warm"));
}

TEST_F(SessionTest, DeliversEventsInOrder) {
    const auto session = open();
    TavIDL::RemoteCallback callback(callbackAddress());
    callback.Callback(1, "warm", "er");
    callback.Callback(2, "hot", "");
    session->close();
    EXPECT_THAT(events(), ElementsAre("event 1 warmer", "event 2 hot"));
}

TEST_F(SessionTest, DeliversEventsThatTheEmpSendsWhileItIsClosed) {
    handler_->onClose = [this] {
        TavIDL::RemoteCallback(callbackAddress()).Callback(3, "closed", "");
    };
    open()->close();
    EXPECT_THAT(events(), ElementsAre("event 3 closed"));
}

TEST_F(SessionTest, DeliversLongEventsThatTheEmpSendsWhileItIsClosed) {
    const std::string text(1'000'000, 't');
    std::size_t got = 0;
    handler_->onClose = [&] {
        TavIDL::RemoteCallback callback(callbackAddress());
        for (int i = 0; i < 5; ++i) {
            callback.Callback(3, text, "");
        }
    };
    const auto session =
        open([&](int32_t, const std::string& param1, const std::string&) { got += param1.size(); });
    session->close();
    EXPECT_EQ(got, 5'000'000U);
}

TEST_F(SessionTest, CallsTheFunctionForOneEventAtATime) {
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    int events = 0;
    const auto session = open([&](int32_t, const std::string&, const std::string&) {
        most = std::max<int>(most, ++running);
        ++events;  // not atomic: the thread sanitizer would notice
        --running;
    });
    std::vector<std::unique_ptr<calls::Running>> senders;
    for (int i = 0; i < 4; ++i) {
        senders.push_back(std::make_unique<calls::Running>([&] {
            TavIDL::RemoteCallback callback(callbackAddress());
            for (int count = 0; count < 100; ++count) {
                callback.Callback(1, "", "");
            }
            return "";
        }));
    }
    for (const auto& sender : senders) {
        sender->result();
    }
    session->close();
    EXPECT_EQ(events, 400);
    EXPECT_EQ(most, 1);
}

TEST_F(SessionTest, DoesNotListenIfTheCallbackServicePortIs0) {
    handler_->info.callbackServicePort = 0;
    const auto session = open();
    EXPECT_EQ(execute(**session, "read"), "read done");
    EXPECT_TRUE(session->close());
}

TEST_F(SessionTest, DoesNotListenWithoutAFunctionForEvents) {
    const auto session = open(nullptr);
    EXPECT_THROW(TavIDL::RemoteCallback(callbackAddress()).Callback(1, "", ""), CallFailed);
}

TEST_F(SessionTest, ContinuesAfterTheFunctionForEventsThrows) {
    const auto session = open([this](int32_t type, const std::string& text, const std::string&) {
        if (type == 1) {
            throw std::runtime_error("no room for it");
        }
        log_.note("event " + text);
    });
    TavIDL::RemoteCallback callback(callbackAddress());
    callback.Callback(1, "warm", "");
    callback.Callback(2, "hot", "");
    session->close();
    EXPECT_THAT(events(), ElementsAre("event hot"));
    EXPECT_THAT(failures_.lines(), ElementsAre("event 1: no room for it"));
}

TEST_F(SessionTest, ContinuesAfterTheFunctionForEventsThrowsANonStandardException) {
    settings_.onFailure = [this](const std::string& failure) {
        failures_.note(failure);
        throw std::runtime_error("nor that");
    };
    const auto session = open([this](int32_t type, const std::string& text, const std::string&) {
        if (type == 1) {
            throw 42;
        }
        log_.note("event " + text);
    });
    TavIDL::RemoteCallback callback(callbackAddress());
    callback.Callback(1, "warm", "");
    callback.Callback(2, "hot", "");
    session->close();
    EXPECT_THAT(events(), ElementsAre("event hot"));
    EXPECT_THAT(failures_.lines(),
                ElementsAre("event 1: the function threw something that is not a std::exception"));
}

TEST_F(SessionTest, NeedsNoFunctionForFailures) {
    settings_.onFailure = nullptr;
    auto session = open([this](int32_t type, const std::string& text, const std::string&) {
        if (type == 1) {
            throw std::runtime_error("no room for it");
        }
        log_.note("event " + text);
    });
    TavIDL::RemoteCallback callback(callbackAddress());
    callback.Callback(1, "warm", "");
    callback.Callback(2, "hot", "");
    brokerServer_.reset();
    EXPECT_NO_THROW(session.reset());
    EXPECT_THAT(events(), ElementsAre("event hot"));
}

TEST_F(SessionTest, CannotBeConstructedIfTheBrokerDoesNotOpenTheEmp) {
    handler_->onOpen = [] { throw std::runtime_error("no such EMP"); };
    EXPECT_THROW(open(), apache::thrift::TApplicationException);
    EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("OpenEmp")));
}

TEST_F(SessionTest, ClosesTheEmpIfThePortForEventsIsInUse) {
    const peers::Listener other;
    handler_->info.callbackServicePort = portOf(other.address());
    try {
        open();
        FAIL() << "opened";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::address_in_use);
    }
    EXPECT_THAT(log_.lines(), ElementsAre(StartsWith("OpenEmp"), "CloseEmp emp-7"));
}

TEST_F(SessionTest, ClosesTheEmpIfAPortIsInvalid) {
    for (const int32_t port : {-1, 65536, INT32_MAX, INT32_MIN}) {
        handler_->info.callbackServicePort = port;
        EXPECT_THROW(open(), std::runtime_error) << port;
        EXPECT_EQ(log_.lines().back(), "CloseEmp emp-7");
    }
    handler_->info.callbackServicePort = 0;
    for (const int32_t port : {0, -1, 65536}) {
        handler_->info.empServicePort = port;
        EXPECT_THROW(open(), std::runtime_error) << port;
        EXPECT_EQ(log_.lines().back(), "CloseEmp emp-7");
    }
    EXPECT_EQ(log_.lines().size(), 14U);
}

TEST_F(SessionTest, AcceptsTheLowestAndTheHighestPort) {
    for (const int32_t port : {1, 65535}) {
        handler_->info.empServicePort = port;
        const auto session = open(nullptr);
        EXPECT_EQ((**session).address(), "127.0.0.1:" + std::to_string(port));
    }
}

TEST_F(SessionTest, SaysWhichPortIsInvalid) {
    handler_->info.empServicePort = 70000;
    try {
        open();
        FAIL() << "opened";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(),
                     "the broker gives empServicePort as 70000, which is not a port");
    }
}

TEST_F(SessionTest, ThrowsTheFirstFailureIfClosingTheEmpFailsToo) {
    handler_->info.empServicePort = 0;
    handler_->onClose = [] { throw std::logic_error("stuck"); };
    EXPECT_THROW(open(), std::runtime_error);
    EXPECT_THAT(failures_.lines(), ElementsAre("the EMP emp-7 may still be open: stuck"));
}

TEST_F(SessionTest, ReturnsTheBrokersAnswerEachTimeItIsClosed) {
    const auto yes = open();
    EXPECT_TRUE(yes->close());
    EXPECT_TRUE(yes->close());
    handler_->answer = false;
    const auto no = open();
    EXPECT_FALSE(no->close());
    EXPECT_FALSE(no->close());
    EXPECT_EQ(log_.lines().size(), 4U) << "closed twice";
}

TEST_F(SessionTest, ClosesEverythingElseEvenIfTheBrokerFails) {
    const auto session = open();
    brokerServer_.reset();
    EXPECT_THROW(session->close(), CallFailed);
    EXPECT_FALSE(session->close());
    EXPECT_THROW(TavIDL::RemoteCallback(callbackAddress()).Callback(1, "", ""), CallFailed);
}

TEST_F(SessionTest, ReportsAFailureOfItsDestructor) {
    auto session = open();
    brokerServer_.reset();
    EXPECT_NO_THROW(session.reset());
    ASSERT_EQ(failures_.lines().size(), 1U);
    EXPECT_THAT(failures_.lines()[0],
                StartsWith("the EMP emp-7 may still be open: TavBroker.CloseEmp at "));
}

TEST_F(SessionTest, NeverThrowsFromItsDestructorEvenIfOnFailureThrows) {
    settings_.onFailure = [](const std::string&) { throw 42; };
    auto session = open();
    brokerServer_.reset();
    EXPECT_NO_THROW(session.reset());
}

TEST_F(SessionTest, CancelsCallsThatStillWaitWhenItIsClosed) {
    peers::Listener slowEmp;
    handler_->info.empServicePort = portOf(slowEmp.address());
    const auto session = open();
    calls::Running call([&] { return execute(**session, "read"); });
    peers::Peer peer = slowEmp.accept();
    peer.receive(1);
    session->close();
    EXPECT_EQ(call.failure().reason(), CallFailed::Cancelled);
}

TEST_F(SessionTest, CanBeClosedByManyThreads) {
    const auto session = open();
    std::vector<std::unique_ptr<calls::Running>> closers;
    for (int i = 0; i < 8; ++i) {
        closers.push_back(std::make_unique<calls::Running>(
            [&] { return session->close() ? "closed" : "still open"; }));
    }
    for (const auto& closer : closers) {
        EXPECT_EQ(closer->result(), "closed");
    }
    EXPECT_EQ(log_.lines().size(), 2U);
}

}  // namespace
