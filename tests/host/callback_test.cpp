#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Calls.h"
#include "Clock.h"

using calls::CallFailed;
using calls::failureOf;
using calls::Running;

namespace {

class CallbackTest : public calls::EachWay {
protected:
    // The bytes of an event.
    std::string event(int32_t type, const std::string& text) const {
        return calls::Messages(settings())
            .messageOf<TavEmpEventClient>(
                [&](TavEmpEventClient& client) { client.Callback(type, text, ""); });
    }
    void send(int32_t type, const std::string& text) { callback_->Callback(type, text, ""); }

    peers::Listener listener_{where()};
    std::unique_ptr<TavIDL::RemoteCallback> callback_ =
        std::make_unique<TavIDL::RemoteCallback>(listener_.address(), settings());
};

ON_EACH_WAY(CallbackTest);

TEST_P(CallbackTest, SendsEventsInOrderOverOneConnection) {
    std::string expected;
    for (int type = 0; type < 100; ++type) {
        send(type, "warm");
        expected += event(type, "warm");
    }
    EXPECT_EQ(listener_.accept().receive(expected.size()), expected);
    EXPECT_FALSE(listener_.hasVisitor());
}

// The first one is so long that it waits for the peer to read.
TEST_P(CallbackTest, SendsTheEventsOfSeveralThreadsOverOneConnection) {
    TavIDL::Settings settings = this->settings();
    settings.maxMessageSize = 32 << 20;
    TavIDL::RemoteCallback callback(listener_.address(), settings);
    const std::string text(16 << 20, 't');
    Running first([&] {
        callback.Callback(1, text, "");
        return "";
    });
    peers::Peer peer = listener_.accept();
    first.waitUntilAsleep();
    Running second([&] {
        callback.Callback(2, "warm", "");
        return "";
    });
    second.waitUntilAsleep();
    EXPECT_FALSE(listener_.hasVisitor());
    const std::string expected = event(1, text) + event(2, "warm");
    EXPECT_TRUE(peer.receive(expected.size()) == expected);
    first.result();
    second.result();
}

TEST_P(CallbackTest, DeliversWhatWasSentJustBeforeItIsDestroyed) {
    send(1, "warm");
    callback_.reset();
    EXPECT_EQ(listener_.accept().receiveRest(), event(1, "warm"));
}

// More than fits into the buffers while the peer does not read: the system delivers it later.
TEST_P(CallbackTest, DeliversLongEventsThatWereSentJustBeforeItIsDestroyed) {
    const std::string text(150'000, 't');
    send(1, text);
    callback_.reset();
    EXPECT_TRUE(listener_.accept().receiveRest() == event(1, text));
}

// Closing a socket with unread input makes the system discard undelivered output.
TEST_P(CallbackTest, DeliversWhatWasSentEvenIfThePeerHasWrittenSomething) {
    const std::string text(150'000, 't');
    send(1, text);
    peers::Peer peer = listener_.accept();
    peer.send("Hello");
    callback_.reset();
    EXPECT_TRUE(peer.receiveRest() == event(1, text));
}

TEST_P(CallbackTest, DeliversWhatWasSentEvenIfThePeerHasWrittenSomethingBeforeItIsDestroyed) {
    const std::string text(150'000, 't');
    send(1, text);
    peers::Peer talkative = listener_.accept();
    talkative.send("Hello");
    substitutes::passTime(std::chrono::milliseconds(1001));
    send(2, "warm");
    EXPECT_TRUE(talkative.receiveRest() == event(1, text));
    const std::string second = event(2, "warm");
    EXPECT_EQ(listener_.accept().receive(second.size()), second);
}

TEST_P(CallbackTest, NeverWaitsForAnAnswer) {
    send(1, "warm");
    send(2, "warm");
    peers::Peer peer = listener_.accept();
    EXPECT_EQ(peer.receive(event(1, "warm").size()), event(1, "warm"));
}

TEST_P(CallbackTest, ConnectsAgainAfterAnIdlePeerHasClosed) {
    send(1, "warm");
    listener_.accept().close();
    substitutes::passTime(std::chrono::milliseconds(1001));
    send(2, "cold");
    const std::string second = event(2, "cold");
    EXPECT_EQ(listener_.accept().receive(second.size()), second);
}

TEST_P(CallbackTest, FailsIfThereIsNoServer) {
    listener_.close();
    const CallFailed failure = failureOf([&] { send(1, "warm"); });
    EXPECT_EQ(failure.reason(), CallFailed::CannotConnect);
    EXPECT_FALSE(failure.sent());
    EXPECT_EQ(std::string(failure.what()).find("TavEmpEvent.Callback at "), 0U);
}

TEST_P(CallbackTest, BatchFailsIfThereIsNoServer) {
    listener_.close();
    TavIDL::CallbackBatch batch(*callback_);
    batch.Callback(1, "warm", "");
    EXPECT_EQ(failureOf([&] { batch.run(); }).reason(), CallFailed::CannotConnect);
    EXPECT_EQ(batch.size(), 0U);
}

TEST_P(CallbackTest, BatchAndSingleEventsAreSentInOrder) {
    TavIDL::CallbackBatch batch(*callback_);
    std::string expected;
    for (int type = 0; type < 1000; ++type) {
        batch.Callback(type, "warm", "");
        expected += event(type, "warm");
    }
    EXPECT_EQ(batch.size(), 1000U);
    batch.run();
    EXPECT_EQ(batch.size(), 0U);
    callback_->Callback(1000, "warm", "");
    expected += event(1000, "warm");
    callback_.reset();
    EXPECT_EQ(listener_.accept().receiveRest(), expected);
}

TEST_P(CallbackTest, BatchSendsEventsLongerThanAnyBuffer) {
    const std::string text(1'000'000, 't');
    TavIDL::CallbackBatch batch(*callback_);
    std::string expected;
    for (int type = 0; type < 20; ++type) {
        batch.Callback(type, text, "");
        expected += event(type, text);
    }
    Running run([&] {
        batch.run();
        callback_.reset();
        return "";
    });
    EXPECT_TRUE(listener_.accept().receiveRest() == expected);
    run.result();
}

}  // namespace
