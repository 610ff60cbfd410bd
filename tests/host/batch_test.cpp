#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thrift/protocol/TJSONProtocol.h>

#include <algorithm>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Calls.h"
#include "Echo.h"
#include "Substitutes.h"

using apache::thrift::TApplicationException;
using calls::CallFailed;
using calls::failureOf;
using calls::Messages;
using calls::Running;

namespace {

// Whether a call was dropped without being made.
template <typename Result>
bool isBroken(std::future<Result>& future) {
    try {
        future.get();
    } catch (const std::future_error& failure) {
        return failure.code() == std::future_errc::broken_promise;
    }
    return false;
}

// With a real server.
class BatchTest : public calls::EachWay {
protected:
    std::unique_ptr<TavIDL::Server> serve(Emp::Work work) const {
        return serve(std::move(work), settings());
    }
    std::unique_ptr<TavIDL::Server> serve(Emp::Work work, const TavIDL::Settings& settings) const {
        return std::make_unique<TavIDL::Server>(where(), std::make_shared<Emp>(std::move(work)),
                                                settings);
    }
};

ON_EACH_WAY(BatchTest);

TEST_P(BatchTest, ReturnsTheResultsInOrder) {
    const auto server = serve(nullptr);
    TavIDL::RemoteEmp emp(server->address(), settings());
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<std::string>> results;
    for (int i = 0; i < 1000; ++i) {
        results.push_back(batch.Execute(7, std::to_string(i), "", "", "", ""));
    }
    EXPECT_EQ(batch.size(), 1000U);
    batch.run();
    EXPECT_EQ(batch.size(), 0U);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(results[static_cast<std::size_t>(i)].get(), std::to_string(i) + " done");
    }
}

TEST_P(BatchTest, SupportsAllOperations) {
    const TavIDL::Server server(where(), std::make_shared<EchoingEmp>(), settings());
    TavIDL::RemoteEmp emp(server.address(), settings());
    TavIDL::EmpBatch batch(emp);
    ParamList list;
    list.param10 = "last";
    std::future<bool> open = batch.Open(7, "a", "b", "c");
    std::future<std::string> scan = batch.ExecuteWithParamList(7, "scan", list);
    std::future<std::string> read = batch.Execute(7, "1", "2", "3", "4", "5");
    std::future<int32_t> close = batch.Close(7);
    batch.run();
    EXPECT_TRUE(open.get());
    EXPECT_EQ(scan.get(), "7scanlast");
    EXPECT_EQ(read.get(), "712345");
    EXPECT_EQ(close.get(), 8);
}

TEST_P(BatchTest, IsNotAffectedByCallsThatFail) {
    const auto server = serve([](const std::string& cmd, const std::string&) {
        if (cmd == "refuse") {
            throw std::runtime_error("too hot");
        }
        return cmd;
    });
    TavIDL::RemoteEmp emp(server->address(), settings());
    TavIDL::EmpBatch batch(emp);
    std::future<std::string> first = batch.Execute(7, "first", "", "", "", "");
    std::future<std::string> refused = batch.Execute(7, "refuse", "", "", "", "");
    std::future<std::string> last = batch.Execute(7, "last", "", "", "", "");
    batch.run();
    EXPECT_EQ(first.get(), "first");
    EXPECT_EQ(last.get(), "last");
    try {
        refused.get();
        FAIL() << "not refused";
    } catch (const TApplicationException& refusal) {
        EXPECT_STREQ(refusal.what(), "too hot");
    }
}

TEST_P(BatchTest, CanBeFilledAndRunAgain) {
    const auto server = serve(nullptr);
    TavIDL::RemoteEmp emp(server->address(), settings());
    TavIDL::EmpBatch batch(emp);
    for (int round = 0; round < 3; ++round) {
        std::future<std::string> result = batch.Execute(7, std::to_string(round), "", "", "", "");
        batch.run();
        EXPECT_EQ(result.get(), std::to_string(round) + " done");
    }
}

TEST_P(BatchTest, SharesTheConnectionWithSingleCalls) {
    const auto server = serve(nullptr);
    TavIDL::RemoteEmp emp(server->address(), settings());
    TavIDL::EmpBatch batch(emp);
    const long before = substitutes::connectCalls();
    EXPECT_EQ(execute(emp, "before"), "before done");
    std::future<std::string> result = batch.Execute(7, "batch", "", "", "", "");
    batch.run();
    EXPECT_EQ(result.get(), "batch done");
    EXPECT_EQ(execute(emp, "after"), "after done");
    EXPECT_EQ(substitutes::connectCalls() - before, 1);
}

