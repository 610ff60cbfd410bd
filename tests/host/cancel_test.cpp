#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <vector>

#include "Calls.h"

using calls::CallFailed;
using calls::failureOf;
using calls::Messages;
using calls::Running;
using testing::EndsWith;

namespace {

// The calls here would wait for an hour. (They would still say that they were cancelled.)
class CancelTest : public calls::EachWay {
protected:
    static TavIDL::Settings patient(TavIDL::Settings settings) {
        settings.callTimeout = std::chrono::hours(1);
        settings.connectTimeout = std::chrono::hours(1);
        settings.maxConnections = 1;
        return settings;
    }

    // A connection that the listener's queue has no room for waits.
    void fillListener() {
        const std::string address = listener_.address();
        listener_.close();
        full_ = std::make_unique<peers::Listener>(address, 0);
        TavIDL::Settings settings = this->settings();
        settings.connectTimeout = std::chrono::milliseconds(50);
        try {
            for (;;) {
                others_.push_back(TavIDL::Connection::open(address, settings));
            }
        } catch (const CallFailed&) {
        }
    }

    peers::Listener listener_{where()};
    std::unique_ptr<peers::Listener> full_;
    std::vector<std::shared_ptr<TavIDL::Connection>> others_;
    std::unique_ptr<TavIDL::RemoteEmp> emp_ =
        std::make_unique<TavIDL::RemoteEmp>(listener_.address(), patient(settings()));
    const Messages messages_{settings()};
    const std::string request_ = messages_.request("read");
};

ON_EACH_WAY(CancelTest);

TEST_P(CancelTest, EndsACallThatWaitsForItsReply) {
    Running call([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    emp_->cancel();
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::Cancelled);
    EXPECT_TRUE(failure.sent());
    EXPECT_THAT(failure.what(), EndsWith(": cancelled"));
}

TEST_P(CancelTest, EndsACallOverAConnectionThatWasUsedBefore) {
    Running first([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(messages_.reply("21.5"));
    first.result();
    Running second([&] { return execute(*emp_, "read"); });
    peer.receive(request_.size());
    emp_->cancel();
    EXPECT_EQ(second.failure().reason(), CallFailed::Cancelled);
}

TEST_P(CancelTest, EndsACallInTheMiddleOfItsReply) {
    Running call([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.drip(messages_.reply("21.5").substr(0, 6));
    emp_->cancel();
    EXPECT_EQ(call.failure().reason(), CallFailed::Cancelled);
}

TEST_P(CancelTest, EndsACallThatWaitsForItsRequestToBeRead) {
    const std::string text(64 << 20, 't');
    Running call([&] { return execute(*emp_, "read", text); });
    peers::Peer peer = listener_.accept();
    peer.receive(1);
    call.waitUntilAsleep();
    emp_->cancel();
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::Cancelled);
    EXPECT_TRUE(failure.sent());
}

TEST_P(CancelTest, EndsACallThatIsStillConnecting) {
    fillListener();
    Running call([&] { return execute(*emp_, "read"); });
    call.waitUntilAsleep();
    emp_->cancel();
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::Cancelled);
    EXPECT_FALSE(failure.sent());
}

TEST_P(CancelTest, EndsACallThatWaitsForAConnection) {
    Running first([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    Running second([&] { return execute(*emp_, "read"); });
    second.waitUntilAsleep();
    emp_->cancel();
    const CallFailed failure = second.failure();
    EXPECT_EQ(failure.reason(), CallFailed::Cancelled);
    EXPECT_FALSE(failure.sent());
    EXPECT_EQ(first.failure().reason(), CallFailed::Cancelled);
}

// Nothing can interrupt what the user's function waits for.
TEST_P(CancelTest, EndsACallThatWaitsForAConnectionThatAStuckCallHas) {
    std::promise<void> leave;
    TavIDL::Settings settings = patient(this->settings());
    settings.makeProtocol = [left = leave.get_future().share()](const auto& transport) {
        left.wait();
        return std::make_shared<apache::thrift::protocol::TBinaryProtocol>(transport);
    };
    TavIDL::RemoteEmp emp(listener_.address(), settings);
    Running first([&] { return execute(emp, "read"); });
    const peers::Peer peer = listener_.accept();
    Running second([&] { return execute(emp, "read"); });
    second.waitUntilAsleep();
    emp.cancel();
    EXPECT_EQ(second.failure().reason(), CallFailed::Cancelled);
    leave.set_value();
    EXPECT_EQ(first.failure().reason(), CallFailed::Cancelled);
}

TEST_P(CancelTest, EndsABatchAndAllItsCalls) {
    TavIDL::EmpBatch batch(*emp_);
    std::future<std::string> first = batch.Execute(7, "read", "", "", "", "");
    std::future<std::string> second = batch.Execute(7, "read", "", "", "", "");
    Running run([&] {
        batch.run();
        return "";
    });
    peers::Peer peer = listener_.accept();
    peer.receive(2 * request_.size());
    emp_->cancel();
    EXPECT_EQ(run.failure().reason(), CallFailed::Cancelled);
    EXPECT_EQ(failureOf([&] { first.get(); }).reason(), CallFailed::Cancelled);
    EXPECT_EQ(failureOf([&] { second.get(); }).reason(), CallFailed::Cancelled);
}

TEST_P(CancelTest, DoesNotAffectLaterCalls) {
    Running cancelled([&] { return execute(*emp_, "read"); });
    listener_.accept().receive(request_.size());
    emp_->cancel();
    EXPECT_THROW(cancelled.result(), CallFailed);
    Running call([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(messages_.reply("21.5"));
    EXPECT_EQ(call.result(), "21.5");
}

TEST_P(CancelTest, KeepsIdleConnections) {
    Running first([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(messages_.reply("21.5"));
    first.result();
    emp_->cancel();
    Running second([&] { return execute(*emp_, "read"); });
    EXPECT_EQ(peer.receive(request_.size()), request_);
    peer.send(messages_.reply("21.5"));
    EXPECT_EQ(second.result(), "21.5");
}

TEST_P(CancelTest, HappensWhenTheObjectIsDestroyedDuringCalls) {
    Running first([&] { return execute(*emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    Running second([emp = emp_.get()] { return execute(*emp, "read"); });
    second.waitUntilAsleep();
    emp_.reset();
    EXPECT_EQ(first.failure().reason(), CallFailed::Cancelled);
    EXPECT_EQ(second.failure().reason(), CallFailed::Cancelled);
}

TEST_P(CancelTest, IsPossibleAtAnyTimeFromAnyThread) {
    std::atomic<bool> done{false};
    Running peer([&] {
        while (!done) {
            peers::Peer accepted = listener_.accept();
            accepted.receiveRest();
        }
        return "";
    });
    for (int i = 0; i < 20; ++i) {
        Running call([&] { return execute(*emp_, "read"); });
        while (!call.hasEnded()) {
            emp_->cancel();
        }
        EXPECT_EQ(call.failure().reason(), CallFailed::Cancelled);
    }
    done = true;
    TavIDL::Connection::open(listener_.address());  // wakes the peer
    peer.result();
}

}  // namespace
