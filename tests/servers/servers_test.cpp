#include <gtest/gtest.h>
#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/protocol/TMultiplexedProtocol.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "server.h"

using apache::thrift::TApplicationException;
using apache::thrift::protocol::T_REPLY;
using apache::thrift::protocol::TMultiplexedProtocol;

namespace {

std::string callOver(const ProtocolPtr& connection, const std::string& service,
                     const std::string& operation, const std::string& word = "camera") {
    return call<Library>(service, operation, word, connection, connection);
}

// One kind of server, one encoding.
class Served : public testing::TestWithParam<std::tuple<Kind, const char*>> {
protected:
    static Kind kind() { return std::get<0>(GetParam()); }
    static const char* encoding() { return std::get<1>(GetParam()); }

    // Before any server, so that it outlives the handlers.
    Journal journal;
};

TEST_P(Served, EveryOperationIsRun) {
    for (const Operation& operation : kOperations) {
        Journal seen;
        const Server server(kind(), encoding(), makeProcessor<Library>(operation.service, seen));
        EXPECT_EQ(callOver(server.connect(), operation.service, operation.name), operation.result);
        EXPECT_EQ(seen.lines(1), std::vector<std::string>{operation.seen});
    }
}

TEST_P(Served, AConnectionContinuesAfterEachFailureThatIsAnswered) {
    for (const char* service : {"TavBroker", "TavEmp", "TavEmpEvent"}) {
        const Server server(kind(), encoding(), makeProcessor<Library>(service, journal));
        const ProtocolPtr connection = server.connect();
        for (const Operation& operation : kOperations) {
            if (operation.service != std::string(service)) {
                continue;
            }
            // The handler fails.
            EXPECT_EQ(callOver(connection, service, operation.name, "fail"), operation.failure);
            EXPECT_EQ(callOver(connection, service, operation.name), operation.result);

            // The name is unknown.
            const bool isEmp = service == std::string("TavEmp");
            const std::string stranger = isEmp ? "CloseEmp" : "Close";
            EXPECT_EQ(callOver(connection, isEmp ? "TavBroker" : "TavEmp", stranger),
                      "kind 1: Invalid method name: '" + stranger + "'");
            EXPECT_EQ(callOver(connection, service, operation.name), operation.result);

            // The message is not a call. It is answered as a failure of Close.
            connection->writeMessageBegin("Close", T_REPLY, 5);
            TavEmp_Close_result().write(connection.get());
            connection->writeMessageEnd();
            connection->getTransport()->flush();
            try {
                TavEmpClient(connection).recv_Close();
                ADD_FAILURE() << "no failure was reported";
            } catch (const TApplicationException& failure) {
                EXPECT_EQ(failure.getType(), TApplicationException::INVALID_MESSAGE_TYPE);
            }
            EXPECT_EQ(callOver(connection, service, operation.name), operation.result);
        }
    }
}

TEST_P(Served, EventsArriveInTheOrderInWhichTheyWereSent) {
    const Server server(kind(), encoding(), makeProcessor<Library>("TavEmpEvent", journal));
    TavEmpEventClient client(server.connect());
    std::vector<std::string> sent;
    for (int i = 0; i < 100; ++i) {
        // Every third one fails, which the sender does not notice.
        client.Callback(i, i % 3 == 0 ? "fail" : "started", "now");
        sent.push_back("Callback " + std::to_string(i) + (i % 3 == 0 ? " fail" : " started") +
                       " now");
    }
    EXPECT_EQ(journal.lines(100), sent);
}

TEST_P(Served, TwoServicesShareOnePort) {
    const auto both = std::make_shared<apache::thrift::TMultiplexedProcessor>();
    both->registerProcessor("TavBroker", makeProcessor<Library>("TavBroker", journal));
    both->registerProcessor("TavEmp", makeProcessor<Library>("TavEmp", journal));
    const Server server(kind(), encoding(), both);
    const ProtocolPtr connection = server.connect();
    const auto broker = std::make_shared<TMultiplexedProtocol>(connection, "TavBroker");
    const auto emp = std::make_shared<TMultiplexedProtocol>(connection, "TavEmp");

    for (const Operation& operation : kOperations) {
        if (operation.service == std::string("TavEmpEvent")) {
            continue;
        }
        const ProtocolPtr out = operation.service == std::string("TavEmp") ? emp : broker;
        for (const char* word : {"camera", "fail", "camera"}) {
            EXPECT_EQ(call<Library>(operation.service, operation.name, word, connection, out),
                      word == std::string("fail") ? operation.failure : operation.result);
        }
    }
    EXPECT_EQ(call<Library>("TavEmp", "Open", "camera", connection, broker),
              "kind 1: Invalid method name: 'Open'");
    EXPECT_EQ(call<Library>("TavEmp", "Open", "camera", connection, emp), "true");
}

const auto kAllEncodings = testing::Values("binary", "compact", "json");
const auto kAllKinds =
    testing::Values(Kind::Simple, Kind::Threaded, Kind::ThreadPool, Kind::Nonblocking);

std::string nameOfServed(const testing::TestParamInfo<std::tuple<Kind, const char*>>& served) {
    return std::string(nameOf(std::get<0>(served.param))) + '_' + std::get<1>(served.param);
}

INSTANTIATE_TEST_SUITE_P(All, Served, testing::Combine(kAllKinds, kAllEncodings), nameOfServed);

// Tests of servers that serve several connections at the same time.
class ServedAtOnce : public Served {};

TEST_P(ServedAtOnce, OneProcessorServesManyConnectionsWithoutMixingThemUp) {
    const Server server(kind(), encoding(), makeProcessor<Library>("TavEmp", journal));
    constexpr int kConnections = 8;
    constexpr int kCalls = 50;
    std::vector<std::string> wrong(kConnections);
    std::vector<std::thread> programs;
    programs.reserve(kConnections);
    for (int program = 0; program < kConnections; ++program) {
        programs.emplace_back(
            [&server, program, &first = wrong[static_cast<std::size_t>(program)]] {
                const ProtocolPtr connection = server.connect();
                for (int i = 0; i < kCalls && first.empty(); ++i) {
                    const std::string word =
                        i % 5 == 4 ? "fail" : std::to_string(program) + "/" + std::to_string(i);
                    const std::string line = "Execute for 8 " + word + " north east south west";
                    const std::string result = callOver(connection, "TavEmp", "Execute", word);
                    if (result != (word == "fail" ? "kind 0: refused: " + line : line)) {
                        first = result;
                    }
                }
            });
    }
    for (std::thread& program : programs) {
        program.join();
    }
    EXPECT_EQ(wrong, std::vector<std::string>(kConnections));
    EXPECT_EQ(journal.lines(400).size(), 400u);
}

INSTANTIATE_TEST_SUITE_P(All, ServedAtOnce,
                         testing::Combine(testing::Values(Kind::Threaded, Kind::ThreadPool,
                                                          Kind::Nonblocking),
                                          kAllEncodings),
                         nameOfServed);

// libthrift counts the bytes received over a connection and stops at 100 MiB, unless the
// end of each message resets the count. 1 MiB per call in each direction.
class ServedLong : public Served {};

TEST_P(ServedLong, AConnectionCarriesMoreThanTheLimitOfASingleMessage) {
    const Server server(kind(), encoding(), makeProcessor<Library>("TavEmp", journal));
    TavEmpClient client(server.connect());
    const std::string large(1 << 20, 'x');
    for (int i = 0; i < 110; ++i) {
        std::string result;
        client.Execute(result, i, large, "", "", "", "");
        ASSERT_EQ(result.size(), large.size() + std::to_string(i).size() + 17);
    }
}

// One server for each transport.
INSTANTIATE_TEST_SUITE_P(All, ServedLong,
                         testing::Combine(testing::Values(Kind::Simple, Kind::Nonblocking),
                                          testing::Values("binary")),
                         nameOfServed);

}  // namespace