// Requests and replies that are larger than all buffers: neither side may wait for the other to
// read.
TEST_P(BatchTest, SendsAndReceivesTheLongestStrings) {
    TavIDL::Settings settings = this->settings();
    const std::string text(settings.maxMessageSize - 200, 't');
    const auto server = serve([](const std::string&, const std::string& param) { return param; });
    TavIDL::RemoteEmp emp(server->address(), settings);
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<std::string>> results;
    for (int i = 0; i < 12; ++i) {
        results.push_back(batch.Execute(7, "", text, "", "", ""));
    }
    batch.run();
    for (auto& result : results) {
        EXPECT_TRUE(result.get() == text);
    }
}

TEST_P(BatchTest, OfShortRequestsReceivesRepliesThatFillEveryBuffer) {
    const std::string text(1'000'000, 't');
    const auto server = serve([&](const std::string&, const std::string&) { return text; });
    TavIDL::RemoteEmp emp(server->address(), settings());
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<std::string>> results;
    for (int i = 0; i < 30; ++i) {
        results.push_back(batch.Execute(7, "", "", "", "", ""));
    }
    batch.run();
    EXPECT_TRUE(std::all_of(results.begin(), results.end(), [&](std::future<std::string>& result) {
        return result.get() == text;
    }));
}

// The system's buffers hold fewer bytes if these are sent in many pieces.
TEST_P(BatchTest, OfTheShortestRequestsReceivesALongReplyInTheMiddle) {
    TavIDL::Settings settings = this->settings();
    settings.deferReplies = false;
    settings.callTimeout = std::chrono::minutes(1);
    const std::string text(1'000'000, 't');
    const auto server =
        serve([&](const std::string&, const std::string&) { return text; }, settings);
    TavIDL::RemoteEmp emp(server->address(), settings);
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<int32_t>> closed;
    for (int i = 0; i < 3000; ++i) {
        closed.push_back(batch.Close(i));
    }
    std::vector<std::future<std::string>> texts;
    for (int i = 0; i < 20; ++i) {
        texts.push_back(batch.Execute(7, "", "", "", "", ""));
        for (int j = 0; j < 10; ++j) {
            closed.push_back(batch.Close(0));
        }
    }
    batch.run();
    EXPECT_EQ(closed[2999].get(), 3000);
    EXPECT_TRUE(texts.back().get() == text);
    EXPECT_EQ(closed.back().get(), 1);
}

// With a peer that the test controls.
class BatchPeerTest : public calls::EachWay {
protected:
    std::future<std::string> addRead() { return batch_.Execute(7, "read", "", "", "", ""); }
    Running runBatch() {
        return Running([this] {
            batch_.run();
            return "";
        });
    }

    peers::Listener listener_{where()};
    TavIDL::RemoteEmp emp_{listener_.address(), settings()};
    TavIDL::EmpBatch batch_{emp_};
    const Messages messages_{settings()};
    const std::string request_ = messages_.request("read");
};

ON_EACH_WAY(BatchPeerTest);

TEST_P(BatchPeerTest, SendsAllRequestsBeforeItReadsAReply) {
    auto first = addRead();
    auto second = addRead();
    auto third = addRead();
    Running run = runBatch();
    peers::Peer peer = listener_.accept();
    EXPECT_EQ(peer.receive(3 * request_.size()), request_ + request_ + request_);
    peer.send(messages_.reply("1") + messages_.reply("2") + messages_.reply("3"));
    run.result();
    EXPECT_EQ(first.get() + second.get() + third.get(), "123");
}

