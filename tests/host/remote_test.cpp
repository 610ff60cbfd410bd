#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thrift/protocol/TJSONProtocol.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "Calls.h"
#include "Echo.h"
#include "Substitutes.h"

using apache::thrift::TApplicationException;
using apache::thrift::transport::TTransportException;
using calls::CallFailed;
using calls::failureOf;
using calls::Messages;
using calls::Running;
using testing::EndsWith;

namespace {

class RemoteTest : public calls::EachWay {
protected:
    peers::Listener listener_{where()};
    TavIDL::RemoteEmp emp_{listener_.address(), settings()};
    const Messages messages_{settings()};
    const std::string request_ = messages_.request("read");
    const std::string reply_ = messages_.reply("21.5");
};

ON_EACH_WAY(RemoteTest);

TEST_P(RemoteTest, SendsTheRequestAndReturnsTheResult) {
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    EXPECT_EQ(peer.receive(request_.size()), request_);
    peer.send(reply_);
    EXPECT_EQ(call.result(), "21.5");
    EXPECT_EQ(peer.waiting(), 0U);
}

TEST_P(RemoteTest, CallsAgainOverTheSameConnection) {
    Running first([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(reply_);
    first.result();
    Running second([&] { return execute(emp_, "read"); });
    EXPECT_EQ(peer.receive(request_.size()), request_);
    peer.send(reply_);
    EXPECT_EQ(second.result(), "21.5");
    EXPECT_FALSE(listener_.hasVisitor());
}

TEST_P(RemoteTest, ReceivesAReplyByteByByte) {
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.drip(reply_);
    EXPECT_EQ(call.result(), "21.5");
}

TEST_P(RemoteTest, ReceivesALongReply) {
    const std::string text(500'000, 't');
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(messages_.reply(text));
    EXPECT_EQ(call.result(), text);
}

// The peer closes after part of the request, or all of it.
TEST_P(RemoteTest, FailsOnceIfThePeerClosesAfterAnyByteOfTheRequest) {
    for (std::size_t count = 0; count <= request_.size(); ++count) {
        Running call([&] { return execute(emp_, "read"); });
        peers::Peer peer = listener_.accept();
        peer.receive(count);
        peer.close();
        const CallFailed failure = call.failure();
        EXPECT_EQ(failure.reason(), CallFailed::ConnectionClosed) << count;
        EXPECT_TRUE(count == 0 || failure.sent()) << count;
        EXPECT_FALSE(listener_.hasVisitor()) << "sent twice after " << count;
    }
}

TEST_P(RemoteTest, FailsOnceIfThePeerClosesAfterAnyByteOfTheReply) {
    for (std::size_t count = 0; count < reply_.size(); ++count) {
        Running call([&] { return execute(emp_, "read"); });
        peers::Peer peer = listener_.accept();
        peer.receive(request_.size());
        peer.send(reply_.substr(0, count));
        peer.close();
        const CallFailed failure = call.failure();
        EXPECT_EQ(failure.reason(), CallFailed::ConnectionClosed) << count;
        EXPECT_TRUE(failure.sent()) << count;
        EXPECT_FALSE(listener_.hasVisitor()) << "sent twice after " << count;
    }
}

TEST_P(RemoteTest, FailsOnceIfThePeerResetsAfterAnyByteOfTheRequest) {
    for (std::size_t count = 1; count <= request_.size(); ++count) {
        Running call([&] { return execute(emp_, "read"); });
        peers::Peer peer = listener_.accept();
        peer.receive(count);
        peer.reset();
        EXPECT_EQ(call.failure().reason(), CallFailed::ConnectionClosed) << count;
        EXPECT_FALSE(listener_.hasVisitor()) << "sent twice after " << count;
    }
}

TEST_P(RemoteTest, FailsOnceIfThePeerResetsAfterAnyByteOfTheReply) {
    for (std::size_t count = 0; count < reply_.size(); ++count) {
        Running call([&] { return execute(emp_, "read"); });
        peers::Peer peer = listener_.accept();
        peer.receive(request_.size());
        peer.send(reply_.substr(0, count));
        peer.reset();
        EXPECT_EQ(call.failure().reason(), CallFailed::ConnectionClosed) << count;
        EXPECT_FALSE(listener_.hasVisitor()) << "sent twice after " << count;
    }
}

// The peer reads more slowly than the request is written, and then closes before the rest.
TEST_P(RemoteTest, FailsWithoutASignalIfThePeerClosesWhileALongRequestIsSent) {
    const std::string text(64 << 20, 't');
    Running call([&] { return execute(emp_, "read", text); });
    peers::Peer peer = listener_.accept();
    peer.receive(1000);
    call.waitUntilAsleep();
    peer.close();
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::ConnectionClosed);
    EXPECT_TRUE(failure.sent());
}

TEST_P(RemoteTest, ConnectsAgainAfterAFailure) {
    Running failing([&] { return execute(emp_, "read"); });
    listener_.accept().close();
    failing.failure();
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(reply_);
    EXPECT_EQ(call.result(), "21.5");
}

TEST_P(RemoteTest, KeepsTheConnectionWhenACallFailsOnThePeer) {
    const std::string refusal = messages_.reply(
        request_, std::make_shared<Emp>([](const std::string&, const std::string&) -> std::string {
            throw std::runtime_error("too hot");
        }));
    Running refused([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(refusal);
    try {
        refused.result();
        FAIL() << "not refused";
    } catch (const TApplicationException& reason) {
        EXPECT_STREQ(reason.what(), "too hot");
    }
    Running call([&] { return execute(emp_, "read"); });
    peer.receive(request_.size());
    peer.send(reply_);
    EXPECT_EQ(call.result(), "21.5");
    EXPECT_FALSE(listener_.hasVisitor());
}

// Otherwise the unexpected bytes would be taken for the reply to the next call.
TEST_P(RemoteTest, DoesNotUseASecondReplyForTheNextCall) {
    Running first([&] { return execute(emp_, "read"); });
    peers::Peer talkative = listener_.accept();
    talkative.receive(request_.size());
    talkative.send(reply_ + messages_.reply("wrong"));
    EXPECT_EQ(first.result(), "21.5");
    Running second([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(reply_);
    EXPECT_EQ(second.result(), "21.5");
}

TEST_P(RemoteTest, DoesNotUseTheRestOfAFrameForTheNextCall) {
    if (!settings().framed) {
        return;
    }
    std::string longer = reply_ + "x";
    const uint32_t length = htonl(static_cast<uint32_t>(longer.size() - sizeof length));
    std::memcpy(&longer[0], &length, sizeof length);
    Running first([&] { return execute(emp_, "read"); });
    peers::Peer talkative = listener_.accept();
    talkative.receive(request_.size());
    talkative.send(longer);
    EXPECT_EQ(first.result(), "21.5");
    Running second([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(reply_);
    EXPECT_EQ(second.result(), "21.5");
}

TEST_P(RemoteTest, SaysIfTheAnswerIsNotAReply) {
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send("HTTP/1.1 400 Bad Request\r\n\r\n");
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::NotOurProtocol);
    EXPECT_TRUE(failure.sent());
}

TEST_P(RemoteTest, RejectsAReplyThatIsLongerThanMaxMessageSize) {
    TavIDL::Settings settings = this->settings();
    settings.maxMessageSize = 1000;
    TavIDL::RemoteEmp emp(listener_.address(), settings);
    for (const std::size_t length : {995U, 2000U}) {  // of a result; the message is longer
        Running call([&] { return execute(emp, "read"); });
        peers::Peer peer = listener_.accept();
        peer.receive(request_.size());
        peer.send(messages_.reply(std::string(length, 't')));
        EXPECT_EQ(call.failure().reason(), CallFailed::NotOurProtocol) << length;
    }
}

TEST_P(RemoteTest, SaysThatThereIsNoServer) {
    const std::string address = listener_.address();
    listener_.close();
    const CallFailed failure = failureOf([&] { execute(emp_, "read"); });
    EXPECT_EQ(failure.reason(), CallFailed::CannotConnect);
    EXPECT_FALSE(failure.sent());
    EXPECT_THAT(failure.what(), EndsWith(*GetParam().address != '\0'
                                             ? "cannot connect: Connection refused"
                                             : "cannot connect: No such file or directory"));
}

// Otherwise the limit for a message would end a connection after that many bytes in total.
TEST_P(RemoteTest, SendsMoreOverAConnectionThanAMessageMayHave) {
    TavIDL::Settings settings = this->settings();
    settings.maxMessageSize = 1000;
    listener_.close();
    const TavIDL::Server server(listener_.address(), std::make_shared<Emp>(), settings);
    TavIDL::RemoteEmp emp(server.address(), settings);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(execute(emp, std::string(100, 'c')), std::string(100, 'c') + " done");
    }
}

TEST_P(RemoteTest, CallsAllOperationsOfAnEmp) {
    listener_.close();
    const TavIDL::Server server(listener_.address(), std::make_shared<EchoingEmp>(), settings());
    ParamList list;
    list.param10 = "last";
    std::string result;
    EXPECT_TRUE(emp_.Open(7, "a", "b", "c"));
    EXPECT_EQ(emp_.Close(7), 8);
    emp_.Execute(result, 7, "1", "2", "3", "4", "5");
    EXPECT_EQ(result, "712345");
    emp_.ExecuteWithParamList(result, 7, "scan", list);
    EXPECT_EQ(result, "7scanlast");
}

TEST_P(RemoteTest, ConnectsAgainAfterAMessageThatIsNotItsReply) {
    const std::pair<std::string, TApplicationException::TApplicationExceptionType> wrong[] = {
        {request_, TApplicationException::INVALID_MESSAGE_TYPE},
        {reply_, TApplicationException::WRONG_METHOD_NAME}};
    for (const auto& [message, type] : wrong) {
        Running call([&] { return std::to_string(emp_.Close(7)); });
        peers::Peer peer = listener_.accept();
        peer.receive(1);
        peer.send(message);
        try {
            call.result();
            FAIL() << "accepted";
        } catch (const TApplicationException& refusal) {
            EXPECT_EQ(refusal.getType(), type);
        }
    }
    Running next([&] { return execute(emp_, "read"); });
    peers::Peer other = listener_.accept();
    other.receive(request_.size());
    other.send(reply_);
    EXPECT_EQ(next.result(), "21.5");
}

TEST(RemoteClosingTest, IsNotKeptWaitingByAPeerThatNeverStopsSending) {
    const TavIDL::Server server(":0", std::make_shared<Emp>());
    auto emp = std::make_unique<TavIDL::RemoteEmp>(server.address());
    execute(*emp, "read");
    const substitutes::Substitute endless(substitutes::Behavior::InputNeverEnds);
    emp.reset();  // returns
}

TEST(RemoteBrokerTest, MakesCallsAtTheSameTime) {
    peers::Listener listener;
    TavIDL::RemoteBroker broker(listener.address());
    const std::string reply = Messages(TavIDL::Settings()).reply("done");
    const auto call = [&] {
        std::string result;
        broker.Execute(result, 0, "", "", "", "", "");
        return result;
    };
    Running first(call);
    peers::Peer firstPeer = listener.accept();
    Running second(call);
    peers::Peer secondPeer = listener.accept();
    firstPeer.send(reply);
    secondPeer.send(reply);
    EXPECT_EQ(first.result() + second.result(), "donedone");
}

TEST_P(RemoteTest, AConnectionIsOpenUntilItIsClosed) {
    const auto connection = TavIDL::Connection::open(listener_.address(), settings());
    EXPECT_TRUE(connection->isOpen());
    connection->close();
    EXPECT_FALSE(connection->isOpen());
}

TEST(RemoteFailureTest, NamesWhatOpensAConnection) {
    EXPECT_STREQ(failureOf([] { TavIDL::Connection::open("unix:/none"); }).what(),
                 "Connection::open at unix:/none: cannot connect: No such file or directory");
}

TEST(RemoteFailureTest, NamesOperationAddressAndReason) {
    const peers::Listener listener;
    TavIDL::Settings settings;
    settings.callTimeout = std::chrono::milliseconds(20);
    TavIDL::RemoteEmp emp(listener.address(), settings);
    ParamList list;
    std::string result;
    const std::string reason = " at " + listener.address() + ": no answer in time: 20 ms";
    EXPECT_THAT(failureOf([&] { emp.Open(7, "", "", ""); }).what(),
                testing::StartsWith("TavEmp.Open" + reason));
    EXPECT_THAT(failureOf([&] { emp.Close(7); }).what(),
                testing::StartsWith("TavEmp.Close" + reason));
    EXPECT_THAT(failureOf([&] { execute(emp, ""); }).what(),
                testing::StartsWith("TavEmp.Execute" + reason));
    EXPECT_THAT(failureOf([&] { emp.ExecuteWithParamList(result, 7, "", list); }).what(),
                testing::StartsWith("TavEmp.ExecuteWithParamList" + reason));
    TavIDL::RemoteBroker broker(listener.address(), settings);
    ConnectionInfo info;
    EXPECT_THAT(failureOf([&] { broker.OpenEmp(info, "", "", ""); }).what(),
                testing::StartsWith("TavBroker.OpenEmp" + reason));
    EXPECT_THAT(failureOf([&] { broker.Execute(result, 7, "", "", "", "", ""); }).what(),
                testing::StartsWith("TavBroker.Execute" + reason));
    EXPECT_THAT(failureOf([&] { broker.CloseEmp(info); }).what(),
                testing::StartsWith("TavBroker.CloseEmp" + reason));
}

TEST(RemoteFailureTest, SaysThatAConnectionWasReset) {
    peers::Listener listener;
    TavIDL::RemoteEmp emp(listener.address());
    Running call([&] { return execute(emp, "read"); });
    peers::Peer peer = listener.accept();
    peer.receive(1);
    peer.reset();
    EXPECT_EQ(call.failure().what(), "TavEmp.Execute at " + listener.address() +
                                         ": the connection was closed: cannot receive: "
                                         "Connection reset by peer");
}

TEST(RemoteFailureTest, HasTheClosestTypeOfLibthrift) {
    const auto typeOf = [](CallFailed::Reason reason) {
        return CallFailed(reason, true, "operation", "address", "").getType();
    };
    EXPECT_EQ(typeOf(CallFailed::CannotConnect), TTransportException::NOT_OPEN);
    EXPECT_EQ(typeOf(CallFailed::NoAnswerInTime), TTransportException::TIMED_OUT);
    EXPECT_EQ(typeOf(CallFailed::ConnectionClosed), TTransportException::NOT_OPEN);
    EXPECT_EQ(typeOf(CallFailed::NotOurProtocol), TTransportException::CORRUPTED_DATA);
    EXPECT_EQ(typeOf(CallFailed::Cancelled), TTransportException::INTERRUPTED);
}

TEST(RemoteFailureTest, SaysWhy) {
    const auto textOf = [](CallFailed::Reason reason) {
        return std::string(CallFailed(reason, true, "Open", "unix:emp", "detail").what());
    };
    EXPECT_EQ(textOf(CallFailed::CannotConnect), "Open at unix:emp: cannot connect: detail");
    EXPECT_EQ(textOf(CallFailed::NoAnswerInTime), "Open at unix:emp: no answer in time: detail");
    EXPECT_EQ(textOf(CallFailed::ConnectionClosed),
              "Open at unix:emp: the connection was closed: detail");
    EXPECT_EQ(textOf(CallFailed::NotOurProtocol),
              "Open at unix:emp: the peer sent something that is not a reply: detail");
    EXPECT_EQ(textOf(CallFailed::Cancelled), "Open at unix:emp: cancelled: detail");
}

TEST(RemoteFailureTest, KeepsTheKindOfAPeersException) {
    class Refusing : public Emp {
        int32_t Close(int32_t) override { return 0; }
    };
    peers::Listener listener;
    TavIDL::RemoteEmp emp(listener.address());
    const Messages messages{TavIDL::Settings()};
    Running call([&] { return execute(emp, "read"); });
    peers::Peer peer = listener.accept();
    peer.receive(messages.request("read").size());
    // A reply to another operation, from a server that mixes up replies.
    const std::string close =
        messages.messageOf<TavEmpClient>([](TavEmpClient& client) { client.send_Close(7); });
    peer.send(messages.reply(close, std::make_shared<Refusing>()));
    try {
        call.result();
        FAIL() << "accepted";
    } catch (const TApplicationException& refusal) {
        EXPECT_EQ(refusal.getType(), TApplicationException::WRONG_METHOD_NAME);
    }
}

TEST(ProtocolOfTheUserTest, IsUsedByBothSides) {
    TavIDL::Settings settings;
    settings.makeProtocol = [](std::shared_ptr<apache::thrift::transport::TTransport> transport) {
        return std::make_shared<apache::thrift::protocol::TJSONProtocol>(std::move(transport));
    };
    peers::Listener listener;
    TavIDL::RemoteEmp emp(listener.address(), settings);
    Running call([&] { return execute(emp, "read"); });
    peers::Peer peer = listener.accept();
    const std::string request = R"([1,"Execute",1,0,{"1":{"i32":7},"2":{"str":"read"},)"
                                R"("3":{"str":""},"4":{"str":""},"5":{"str":""},"6":{"str":""}}])";
    EXPECT_EQ(peer.receive(request.size()), request);
    peer.send(R"([1,"Execute",2,0,{"0":{"str":"21.5"}}])");
    EXPECT_EQ(call.result(), "21.5");
}

TEST(ProtocolOfTheUserTest, FailsTheCallIfItCannotBeCreated) {
    TavIDL::Settings settings;
    settings.makeProtocol =
        [](std::shared_ptr<apache::thrift::transport::TTransport>) -> TavIDL::ProtocolPointer {
        throw std::runtime_error("not today");
    };
    const peers::Listener listener;
    TavIDL::RemoteEmp emp(listener.address(), settings);
    const CallFailed failure = failureOf([&] { execute(emp, "read"); });
    EXPECT_THAT(failure.what(), EndsWith(": cannot connect: not today"));
    EXPECT_FALSE(failure.sent());
}

TEST(RemoteTlsTest, HasNotSentACallIfTheHandshakeFails) {
    TavIDL::Settings settings;
    settings.tls.enabled = true;
    peers::Listener listener;
    std::unique_ptr<TavIDL::RemoteEmp> emp;
    try {
        emp = std::make_unique<TavIDL::RemoteEmp>(listener.address(), settings);
    } catch (const std::invalid_argument&) {
        GTEST_SKIP() << "built without TLS";
    }
    Running call([&] { return execute(*emp, "read"); });
    peers::Peer peer = listener.accept();
    peer.receive(1);
    peer.close();
    const CallFailed failure = call.failure();
    EXPECT_EQ(failure.reason(), CallFailed::CannotConnect);
    EXPECT_FALSE(failure.sent());
}

TEST(RemoteBrokerTest, CallsAllOperations) {
    const TavIDL::Server server(":0", std::make_shared<EchoingBroker>());
    TavIDL::RemoteBroker broker(server.address());
    ConnectionInfo info;
    std::string result;
    broker.OpenEmp(info, "a", "b", "c");
    broker.Execute(result, 7, "1", "2", "3", "4", "5");
    EXPECT_EQ(info.empID, "abc");
    EXPECT_EQ(result, "712345");
    EXPECT_FALSE(broker.CloseEmp(info));
    info.empID = "emp-7";
    EXPECT_TRUE(broker.CloseEmp(info));
}

}  // namespace
