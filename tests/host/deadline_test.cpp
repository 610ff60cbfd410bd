#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <thread>

#include "Calls.h"
#include "Clock.h"

using calls::CallFailed;
using calls::failureOf;
using calls::Messages;
using calls::Running;
using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;

// No peer here ever finishes, so only the deadline ends a call, on a machine of any speed.
namespace {

constexpr milliseconds kShort(50);

class DeadlineTest : public calls::EachWay {
protected:
    static TavIDL::Settings impatient(TavIDL::Settings settings, milliseconds time = kShort) {
        settings.callTimeout = time;
        settings.maxMessageSize = 100 << 20;
        return settings;
    }

    // For tests in which something must happen before the deadline: tries longer deadlines until
    // this machine is fast enough. `attempt` gets the deadline and returns whether it was long
    // enough.
    template <typename Attempt>
    static void withEnoughTime(Attempt attempt) {
        for (milliseconds deadline = kShort; !attempt(deadline); deadline *= 2) {
        }
    }

    // Empty if the call failed.
    static std::string answer(std::future<std::string>& call) {
        try {
            return call.get();
        } catch (const CallFailed&) {
            return "";
        }
    }

    static std::string noAnswerIn(milliseconds deadline) {
        return ": no answer in time: " + std::to_string(deadline.count()) + " ms";
    }