TEST_P(BatchPeerTest, KeepsTheResultsThatCameBeforeTheConnectionFailed) {
    auto first = addRead();
    auto second = addRead();
    auto third = addRead();
    Running run = runBatch();
    peers::Peer peer = listener_.accept();
    peer.receive(3 * request_.size());
    const std::string reply = messages_.reply("2");
    peer.send(messages_.reply("1") + reply.substr(0, reply.size() - 1));
    peer.close();
    const CallFailed failure = run.failure();
    EXPECT_EQ(failure.reason(), CallFailed::ConnectionClosed);
    EXPECT_TRUE(failure.sent());
    EXPECT_EQ(std::string(failure.what()).find("a batch of 3 calls at "), 0U);
    EXPECT_EQ(first.get(), "1");
    EXPECT_EQ(failureOf([&] { second.get(); }).reason(), CallFailed::ConnectionClosed);
    EXPECT_EQ(failureOf([&] { third.get(); }).reason(), CallFailed::ConnectionClosed);
    EXPECT_FALSE(listener_.hasVisitor()) << "sent twice";
}

// The last reply would be taken for that of the next call.
TEST_P(BatchPeerTest, DoesNotKeepTheConnectionAfterAMessageThatIsNotItsReply) {
    const std::string close =
        messages_.messageOf<TavEmpClient>([](TavEmpClient& client) { client.send_Close(7); });
    const std::pair<std::string, TApplicationException::TApplicationExceptionType> wrong[] = {
        {request_, TApplicationException::INVALID_MESSAGE_TYPE},
        {messages_.reply(close, std::make_shared<EchoingEmp>()),
         TApplicationException::WRONG_METHOD_NAME}};
    for (const auto& [message, type] : wrong) {
        TavIDL::RemoteEmp emp(listener_.address(), settings());
        TavIDL::EmpBatch batch(emp);
        auto first = batch.Execute(7, "read", "", "", "", "");
        auto second = batch.Execute(7, "read", "", "", "", "");
        Running run([&] {
            batch.run();
            return "";
        });
        peers::Peer peer = listener_.accept();
        peer.receive(2 * request_.size());
        peer.send(message + messages_.reply("1"));
        run.result();
        try {
            first.get();
            FAIL() << "accepted";
        } catch (const TApplicationException& refusal) {
            EXPECT_EQ(refusal.getType(), type);
        }
        EXPECT_EQ(second.get(), "1");
        Running next([&] { return execute(emp, "read"); });
        peers::Peer other = listener_.accept();
        other.receive(request_.size());
        other.send(messages_.reply("2"));
        EXPECT_EQ(next.result(), "2");
    }
}

TEST_P(BatchPeerTest, HasNoResultIfItCannotConnect) {
    listener_.close();
    auto first = addRead();
    const CallFailed failure = failureOf([&] { batch_.run(); });
    EXPECT_EQ(failure.reason(), CallFailed::CannotConnect);
    EXPECT_FALSE(failure.sent());
    EXPECT_EQ(failureOf([&] { first.get(); }).reason(), CallFailed::CannotConnect);
    EXPECT_EQ(batch_.size(), 0U);
}

TEST_P(BatchPeerTest, WaitsForRepliesBeforeItSendsMoreThanItsWindow) {
    TavIDL::Settings settings = this->settings();
    settings.batchWindow = static_cast<uint32_t>(4 * request_.size() + 1);
    TavIDL::RemoteEmp emp(listener_.address(), settings);
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<std::string>> results;
    for (int i = 0; i < 6; ++i) {
        results.push_back(batch.Execute(7, "read", "", "", "", ""));
    }
    Running run([&] {
        batch.run();
        return "";
    });
    peers::Peer peer = listener_.accept();
    peer.receive(4 * request_.size());
    run.waitUntilAsleep();
    EXPECT_EQ(peer.waiting(), 0U);
    std::string replies;
    for (int i = 0; i < 4; ++i) {
        replies += messages_.reply("21.5");
    }
    peer.send(replies);
    EXPECT_EQ(peer.receive(2 * request_.size()), request_ + request_);
    peer.send(messages_.reply("21.5") + messages_.reply("21.5"));
    run.result();
    EXPECT_EQ(results.back().get(), "21.5");
}

