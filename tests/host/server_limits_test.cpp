#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/protocol/TJSONProtocol.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Caller.h"
#include "Clock.h"
#include "Emp.h"
#include "Support.h"

// What clients can do to a server: long messages, slow ones, broken ones.

namespace {

using std::chrono::milliseconds;
using TavIDL::Server;
using TavIDL::Settings;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// How messages are encoded.
struct Encoding {
    const char* name;
    Settings::Protocol protocol;
    bool json;
    bool framed;
};

void PrintTo(const Encoding& encoding, std::ostream* out) {
    *out << encoding.name;
}

std::string nameOf(const testing::TestParamInfo<Encoding>& parameter) {
    return parameter.param.name;
}

std::string framing(const testing::TestParamInfo<bool>& parameter) {
    return parameter.param ? "Framed" : "Buffered";
}

class Encoded : public testing::TestWithParam<Encoding> {
protected:
    Encoded() : settings(patient(reports)) {
        settings.protocol = GetParam().protocol;
        settings.framed = GetParam().framed;
        if (GetParam().json) {
            settings.makeProtocol = [](std::shared_ptr<apache::thrift::transport::TTransport> on) {
                return std::make_shared<apache::thrift::protocol::TJSONProtocol>(std::move(on));
            };
        }
    }

    std::shared_ptr<TavEmpIf> emp =
        std::make_shared<Emp>([this](const std::string& cmd, const std::string&) {
            handled.add(cmd);
            return cmd + " done";
        });
    Reports<std::string> handled;
    Reports<std::string> reports;
    Settings settings;
};

INSTANTIATE_TEST_SUITE_P(As, Encoded,
                         testing::Values(Encoding{"Binary", Settings::Binary, false, false},
                                         Encoding{"BinaryFramed", Settings::Binary, false, true},
                                         Encoding{"Compact", Settings::Compact, false, false},
                                         Encoding{"CompactFramed", Settings::Compact, false, true},
                                         Encoding{"Json", Settings::Binary, true, false},
                                         Encoding{"JsonFramed", Settings::Binary, true, true}),
                         nameOf);

// --- The length of messages

TEST_P(Encoded, AMessageHasAtMostTheLengthInTheSettings) {
    for (const std::size_t length : {100U, 100000U}) {  // one fits into the buffer, one does not
        const std::string request = requestFor("read", std::string(length, 'x'), settings);
        const auto size = static_cast<uint32_t>(request.size()) - (settings.framed ? 4 : 0);
        settings.maxMessageSize = size;
        const Server accepts("127.0.0.1:0", emp, settings);
        settings.maxMessageSize = size - 1;
        const Server refuses("127.0.0.1:0", emp, settings);

        Caller welcome(accepts.address());
        welcome.send(request + request);
        EXPECT_EQ(welcome.result(settings), "read done");
        EXPECT_EQ(welcome.result(settings), "read done");
        EXPECT_THAT(reports.all(), IsEmpty());

        Caller refused(refuses.address());
        refused.send(request);
        ASSERT_EQ(refused.receive(1), "");
        const std::string limit =
            "the message is longer than " + std::to_string(size - 1) + " bytes";
        EXPECT_THAT(reports.waitFor(1),
                    ElementsAre(HasSubstr(": closed: " + (settings.framed ? "" : limit))));
        EXPECT_EQ(handled.all().size(), 2U);
        handled.clear();
        reports.clear();
    }
}

TEST_P(Encoded, TheSumOfManyStringsIsLimited) {
    settings.maxMessageSize = 100000;
    const Server server("127.0.0.1:0", emp, settings);
    ParamList list;
    list.param1 = list.param2 = list.param3 = list.param4 = list.param5 = std::string(25000, 'x');
    Caller client(server.address());
    client.send(requestFor(list, settings));
    EXPECT_EQ(client.receive(1), "");
    EXPECT_EQ(reports.waitFor(1).size(), 1U);
}

TEST(Limits, AnUnknownListHasAtMost10000Elements) {
    const Server server("127.0.0.1:0", std::make_shared<Emp>());
    const auto withList = [](const char* length, std::size_t elements) {
        std::string request = requestFor("read");
        request.pop_back();  // the end of the arguments
        return request + std::string("\x0f\0\x63\x02\0\0", 6) + length +
               std::string(elements + 1, '\0');
    };
    Caller client(server.address());
    client.send(withList("\x27\x10", 10000));
    EXPECT_EQ(client.result(), "read done");
    client.send(withList("\x27\x11", 10001));
    EXPECT_EQ(client.receive(1), "");
}

TEST_P(Encoded, AMessageIsRejectedAsSoonAsItIsTooLong) {
    settings.maxMessageSize = 100000;
    const Server server("127.0.0.1:0", emp, settings);
    ParamList list;
    list.param1 = list.param2 = list.param3 = list.param4 = list.param5 = std::string(25000, 'x');
    const std::string request = requestFor(list, settings);
    Caller client(server.address());
    client.send(request.substr(0, request.size() - 1));  // its end never comes
    EXPECT_EQ(client.receive(1), "");
}

TEST_P(Encoded, ManyMessagesOfOneConnectionMayExceedTheLimit) {
    settings.maxMessageSize = 1000;
    const Server server("127.0.0.1:0", emp, settings);
    Caller client(server.address());
    const std::string request = requestFor("read", std::string(500, 'x'), settings);
    client.send(request + request + request + request + request);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(client.result(settings), "read done");
    }
}

