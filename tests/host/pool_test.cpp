#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "Calls.h"
#include "Clock.h"

using calls::CallFailed;
using calls::failureOf;
using calls::Messages;
using calls::Running;

namespace {

class PoolTest : public calls::EachWay {
protected:
    // Answers a call of execute(emp_, "read") and returns its connection.
    peers::Peer answerOnNewConnection() {
        Running call([&] { return execute(emp_, "read"); });
        peers::Peer peer = listener_->accept();
        answer(peer);
        call.result();
        return peer;
    }
    void answer(peers::Peer& peer) {
        EXPECT_EQ(peer.receive(request_.size()), request_);
        peer.send(messages_.reply("21.5"));
    }
    // Leaves this many idle connections in the pool.
    std::vector<peers::Peer> makeIdle(int count) {
        std::vector<std::unique_ptr<Running>> calls;
        std::vector<peers::Peer> made;
        for (int i = 0; i < count; ++i) {
            calls.push_back(std::make_unique<Running>([&] { return execute(emp_, "read"); }));
            made.push_back(listener_->accept());
        }
        for (std::size_t i = 0; i < made.size(); ++i) {
            answer(made[i]);
            calls[i]->result();
        }
        return made;
    }
    // Closes the connections and listens again.
    void restart(std::vector<peers::Peer>& connections) {
        const std::string address = listener_->address();
        connections.clear();
        listener_.reset();
        listener_ = std::make_unique<peers::Listener>(address);
    }

    std::unique_ptr<peers::Listener> listener_ = std::make_unique<peers::Listener>(where());
    TavIDL::RemoteEmp emp_{listener_->address(), settings()};
    const Messages messages_{settings()};
    const std::string request_ = messages_.request("read");
};

ON_EACH_WAY(PoolTest);

TEST_P(PoolTest, UsesTheMostRecentlyUsedConnection) {
    std::vector<peers::Peer> idle = makeIdle(3);
    Running call([&] { return execute(emp_, "read"); });
    answer(idle.back());
    EXPECT_EQ(call.result(), "21.5");
}

TEST_P(PoolTest, DoesNotNoticeARestartIfItIsEmpty) {
    std::vector<peers::Peer> none;
    restart(none);
    answerOnNewConnection();
}

TEST_P(PoolTest, LosesOneCallToARestartIfItsConnectionWasUsedJustBefore) {
    const substitutes::StoppedClock clock;
    std::vector<peers::Peer> idle = makeIdle(1);
    restart(idle);
    EXPECT_EQ(failureOf([&] { execute(emp_, "read"); }).reason(), CallFailed::ConnectionClosed);
    EXPECT_FALSE(listener_->hasVisitor()) << "the call was sent twice";
    answerOnNewConnection();
}

TEST_P(PoolTest, HasNotSentACallIfItsConnectionWasResetJustBefore) {
    const substitutes::StoppedClock clock;
    std::vector<peers::Peer> idle = makeIdle(1);
    idle[0].reset();
    const CallFailed failure = failureOf([&] { execute(emp_, "read"); });
    EXPECT_EQ(failure.reason(), CallFailed::ConnectionClosed);
    EXPECT_FALSE(failure.sent());
    EXPECT_THAT(failure.what(), testing::HasSubstr(": the connection was closed: cannot send: "));
}

TEST_P(PoolTest, LosesOneCallToARestartEvenIfSeveralConnectionsAreIdle) {
    const substitutes::StoppedClock clock;
    std::vector<peers::Peer> idle = makeIdle(4);
    restart(idle);
    EXPECT_EQ(failureOf([&] { execute(emp_, "read"); }).reason(), CallFailed::ConnectionClosed);
    EXPECT_FALSE(listener_->hasVisitor()) << "the call was sent twice";
    answerOnNewConnection();
}

TEST_P(PoolTest, LosesNoCallToARestartIfItsConnectionsWereIdleForMoreThanASecond) {
    std::vector<peers::Peer> idle = makeIdle(4);
    restart(idle);
    substitutes::passTime(std::chrono::milliseconds(1001));
    answerOnNewConnection();
}

TEST_P(PoolTest, KeepsConnectionsThatWereIdleForMoreThanASecond) {
    std::vector<peers::Peer> idle = makeIdle(1);
    substitutes::passTime(std::chrono::milliseconds(1001));
    Running call([&] { return execute(emp_, "read"); });
    answer(idle.back());
    EXPECT_EQ(call.result(), "21.5");
    EXPECT_FALSE(listener_->hasVisitor());
}

TEST_P(PoolTest, ClosesAnIdleConnectionOnWhichThePeerHasWritten) {
    std::vector<peers::Peer> idle = makeIdle(1);
    idle.back().send(messages_.reply("wrong"));
    substitutes::passTime(std::chrono::milliseconds(1001));
    answerOnNewConnection();
}

TEST_P(PoolTest, LosesACallThatIsRunningDuringARestart) {
    Running call([&] { return execute(emp_, "read"); });
    std::vector<peers::Peer> inUse;
    inUse.push_back(listener_->accept());
    inUse.back().receive(request_.size());
    restart(inUse);
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::ConnectionClosed);
    EXPECT_TRUE(failure.sent());
    EXPECT_FALSE(listener_->hasVisitor()) << "the call was sent twice";
    answerOnNewConnection();
}