    peers::Listener listener_{where()};
    TavIDL::RemoteEmp emp_{listener_.address(), impatient(settings())};
    const Messages messages_{settings()};
    const std::string request_ = messages_.request("read");
};

ON_EACH_WAY(DeadlineTest);

TEST_P(DeadlineTest, EndsACallThatIsNotAccepted) {
    withEnoughTime([this](milliseconds deadline) {
        TavIDL::RemoteEmp emp(listener_.address(), impatient(settings(), deadline));
        const CallFailed failure = failureOf([&] { execute(emp, "read"); });
        EXPECT_EQ(failure.reason(), CallFailed::NoAnswerInTime);
        EXPECT_THAT(failure.what(), HasSubstr(noAnswerIn(deadline)));
        return failure.sent();
    });
}

TEST_P(DeadlineTest, EndsACallThatCouldNotBeSentInTime) {
    const substitutes::StoppedClock clock;
    static constexpr std::chrono::hours kLong(1);
    TavIDL::Settings settings = impatient(this->settings(), kLong);
    settings.makeProtocol = [](std::shared_ptr<apache::thrift::transport::TTransport> transport) {
        substitutes::passTime(kLong);
        return std::make_shared<apache::thrift::protocol::TBinaryProtocol>(std::move(transport));
    };
    TavIDL::RemoteEmp emp(listener_.address(), settings);
    const CallFailed failure = failureOf([&] { execute(emp, "read"); });
    EXPECT_EQ(failure.reason(), CallFailed::NoAnswerInTime);
    EXPECT_THAT(failure.what(),
                EndsWith("no answer in time: 3600000 ms passed before it was sent"));
    EXPECT_FALSE(failure.sent());
}

TEST_P(DeadlineTest, EndsACallWhoseReplyStopsInTheMiddle) {
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    const std::string reply = messages_.reply("21.5");
    peer.send(reply.substr(0, reply.size() / 2));
    EXPECT_EQ(call.failure().reason(), CallFailed::NoAnswerInTime);
}

// Each byte arrives in time.
TEST_P(DeadlineTest, EndsACallWhoseReplyArrivesByteByByteWithoutEnd) {
    Running call([&] { return execute(emp_, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    const std::string reply = messages_.reply(std::string(64 << 20, 't'));
    for (std::size_t sent = 0; sent < reply.size() && peer.send(reply.substr(sent, 1));) {
        ++sent;
    }
    EXPECT_EQ(call.failure().reason(), CallFailed::NoAnswerInTime);
}

TEST_P(DeadlineTest, EndsACallWhoseRequestIsNotRead) {
    const std::string text(64 << 20, 't');
    const CallFailed failure = failureOf([&] { execute(emp_, "read", text); });
    EXPECT_EQ(failure.reason(), CallFailed::NoAnswerInTime);
}

// Some bytes are always read in time. (The peer would answer at the end of the request.)
TEST_P(DeadlineTest, EndsACallWhoseRequestIsReadInSmallPieces) {
    const std::string text(16 << 20, 't');
    Running call([&] { return execute(emp_, "read", text); });
    peers::Peer peer = listener_.accept();
    std::size_t taken = 0;
    while (!call.hasEnded() && taken < text.size()) {
        taken += peer.receive(16).size();
    }
    EXPECT_LT(taken, text.size());
    EXPECT_EQ(call.failure().reason(), CallFailed::NoAnswerInTime);
}

TEST_P(DeadlineTest, OfABatchAppliesToAllItsCalls) {
    withEnoughTime([this](milliseconds deadline) {
        TavIDL::RemoteEmp emp(listener_.address(), impatient(settings(), deadline));
        TavIDL::EmpBatch batch(emp);
        std::future<std::string> first = batch.Execute(7, "read", "", "", "", "");
        std::future<std::string> second = batch.Execute(7, "read", "", "", "", "");
        Running run([&] {
            batch.run();
            return "";
        });
        peers::Peer peer = listener_.accept();
        peer.receive(2 * request_.size());
        peer.send(messages_.reply("21.5"));
        EXPECT_EQ(run.failure().reason(), CallFailed::NoAnswerInTime);
        EXPECT_EQ(failureOf([&] { second.get(); }).reason(), CallFailed::NoAnswerInTime);
        return answer(first) == "21.5";
    });
}

TEST_P(DeadlineTest, OfABatchCanBeSet) {
    withEnoughTime([this](milliseconds deadline) {
        TavIDL::RemoteEmp patient(listener_.address(), settings());
        TavIDL::EmpBatch batch(patient);
        std::future<std::string> call = batch.Execute(7, "read", "", "", "", "");
        EXPECT_EQ(failureOf([&] { batch.run(deadline); }).reason(), CallFailed::NoAnswerInTime);
        const CallFailed failure = failureOf([&] { call.get(); });
        EXPECT_THAT(failure.what(), HasSubstr(noAnswerIn(deadline)));
        return failure.sent();
    });
}

TEST_P(DeadlineTest, OfABatchCanExpireBeforeItRuns) {
    TavIDL::EmpBatch batch(emp_);
    std::future<std::string> call = batch.Execute(7, "read", "", "", "", "");
    EXPECT_FALSE(failureOf([&] { batch.run(milliseconds::min()); }).sent());
    EXPECT_FALSE(failureOf([&] { call.get(); }).sent());
}

TEST_P(DeadlineTest, OfABatchCanBeTheMaximum) {
    TavIDL::EmpBatch batch(emp_);
    std::future<std::string> result = batch.Execute(7, "read", "", "", "", "");
    Running run([&] {
        batch.run(milliseconds::max());
        return "";
    });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());
    peer.send(messages_.reply("21.5"));
    run.result();
    EXPECT_EQ(result.get(), "21.5");
}

TEST_P(DeadlineTest, EndsTheWaitForAConnection) {
    TavIDL::Settings settings = this->settings();
    settings.maxConnections = 1;
    TavIDL::RemoteEmp emp(listener_.address(), settings);
    Running first([&] { return execute(emp, "read"); });
    peers::Peer peer = listener_.accept();
    peer.receive(request_.size());

    for (int i = 0; i < 2; ++i) {
        TavIDL::EmpBatch other(emp);
        std::future<std::string> waiting = other.Execute(7, "read", "", "", "", "");
        const CallFailed failure = failureOf([&] { other.run(milliseconds(20)); });
        EXPECT_EQ(failure.reason(), CallFailed::NoAnswerInTime);
        EXPECT_FALSE(failure.sent());
        EXPECT_THAT(failure.what(), EndsWith(": all connections were in use for 20 ms"));
    }

    peer.send(messages_.reply("21.5"));
    EXPECT_EQ(first.result(), "21.5");
}

// Connections to a server that accepts no more than these.
class FullServer {
public:
    FullServer(const std::string& address, const TavIDL::Settings& settings)
        : listener_(address, 0) {
        try {
            for (;;) {
                others_.push_back(TavIDL::Connection::open(address, settings));
            }
        } catch (const CallFailed&) {
            // From now on no connection is accepted.
        }
    }

private:
    peers::Listener listener_;
    std::vector<std::shared_ptr<TavIDL::Connection>> others_;
};

class ConnectDeadlineTest : public DeadlineTest {
protected:
    CallFailed callAFullServer() {
        const std::string address = listener_.address();
        listener_.close();
        TavIDL::Settings settings = this->settings();
        settings.connectTimeout = kShort;
        const FullServer full(address, settings);
        TavIDL::RemoteEmp emp(address, settings);
        return failureOf([&] { execute(emp, "read"); });
    }
};

ON_EACH_WAY(ConnectDeadlineTest);

TEST_P(ConnectDeadlineTest, EndsACallToAServerThatIsFull) {
    const CallFailed failure = callAFullServer();
    EXPECT_EQ(failure.reason(), CallFailed::CannotConnect);
    EXPECT_FALSE(failure.sent());
    EXPECT_THAT(failure.what(), EndsWith(": cannot connect: Connection timed out"));
}

TEST_P(ConnectDeadlineTest, IsNotMovedBySignals) {
    (void)signal(SIGALRM, [](int) {});
    const itimerval each = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &each, nullptr);
    const CallFailed failure = callAFullServer();
    const itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
    (void)signal(SIGALRM, SIG_DFL);
    EXPECT_THAT(failure.what(), EndsWith(": cannot connect: Connection timed out"));
}

// Reads a byte that is not sent.
void expectNoAnswerInTime(TavIDL::Connection& connection) {
    uint8_t byte = 0;
    try {
        connection.read(&byte, 1);
        FAIL() << "read something";
    } catch (const apache::thrift::transport::TTransportException& failure) {
        EXPECT_EQ(failure.getType(), apache::thrift::transport::TTransportException::TIMED_OUT);
        EXPECT_STREQ(failure.what(), "the time-out has expired");
    }
}

TEST_P(DeadlineTest, OfAPlainConnectionAppliesToEachRead) {
    TavIDL::Settings settings = this->settings();
    settings.callTimeout = milliseconds(20);
    const auto connection = TavIDL::Connection::open(listener_.address(), settings);
    expectNoAnswerInTime(*connection);
    listener_.accept().send("x");
    uint8_t byte = 0;
    EXPECT_EQ(connection->read(&byte, 1), 1U);
}

TEST(ConnectionTest, MayWaitForAWholeSecond) {
    const peers::Listener listener;
    TavIDL::Settings settings;
    settings.callTimeout = milliseconds(1000);
    const auto connection = TavIDL::Connection::open(listener.address(), settings);
    expectNoAnswerInTime(*connection);
}

// So much that it has to wait for the peer to read.
TEST_P(DeadlineTest, OfAPlainConnectionAppliesToEachWrite) {
    const substitutes::StoppedClock clock;
    TavIDL::Settings settings = this->settings();
    settings.callTimeout = std::chrono::hours(1);
    const auto connection = TavIDL::Connection::open(listener_.address(), settings);
    const std::string bytes(16 << 20, 'x');
    peers::Peer peer = listener_.accept();
    Running reader([&] { return std::to_string(peer.receive(2 * bytes.size()).size()); });
    for (int i = 0; i < 2; ++i) {
        connection->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                          static_cast<uint32_t>(bytes.size()));
        substitutes::passTime(std::chrono::hours(1));
    }
    EXPECT_EQ(reader.result(), std::to_string(2 * bytes.size()));
}

}  // namespace