class Malicious : public testing::Test {
protected:
    // Sends it as field 99 of a call, and expects the server to close the connection before the end
    // of the message.
    void expectRefusal(const std::string& field) {
        const Server server("127.0.0.1:0", std::make_shared<Emp>(), patient(reports));
        Caller client(server.address());
        std::string request = requestFor("read");
        request.pop_back();
        client.send(request + field);
        EXPECT_EQ(client.receive(1), "");
        EXPECT_EQ(reports.waitFor(1).size(), 1U);
    }

    Reports<std::string> reports;
};

TEST_F(Malicious, AStringThatClaimsToBeHugeIsRejectedImmediately) {
    expectRefusal(std::string("\x0b\0\x63\x7f\xff\xff\xff", 7));
}

TEST_F(Malicious, AStringOfNegativeLengthIsRejectedImmediately) {
    expectRefusal(std::string("\x0b\0\x63\xff\xff\xff\xff", 7));
}

TEST_F(Malicious, AListOfCountlessEmptyElementsIsRejectedImmediately) {
    expectRefusal(std::string("\x0f\0\x63\0\x05\xf5\xe1\0", 8));
}

TEST_F(Malicious, NestedRecordsDoNotExhaustTheStack) {
    std::string nested;
    for (int i = 0; i < 300000; ++i) {
        nested += std::string("\x0c\0\x63", 3);
    }
    expectRefusal(nested);
}

TEST_F(Malicious, AFrameThatClaimsToBeHugeIsRejectedImmediately) {
    Settings settings = patient(reports);
    settings.framed = true;
    const Server server("127.0.0.1:0", std::make_shared<Emp>(), settings);
    for (const std::string length : {"\x7f\xff\xff\xff", "\xff\xff\xff\xff"}) {
        Caller client(server.address());
        client.send(length);
        EXPECT_EQ(client.receive(1), "");
    }
    EXPECT_EQ(reports.waitFor(2).size(), 2U);
}

TEST_F(Malicious, AnHttpRequestIsRejectedImmediately) {
    const Server server("127.0.0.1:0", std::make_shared<Emp>(), patient(reports));
    Caller client(server.address());
    client.send("GET / HTTP/1.1\r\n");
    EXPECT_EQ(client.receive(1), "");
}

// --- Long-lived connections

class LongLived : public testing::TestWithParam<bool> {
protected:
    // libthrift ends connections after 100 MiB in total. It counts strings that are completely in
    // the buffer, so this sends 50 % more.
    static constexpr int kMessages = 5000;
    const std::string text = std::string(30000, 'x');

    LongLived() : settings(patient(reports)) {
        settings.framed = GetParam();
        settings.bufferSize = 64 * 1024;
    }

    const Directory directory;

    Reports<std::string> reports;
    Settings settings;
};

INSTANTIATE_TEST_SUITE_P(Is, LongLived, testing::Bool(), framing);

TEST_P(LongLived, AConnectionForCalls) {
    const Server server(directory.socket(), std::make_shared<Emp>(), settings);
    Caller client(server.address());
    const std::string request = requestFor("read", text, settings);
    for (int i = 0; i < kMessages; ++i) {
        client.send(request);
        ASSERT_EQ(client.result(settings), "read done");
    }
}