TEST_P(PoolTest, SendsACallThatWaitsForAConnectionToTheNewServer) {
    TavIDL::Settings settings = this->settings();
    settings.maxConnections = 1;
    TavIDL::RemoteEmp emp(listener_->address(), settings);
    Running first([&] { return execute(emp, "read"); });
    std::vector<peers::Peer> inUse;
    inUse.push_back(listener_->accept());
    inUse.back().receive(request_.size());
    Running second([&] { return execute(emp, "read"); });
    second.waitUntilAsleep();

    // Its connection must not end before there is a server to connect to.
    const std::string address = listener_->address();
    listener_.reset();
    listener_ = std::make_unique<peers::Listener>(address);
    inUse.clear();

    EXPECT_EQ(first.failure().reason(), CallFailed::ConnectionClosed);
    peers::Peer peer = listener_->accept();
    answer(peer);
    EXPECT_EQ(second.result(), "21.5");
}

TEST_P(PoolTest, HasNoMoreConnectionsThanMaxConnections) {
    TavIDL::Settings settings = this->settings();
    settings.maxConnections = 2;
    TavIDL::RemoteEmp emp(listener_->address(), settings);
    Running first([&] { return execute(emp, "read"); });
    peers::Peer one = listener_->accept();
    Running second([&] { return execute(emp, "read"); });
    peers::Peer two = listener_->accept();
    Running third([&] { return execute(emp, "read"); });
    third.waitUntilAsleep();
    EXPECT_FALSE(listener_->hasVisitor());
    answer(one);
    EXPECT_EQ(first.result(), "21.5");
    answer(one);
    EXPECT_EQ(third.result(), "21.5");
    answer(two);
    EXPECT_EQ(second.result(), "21.5");
}

// A thread that calls repeatedly must not prevent others from calling.
TEST_P(PoolTest, GivesAConnectionToTheCallThatHasWaitedLongest) {
    TavIDL::Settings settings = this->settings();
    settings.maxConnections = 1;
    TavIDL::RemoteEmp emp(listener_->address(), settings);
    Running greedy([&] {
        execute(emp, "read");
        return execute(emp, "greedy");
    });
    peers::Peer peer = listener_->accept();
    peer.receive(request_.size());
    Running patient([&] { return execute(emp, "patient"); });
    patient.waitUntilAsleep();
    Running second([&] { return execute(emp, "second"); });
    second.waitUntilAsleep();
    peer.send(messages_.reply("21.5"));
    for (const char* const cmd : {"patient", "second", "greedy"}) {
        const std::string next = messages_.request(cmd);
        EXPECT_EQ(peer.receive(next.size()), next);
        peer.send(messages_.reply("21.5"));
    }
    EXPECT_EQ(patient.result(), "21.5");
    EXPECT_EQ(second.result(), "21.5");
    EXPECT_EQ(greedy.result(), "21.5");
}

TEST_P(PoolTest, Serves64Threads) {
    listener_->close();
    const TavIDL::Server server(
        listener_->address(),
        std::make_shared<Emp>([](const std::string& cmd, const std::string&) { return cmd; }),
        settings());
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 64; ++i) {
        threads.emplace_back([&, own = std::to_string(i)] {
            for (int call = 0; call < 20; ++call) {
                const std::string cmd = own + "/" + std::to_string(call);
                wrong += execute(emp_, cmd) == cmd ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

// The listener's queue is full; then the listener is closed.
TEST(ConnectingPoolTest, ReportsThatItCouldNotSendIfTheServerEndsWhileItConnects) {
    const peers::Directory directory;
    auto listener = std::make_unique<peers::Listener>(directory.socket(), 0);
    TavIDL::RemoteEmp others(listener->address());
    const Messages messages{TavIDL::Settings()};
    Running queued([&] { return execute(others, "read"); });
    while (!listener->hasVisitor()) {
        std::this_thread::yield();
    }
    TavIDL::RemoteEmp emp(listener->address());
    Running connecting([&] { return execute(emp, "read"); });
    connecting.waitUntilAsleep();
    EXPECT_FALSE(connecting.hasEnded());
    listener.reset();
    const CallFailed failure = connecting.failure();
    EXPECT_EQ(failure.reason(), CallFailed::CannotConnect);
    EXPECT_FALSE(failure.sent());
    EXPECT_EQ(queued.failure().reason(), CallFailed::ConnectionClosed);

    listener = std::make_unique<peers::Listener>(directory.socket());
    Running call([&] { return execute(emp, "read"); });
    peers::Peer peer = listener->accept();
    peer.receive(messages.request("read").size());
    peer.send(messages.reply("21.5"));
    EXPECT_EQ(call.result(), "21.5");
}

}  // namespace