// One system call per request would be expensive, and too many short pieces fill a unix socket.
TEST_P(BatchPeerTest, SendsMoreOnlyWhenHalfOfItsWindowIsFree) {
    TavIDL::Settings settings = this->settings();
    settings.batchWindow = static_cast<uint32_t>(4 * request_.size());
    TavIDL::RemoteEmp emp(listener_.address(), settings);
    TavIDL::EmpBatch batch(emp);
    std::vector<std::future<std::string>> results;
    for (int i = 0; i < 8; ++i) {
        results.push_back(batch.Execute(7, "read", "", "", "", ""));
    }
    Running run([&] {
        batch.run();
        return "";
    });
    peers::Peer peer = listener_.accept();
    peer.receive(4 * request_.size());
    for (const std::size_t answered : {0U, 2U}) {
        peer.send(messages_.reply("21.5"));
        results[answered].wait();
        run.waitUntilAsleep();
        EXPECT_EQ(peer.waiting(), 0U);
        peer.send(messages_.reply("21.5"));
        EXPECT_EQ(peer.receive(2 * request_.size()), request_ + request_);
    }
    for (int i = 0; i < 4; ++i) {
        peer.send(messages_.reply("21.5"));
    }
    run.result();
    EXPECT_EQ(results.back().get(), "21.5");
}

TEST_P(BatchPeerTest, DoesNotConnectIfItIsEmpty) {
    batch_.run();
    EXPECT_FALSE(listener_.hasVisitor());
}

TEST_P(BatchPeerTest, BreaksThePromisesOfItsCallsIfItIsNotRun) {
    std::future<std::string> result;
    {
        TavIDL::EmpBatch batch(emp_);
        result = batch.Execute(7, "read", "", "", "", "");
    }
    EXPECT_TRUE(isBroken(result));
    EXPECT_FALSE(listener_.hasVisitor());
}

TEST_P(BatchPeerTest, RunsEvenIfNoFutureIsKept) {
    addRead();
    Running run = runBatch();
    peers::Peer peer = listener_.accept();
    EXPECT_EQ(peer.receive(request_.size()), request_);
    peer.send(messages_.reply("21.5"));
    EXPECT_NO_THROW(run.result());
}

// A user's protocol that fails to write the command "spoil", in the middle of a message.
TEST(BatchProtocolTest, LosesOnlyTheCallThatCannotBeEncoded) {
    class Picky : public apache::thrift::protocol::TJSONProtocol {
    public:
        using TJSONProtocol::TJSONProtocol;
        uint32_t writeString_virt(const std::string& text) override {
            if (text == "spoil") {
                throw std::runtime_error("spoilt");
            }
            return TJSONProtocol::writeString_virt(text);
        }
    };
    TavIDL::Settings settings;
    settings.makeProtocol = [](std::shared_ptr<apache::thrift::transport::TTransport> transport) {
        return std::make_shared<Picky>(std::move(transport));
    };
    const TavIDL::Server server(":0", std::make_shared<Emp>(), settings);
    TavIDL::RemoteEmp emp(server.address(), settings);
    TavIDL::EmpBatch batch(emp);
    std::future<std::string> first = batch.Execute(7, "first", "", "", "", "");
    EXPECT_THROW(batch.Execute(7, "spoil", "", "", "", ""), std::runtime_error);
    std::future<std::string> second = batch.Execute(7, "second", "", "", "", "");
    EXPECT_EQ(batch.size(), 2U);
    batch.run();
    EXPECT_EQ(first.get(), "first done");
    EXPECT_EQ(second.get(), "second done");
}

TEST(BrokerBatchTest, SupportsAllOperations) {
    const TavIDL::Server server(":0", std::make_shared<EchoingBroker>());
    TavIDL::RemoteBroker broker(server.address());
    TavIDL::BrokerBatch batch(broker);
    ConnectionInfo info;
    info.empID = "emp-7";
    std::future<ConnectionInfo> opened = batch.OpenEmp("a", "b", "c");
    std::future<std::string> result = batch.Execute(7, "1", "2", "3", "4", "5");
    std::future<bool> closed = batch.CloseEmp(info);
    batch.run();
    EXPECT_EQ(opened.get().empID, "abc");
    EXPECT_EQ(result.get(), "712345");
    EXPECT_TRUE(closed.get());
}

TEST(BatchMemoryTest, IsNotNeededToBreakThePromisesOfItsCalls) {
    TavIDL::RemoteEmp emp("unix:/none");
    auto batch = std::make_unique<TavIDL::EmpBatch>(emp);
    std::future<std::string> result = batch->Execute(7, "read", "", "", "", "");
    {
        const substitutes::Failing none("new");
        batch.reset();
    }
    EXPECT_THROW(result.get(), std::future_error);
}

}  // namespace