class Events : public TavEmpEventIf {
public:
    void Callback(int32_t, const std::string&, const std::string&) override { ++count; }
    std::atomic<int> count{0};
};

TEST_P(LongLived, AConnectionForOneWayCalls) {
    const auto events = std::make_shared<Events>();
    const Server server(directory.socket(), events, settings);
    TavIDL::RemoteCallback callback(server.address(), settings);
    for (int i = 0; i < kMessages; ++i) {
        callback.Callback(i, text, "");
    }
    waitUntil([&] { return events->count == kMessages || !reports.all().empty(); });
    EXPECT_THAT(reports.all(), IsEmpty());
}

// --- Time limits

class TimeLimits : public testing::Test {
protected:
    static constexpr milliseconds kShort{40};

    // Listens with one short time-out, and the others practically infinite.
    void serve(milliseconds Settings::*shortOne) {
        Settings settings = patient(reports);
        settings.*shortOne = kShort;
        server = std::make_unique<Server>(
            "127.0.0.1:0", std::make_shared<Emp>([](const std::string& cmd, const std::string&) {
                return cmd == "much" ? std::string(32 << 20, 'x') : cmd + " done";
            }),
            settings);
    }

    static void passTimeUntilClosed(Caller& client) {
        while (!client.hearsWithin(1)) {
            substitutes::passTime(kShort);
        }
        EXPECT_EQ(client.receive(1), "");
    }

    Reports<std::string> reports;
    std::unique_ptr<Server> server;
};

TEST_F(TimeLimits, AConnectionMayBeIdleForItsTimeout) {
    const substitutes::StoppedClock clock;
    serve(&Settings::idleTimeout);
    Caller never(server->address());
    passTimeUntilClosed(never);

    Caller once(server->address());
    once.send(requestFor("read"));
    EXPECT_EQ(once.result(), "read done");
    passTimeUntilClosed(once);
    EXPECT_THAT(reports.waitFor(2), Each(HasSubstr("the client was idle for too long")));
}

TEST_F(TimeLimits, AFunctionWaitsForItsClientAsLong) {
    Settings settings = patient(reports);
    settings.idleTimeout = kShort;
    const Server functions(
        "127.0.0.1:0",
        [](const std::shared_ptr<TavIDL::Connection>& connection) {
            uint8_t byte = 0;
            connection->read(&byte, 1);
        },
        settings);
    EXPECT_EQ(Caller(functions.address()).receive(1), "");
}

TEST_F(TimeLimits, ARequestMayTakeItsTimeout) {
    serve(&Settings::receiveTimeout);
    Caller client(server->address());
    client.send(requestFor("read").substr(0, 20));
    EXPECT_EQ(client.receive(1), "");
    EXPECT_THAT(reports.all(),
                ElementsAre(HasSubstr("sends a request or reads a reply too slowly")));
}

TEST_F(TimeLimits, ARequestThatArrivesByteByByteHasTheSameTimeout) {
    serve(&Settings::receiveTimeout);
    Caller client(server->address());
    const std::string request = requestFor("read", std::string(500, 'x'));
    std::size_t sent = 0;
    do {
        client.send(request.substr(sent++, 1));
    } while (sent < request.size() && !client.hearsWithin(5));
    EXPECT_LT(sent, request.size());
    EXPECT_EQ(client.receive(1), "");
}

TEST_F(TimeLimits, TheTimeForARequestBeginsWithItsFirstByte) {
    serve(&Settings::receiveTimeout);
    Caller client(server->address());
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(client.hearsWithin(2 * static_cast<int>(kShort.count())));
        client.send(requestFor("read"));
        EXPECT_EQ(client.result(), "read done");
    }
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(TimeLimits, AClientThatDoesNotReadIsDisconnected) {
    serve(&Settings::sendTimeout);
    Caller client(server->address());
    client.send(requestFor("much"));
    EXPECT_THAT(reports.waitFor(1),
                ElementsAre(HasSubstr("sends a request or reads a reply too slowly")));
}

TEST_F(TimeLimits, AClientThatReadsTooSlowlyIsDisconnected) {
    serve(&Settings::sendTimeout);
    Caller client(server->address());
    client.send(requestFor("much"));
    std::size_t received = 0;
    std::size_t piece = 0;
    do {
        piece = client.receive(50000).size();
        received += piece;
        poll(nullptr, 0, 2);  // the pace of its bytes: 1.3 s in all
    } while (piece == 50000);
    EXPECT_LT(received, std::size_t{32} << 20);
    EXPECT_EQ(reports.waitFor(1).size(), 1U);
}

TEST_F(TimeLimits, EachReplyMayTakeItsTimeout) {
    const substitutes::StoppedClock clock;
    Settings settings = patient(reports);
    const std::string much(32 << 20, 'x');  // more than the system takes at once
    const Server large("127.0.0.1:0",
                       std::make_shared<Emp>([&](const std::string& cmd, const std::string&) {
                           if (cmd == "second") {
                               substitutes::passTime(settings.sendTimeout);
                           }
                           return much;
                       }),
                       settings);
    Caller client(large.address());
    client.send(requestFor("first") + requestFor("second"));
    EXPECT_TRUE(client.result() == much);
    EXPECT_TRUE(client.result() == much);
}

TEST_F(TimeLimits, AHandlerMayTakeLonger) {
    for (const auto limit :
         {&Settings::idleTimeout, &Settings::receiveTimeout, &Settings::sendTimeout}) {
        const substitutes::StoppedClock clock;
        Settings settings = patient(reports);
        settings.*limit = milliseconds(1);
        const Server slow("127.0.0.1:0",
                          std::make_shared<Emp>([](const std::string&, const std::string&) {
                              substitutes::passTime(milliseconds(5));
                              return "late";
                          }),
                          settings);
        Caller client(slow.address());
        client.send(requestFor("read"));
        EXPECT_EQ(client.result(), "late");
    }
}

// --- Broken clients

TEST_P(Encoded, ARequestMayArriveByteByByte) {
    const Directory directory;
    const Server server(directory.socket(), emp, settings);
    Caller client(server.address());
    const std::string request = requestFor("read", "", settings);
    for (const char byte : request + request) {
        client.send(std::string(1, byte));
        waitUntil([&] {  // the server has read it
            int unread = 0;
            return ioctl(client.descriptor(), SIOCOUTQ, &unread) != 0 || unread == 0;
        });
    }
    EXPECT_EQ(client.result(settings), "read done");
    EXPECT_EQ(client.result(settings), "read done");
}

TEST_P(Encoded, AClientMayCloseAfterEachByteOfARequest) {
    const Server server("127.0.0.1:0", emp, settings);
    const std::string request = requestFor("read", "", settings);
    std::size_t broken = 0;
    for (std::size_t sent = 0; sent <= request.size(); ++sent) {
        Caller client(server.address());
        client.send(request.substr(0, sent));
        client.closeOutput();
        client.waitForEnd();
        broken += sent > 0 && sent < request.size() ? 1U : 0U;
        ASSERT_EQ(reports.all().size(), broken) << "after " << sent << " bytes";
    }
    EXPECT_THAT(reports.all(), Each(HasSubstr("closed by the client in the middle of a call")));
    EXPECT_THAT(handled.all(), ElementsAre("read"));
}

TEST_P(Encoded, AClientMayResetTheConnectionAfterEachByteOfARequest) {
    const Server server("127.0.0.1:0", emp, settings);
    const std::string request = requestFor("read", "", settings);
    for (std::size_t sent = 1; sent < request.size(); ++sent) {
        Caller client(server.address());
        client.send(request.substr(0, sent));
        client.reset();
        reports.waitFor(sent);
    }
    EXPECT_THAT(reports.all(), Each(HasSubstr("closed by the client in the middle of a call")));
    EXPECT_THAT(handled.all(), IsEmpty());
    Caller client(server.address());
    client.send(request);
    EXPECT_EQ(client.result(settings), "read done");
}

TEST_P(Encoded, AClientMayCloseBeforeItsReply) {
    const Directory directory;
    Gate entered;
    Gate leave;
    const Server server(directory.socket(),
                        std::make_shared<Emp>([&](const std::string&, const std::string&) {
                            entered.open();
                            leave.wait();
                            return "";
                        }),
                        settings);
    Caller client(server.address());
    client.send(requestFor("read", "", settings));
    entered.wait();
    client.close();
    leave.open();
    EXPECT_THAT(reports.waitFor(1),
                ElementsAre(HasSubstr("closed by the client in the middle of a call")));
}

TEST_P(Encoded, AClientMayResetAnIdleConnectionWithoutAReport) {
    Server server("127.0.0.1:0", emp, settings);
    waitUntil([threads = countThreads()] { return countThreads() <= threads; });
    const std::size_t threads = countThreads();
    for (int i = 0; i < 20; ++i) {
        Caller client(server.address());
        client.send(requestFor("read", "", settings));
        EXPECT_EQ(client.result(settings), "read done");
        client.reset();
        waitUntil([&] { return countThreads() <= threads; });
    }
    EXPECT_THAT(reports.all(), IsEmpty());
}

// --- Replies that wait for each other

class Deferring : public testing::TestWithParam<bool> {
protected:
    // Whether the reply to the first of two calls has left when the second's handler runs.
    bool firstLeaves() {
        Gate entered;
        Gate leave;
        const Server server("127.0.0.1:0",
                            std::make_shared<Emp>([&](const std::string& cmd, const std::string&) {
                                if (cmd == "two") {
                                    entered.open();
                                    leave.wait();
                                }
                                return cmd + " done";
                            }),
                            settings);
        Caller client(server.address());
        client.send(requestFor("one", "", settings) + requestFor("two", "", settings));
        entered.wait();
        // What the server's thread has sent earlier has already arrived.
        const bool first = client.hearsWithin(0);
        leave.open();
        EXPECT_EQ(client.result(settings), "one done");
        EXPECT_EQ(client.result(settings), "two done");
        return first;
    }

    Deferring() : settings(patient(reports)) { settings.framed = GetParam(); }

    Reports<std::string> reports;
    Settings settings;
};

INSTANTIATE_TEST_SUITE_P(Replies, Deferring, testing::Bool(), framing);

TEST_P(Deferring, AReplyWaitsForTheNextOneIfItsRequestHasArrived) {
    EXPECT_FALSE(firstLeaves());
}

TEST_P(Deferring, ASettingDisablesThat) {
    settings.deferReplies = false;
    EXPECT_TRUE(firstLeaves());
}

TEST_P(Deferring, AReplyNeverWaitsForTheRestOfARequest) {
    const Server server("127.0.0.1:0", std::make_shared<Emp>(), settings);
    const std::string second = requestFor("two", "", settings);
    for (std::size_t sent = 0; sent < second.size(); ++sent) {
        Caller client(server.address());
        client.send(requestFor("one", "", settings) + second.substr(0, sent));
        EXPECT_EQ(client.result(settings), "one done");
        client.send(second.substr(sent));
        EXPECT_EQ(client.result(settings), "two done");
    }
}

TEST_P(Deferring, AReplyNeverWaitsForTheRestOfALongRequest) {
    const Server server("127.0.0.1:0", std::make_shared<Emp>(), settings);
    const std::string second = requestFor("two", std::string(100000, 'x'), settings);
    Caller client(server.address());
    client.send(requestFor("one", "", settings) + second.substr(0, 1000));
    EXPECT_EQ(client.result(settings), "one done");
    client.send(second.substr(1000));
    EXPECT_EQ(client.result(settings), "two done");
}

TEST_P(Deferring, AReplyNeverWaitsForACallAfterAOneWayCall) {
    const auto processor = std::make_shared<apache::thrift::TMultiplexedProcessor>();
    processor->registerDefault(std::make_shared<TavEmpProcessor>(std::make_shared<Emp>()));
    processor->registerProcessor(
        "events", std::make_shared<TavEmpEventProcessor>(std::make_shared<Events>()));
    const Server server("127.0.0.1:0", std::shared_ptr<apache::thrift::TProcessor>(processor),
                        settings);
    Caller client(server.address());
    client.send(requestFor("one", "", settings) + eventFor("events:Callback", settings));
    EXPECT_EQ(client.result(settings), "one done");
}

TEST_P(Deferring, RepliesOfAnyLengthArriveInOrder) {
    const Server server("127.0.0.1:0",
                        std::make_shared<Emp>([](const std::string& cmd, const std::string&) {
                            return std::string(static_cast<std::size_t>(std::stoi(cmd)), 'x');
                        }),
                        settings);
    Caller client(server.address());
    const std::vector<int> lengths = {1, 3000, 3000, 5000, 0, 100000, 4095, 4096, 4097, 2};
    std::string requests;
    for (const int length : lengths) {
        requests += requestFor(std::to_string(length), "", settings);
    }
    client.send(requests);
    for (const int length : lengths) {
        EXPECT_EQ(client.result(settings).size(), static_cast<std::size_t>(length));
    }
}

}  // namespace
