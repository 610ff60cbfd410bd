#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <linux/sockios.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Caller.h"
#include "Certificates.h"
#include "Clock.h"
#include "Emp.h"
#include "Support.h"

// How servers stop: the order of events. Unless a test says otherwise, all time-outs are longer
// than the limit for tests.

namespace {

using std::chrono::milliseconds;
using TavIDL::CallFailed;
using TavIDL::Connection;
using TavIDL::RemoteEmp;
using TavIDL::Server;
using TavIDL::Settings;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t kMuch = 8 << 20;

enum class Over { tcp, unixSocket, tls };

std::string overName(const testing::TestParamInfo<Over>& parameter) {
    switch (parameter.param) {
        case Over::tcp:
            return "Tcp";
        case Over::unixSocket:
            return "Unix";
        default:
            return "Tls";
    }
}

// An EMP that waits in its handler for "wait", and answers "much" with a long string.
class WaitingEmp : public Emp {
public:
    WaitingEmp()
        : Emp([this](const std::string& cmd, const std::string&) {
              handled.add(cmd);
              if (cmd == "wait") {
                  entered.open();
                  leave.wait();
              }
              return cmd == "much" ? std::string(kMuch, 'x') : cmd + " done";
          }) {}

    Gate entered;
    Gate leave;
    Reports<std::string> handled;
};

class Stopping : public testing::TestWithParam<Over> {
protected:
    Stopping() : settings(patient(reports)) {
        settings.maxMessageSize = 2 * kMuch;
        address = GetParam() == Over::unixSocket ? directory.socket() : "127.0.0.1:0";
        if (GetParam() == Over::tls) {
            const Certificate own = makeCertificate(directory, "server", "IP:127.0.0.1", nullptr);
            settings.tls.enabled = true;
            settings.tls.certificate = own.file;
            settings.tls.key = own.keyFile;
            settings.tls.trusted = own.file;
        }
        clientSettings = settings;
        clientSettings.tls.certificate = clientSettings.tls.key = settings.tls.certificate;
        clientSettings.tls.key = settings.tls.key;
    }

    void serve() { server.emplace(address, emp, settings); }

    std::shared_ptr<Connection> connect() {
        return Connection::open(server->address(), clientSettings);
    }
    // A connection that the server has accepted. Stopping resets those that still wait.
    std::shared_ptr<Connection> connectAndCall() {
        auto connection = connect();
        send(connection, requestFor("read"));
        receive(connection, 1);
        return connection;
    }

    static void send(const std::shared_ptr<Connection>& connection, const std::string& bytes) {
        connection->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                          static_cast<uint32_t>(bytes.size()));
    }
    // Fewer than `count` bytes at the end of the connection.
    static std::string receive(const std::shared_ptr<Connection>& connection, std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t size = 0;
        while (size < count) {
            const uint32_t got = connection->read(reinterpret_cast<uint8_t*>(&bytes[size]),
                                                  static_cast<uint32_t>(count - size));
            if (got == 0) {
                break;
            }
            size += got;
        }
        return bytes.substr(0, size);
    }

    Directory directory;
    Reports<std::string> reports;
    Settings settings;
    Settings clientSettings;
    std::string address;
    const std::shared_ptr<WaitingEmp> emp = std::make_shared<WaitingEmp>();
    std::optional<Server> server;
};

INSTANTIATE_TEST_SUITE_P(Over, Stopping, testing::Values(Over::tcp, Over::unixSocket, Over::tls),
                         overName);

TEST_P(Stopping, EndsIdleConnectionsImmediatelyAndAnswersTheRunningCall) {
    const std::size_t threads = countThreads();
    const std::size_t descriptors = countDescriptors();
    serve();
    std::vector<std::shared_ptr<Connection>> idle;
    for (int i = 0; i < 50; ++i) {
        idle.push_back(connectAndCall());
    }
    auto remote = std::make_unique<RemoteEmp>(server->address(), clientSettings);
    auto call = std::async(std::launch::async, [&] { return execute(*remote, "wait"); });
    emp->entered.wait();

    auto stopped = std::async(std::launch::async, [&] { server->stop(); });
    for (const auto& connection : idle) {
        receive(connection, 1000);  // reads to the end, while the call still runs
    }
    EXPECT_THROW(connect(), CallFailed);
    EXPECT_EQ(stopped.wait_for(milliseconds(0)), std::future_status::timeout);
    emp->leave.open();
    EXPECT_EQ(call.get(), "wait done");
    stopped.get();
    EXPECT_THAT(reports.all(), IsEmpty());

    idle.clear();
    remote.reset();
    server.reset();
    waitUntil([&] { return countThreads() <= threads; });
    EXPECT_EQ(countDescriptors(), descriptors);
}

TEST_P(Stopping, DisconnectsACallThatTakesTooLongAndWaitsForItsHandler) {
    settings.stopTimeout = milliseconds(20);
    serve();
    const auto client = connect();
    send(client, requestFor("wait"));
    emp->entered.wait();
    std::atomic<bool> left{false};
    std::thread watcher([&] {
        receive(client, 1);  // the connection ends
        left = true;
        emp->leave.open();  // only then the handler ends
    });
    server->stop();
    EXPECT_TRUE(left);
    watcher.join();
    EXPECT_THAT(reports.all(),
                ElementsAre(HasSubstr("disconnected: its call takes longer than stopTimeout")));
}

TEST_P(Stopping, NeedsNoTimeForIdleConnections) {
    settings.stopTimeout = std::chrono::hours(1);  // nothing here takes so long
    serve();
    std::vector<std::shared_ptr<Connection>> idle;
    for (int i = 0; i < 20; ++i) {
        idle.push_back(connectAndCall());
    }
    server->stop();
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_P(Stopping, DoesNotReportIdleConnectionsForWhichItHasNoTime) {
    settings.stopTimeout = milliseconds(0);
    serve();
    const std::set<int> others = threads();
    std::vector<std::shared_ptr<Connection>> idle;
    for (int i = 0; i < 20; ++i) {
        idle.push_back(connect());
    }
    waitUntil([&] { return threadsSince(others).size() == idle.size(); });  // it has accepted them
    server->stop();
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_P(Stopping, RefusesFurtherConnections) {
    const std::size_t threads = countThreads();
    serve();
    server->stop();
    waitUntil([&] { return countThreads() <= threads; });
    EXPECT_THROW(connect(), CallFailed);
}

TEST_P(Stopping, EndsAConnectionInTheMiddleOfARequest) {
    serve();
    const auto client = connect();
    send(client, requestFor("one") + requestFor("two").substr(0, 20));
    receive(client, 1);  // it has reached the handler
    server->stop();
    receive(client, 1000);
    EXPECT_THAT(emp->handled.all(), ElementsAre("one"));
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_P(Stopping, CompletesAReplyThatIsBeingWritten) {
    const int accepting = threadStartedBy([&] { serve(); });
    const auto client = connect();
    send(client, requestFor("much"));
    std::string reply = receive(client, 1);  // the server is writing and cannot finish
    auto stopped = std::async(std::launch::async, [&] { server->stop(); });
    waitUntil([&] { return threads().count(accepting) == 0; });  // it stops
    reply += receive(client, 2 * kMuch);
    EXPECT_GT(reply.size(), kMuch);
    stopped.get();
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_P(Stopping, DisconnectsAClientThatDoesNotReadItsReply) {
    settings.stopTimeout = milliseconds(20);
    serve();
    const auto client = connect();
    send(client, requestFor("much"));
    receive(client, 1);
    server->stop();
    EXPECT_THAT(reports.all(), ElementsAre(HasSubstr("longer than stopTimeout")));
}

TEST_P(Stopping, AnswersOnlyTheRunningCallOfABatch) {
    serve();
    const auto client = connect();
    send(client, requestFor("one") + requestFor("wait") + requestFor("three"));
    emp->entered.wait();
    const auto idle = connectAndCall();
    auto stopped = std::async(std::launch::async, [&] { server->stop(); });
    receive(idle, 1000);  // it stops
    emp->leave.open();
    const std::string replies = receive(client, 1000);
    EXPECT_THAT(replies, HasSubstr("one done"));
    EXPECT_THAT(replies, HasSubstr("wait done"));
    stopped.get();
    EXPECT_THAT(emp->handled.all(), ElementsAre("one", "wait", "read"));
}

// The reply to "much" leaves together with those of the next calls, and does not fit.
TEST_P(Stopping, DisconnectsAClientThatDoesNotReadTheRepliesOfABatch) {
    settings.stopTimeout = milliseconds(200);
    settings.bufferSize = 2 * kMuch;
    serve();
    const auto client = connect();
    send(client, requestFor("much") + requestFor("wait") + requestFor("three"));
    emp->entered.wait();
    const auto idle = connectAndCall();
    auto stopped = std::async(std::launch::async, [&] { server->stop(); });
    receive(idle, 1000);  // it stops
    emp->leave.open();
    stopped.get();
    EXPECT_THAT(emp->handled.all(), ElementsAre("much", "wait", "read"));
}

TEST_P(Stopping, IsPossibleFromManyThreadsAndRepeatedly) {
    serve();
    const auto client = connectAndCall();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { server->stop(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    server->stop();
    server->finish();
    receive(client, 1000);
}

TEST_P(Stopping, IsDoneByTheDestructor) {
    serve();
    const auto client = connectAndCall();
    server.reset();
    receive(client, 1000);
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_P(Stopping, EndsPlainConnections) {
    Gate reads;
    server.emplace(
        address,
        [&](const std::shared_ptr<Connection>& connection) {
            reads.open();
            uint8_t byte = 0;
            EXPECT_EQ(connection->read(&byte, 1), 0U);
        },
        settings);
    const auto client = connect();
    reads.wait();
    server->stop();
    EXPECT_EQ(receive(client, 1), "");
}

TEST_P(Stopping, EndsAConnectionThatHasSentNothing) {
    serve();
    Caller client(server->address());  // over TLS it has not begun the handshake
    server->stop();
    EXPECT_EQ(client.receive(1), "");
    EXPECT_THAT(reports.all(), IsEmpty());
}

// --- finish()

TEST_P(Stopping, FinishServesWhatHasArrived) {
    class Events : public TavEmpEventIf {
    public:
        void Callback(int32_t, const std::string&, const std::string&) override { ++count; }
        std::atomic<int> count{0};
    };
    for (int round = 0; round < 10; ++round) {
        const auto events = std::make_shared<Events>();
        server.emplace(address, events, settings);
        std::vector<std::unique_ptr<TavIDL::RemoteCallback>> callers;
        for (int i = 0; i < 10; ++i) {
            callers.push_back(
                std::make_unique<TavIDL::RemoteCallback>(server->address(), clientSettings));
            for (int event = 0; event < 20; ++event) {
                callers.back()->Callback(event, std::string(500, 'x'), "");
            }
        }
        server->finish();
        EXPECT_EQ(events->count, 200);
        server.reset();
    }
}

TEST_P(Stopping, FinishWaitsForTheRestOfARequest) {
    const int accepting = threadStartedBy([&] { serve(); });
    const auto idle = connectAndCall();
    const auto client = connect();
    const std::string second = requestFor("two");
    send(client, requestFor("one") + second.substr(0, 20));
    receive(client, 1);  // it is reading the second request
    auto finished = std::async(std::launch::async, [&] { server->finish(); });
    waitUntil([&] { return threads().count(accepting) == 0; });
    for (const char byte : second.substr(20)) {
        send(client, std::string(1, byte));
        poll(nullptr, 0, 5);  // the pace of its bytes: longer in all than clients may pause
    }
    for (std::string replies; replies.find("two done") == std::string::npos;) {
        const std::string more = receive(client, 1);
        ASSERT_FALSE(more.empty());
        replies += more;
    }
    client->close();
    finished.get();  // does not wait for the other client
    EXPECT_THAT(emp->handled.all(), ElementsAre("read", "one", "two"));
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_P(Stopping, FinishWaitsForFurtherCallsOfItsClients) {
    const substitutes::StoppedClock clock;  // no client pauses for too long
    const int accepting = threadStartedBy([&] { serve(); });
    auto remote = std::make_unique<RemoteEmp>(server->address(), clientSettings);
    execute(*remote, "read");
    auto finished = std::async(std::launch::async, [&] { server->finish(); });
    waitUntil([&] { return threads().count(accepting) == 0; });
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(execute(*remote, "read"), "read done");
    }
    remote.reset();
    finished.get();
}

TEST_P(Stopping, FinishWaitsForAnOwnFunctionAndNoLonger) {
    std::atomic<int> received{0};
    const int accepting = threadStartedBy([&] {
        server.emplace(
            address,
            [&received](const std::shared_ptr<Connection>& connection) {
                uint8_t byte = 0;
                while (connection->read(&byte, 1) == 1) {
                    ++received;
                }
            },
            settings);
    });
    const auto client = connect();
    auto finished = std::async(std::launch::async, [&] { server->finish(); });
    waitUntil([&] { return threads().count(accepting) == 0; });
    for (int count = 0; count < 50; ++count) {
        send(client, "x");
        poll(nullptr, 0, 5);  // the pace of its bytes: longer in all than clients may pause
    }
    client->close();
    finished.get();
    EXPECT_EQ(received, 50);
}

TEST_P(Stopping, FinishWaitsForAnOwnFunctionBeforeItBegins) {
    server.emplace(
        address,
        [](const std::shared_ptr<Connection>& connection) {
            uint8_t byte = 0;
            connection->read(&byte, 1);
        },
        settings);
    Caller client(server->address());  // over TLS the function begins only after the handshake
    auto finished = std::async(std::launch::async, [&] { server->finish(); });
    EXPECT_FALSE(client.hearsWithin(200));  // longer than clients may pause
    client.closeOutput();
    client.waitForEnd();
    finished.get();
}

TEST_P(Stopping, FinishEndsAlthoughClientsKeepConnecting) {
    settings.maxClients = 1000000;  // as many as come
    serve();
    std::atomic<bool> finished{false};
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&] {
            while (!finished) {
                try {
                    connect();
                } catch (const CallFailed&) {  // it has stopped
                }
            }
        });
    }
    connectAndCall();
    server->finish();
    finished = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_THROW(connect(), CallFailed);
}

TEST_P(Stopping, FinishDisconnectsACallThatTakesTooLong) {
    settings.stopTimeout = milliseconds(200);
    serve();
    const auto idle = connectAndCall();
    const auto client = connect();
    send(client, requestFor("wait") + requestFor("too late"));
    emp->entered.wait();
    std::thread watcher([&] {
        receive(client, 1);  // the connection ends
        emp->leave.open();   // only then the handler ends
    });
    server->finish();
    watcher.join();
    EXPECT_THAT(emp->handled.all(), ElementsAre("read", "wait"));
    EXPECT_THAT(reports.all(),
                ElementsAre(HasSubstr("disconnected: its call takes longer than stopTimeout")));
}

TEST(ServerTest, FinishLeavesOutConnectionsBeyondMaxClients) {
    Reports<std::string> reports;
    Settings settings = patient(reports);
    settings.maxClients = 1;
    const auto emp = std::make_shared<WaitingEmp>();
    Server server("127.0.0.1:0", emp, settings);
    Caller first(server.address());
    first.send(requestFor("one"));
    first.receive(1);
    Caller second(server.address());
    second.send(requestFor("two"));
    reports.waitFor(1);  // it waits
    server.finish();
    EXPECT_EQ(second.receive(1), "");
    EXPECT_THAT(emp->handled.all(), ElementsAre("one"));
}

// --- Signals

enum class While { accepting, reading, handling, writing };

class Signals : public testing::TestWithParam<std::tuple<int, While, bool>> {
protected:
    static bool isSetTo(int number, void (*handler)(int)) {
        struct sigaction now = {};
        sigaction(number, nullptr, &now);
        return now.sa_handler == handler;
    }
};

std::string signalName(const testing::TestParamInfo<std::tuple<int, While, bool>>& parameter) {
    const char* const places[] = {"Accepting", "Reading", "Handling", "Writing"};
    return std::string(std::get<0>(parameter.param) == SIGINT ? "Int" : "Term") + "While" +
           places[static_cast<int>(std::get<1>(parameter.param))] +
           (std::get<2>(parameter.param) ? "ToThatThread" : "");
}

INSTANTIATE_TEST_SUITE_P(Of, Signals,
                         testing::Combine(testing::Values(SIGINT, SIGTERM),
                                          testing::Values(While::accepting, While::reading,
                                                          While::handling, While::writing),
                                          testing::Bool()),
                         signalName);

void ownHandler(int) {
}

TEST_P(Signals, StopTheServerAndThenHaveTheirPreviousEffect) {
    const auto [number, place, toThread] = GetParam();
    signal(SIGINT, ownHandler);
    signal(SIGTERM, SIG_IGN);
    Reports<std::string> reports;
    const Directory directory;
    const auto emp = std::make_shared<WaitingEmp>();
    const std::set<int> before = threads();
    Server server(directory.socket(), emp, patient(reports));
    std::set<int> own = threads();
    Caller client(server.address());
    const auto hasRead = [&] {
        int unread = 0;
        return ioctl(client.descriptor(), SIOCOUTQ, &unread) == 0 && unread == 0;
    };
    if (place == While::reading) {
        client.send(requestFor("read").substr(0, 20));
        waitUntil(hasRead);
    } else if (place == While::handling) {
        client.send(requestFor("wait"));
        emp->entered.wait();
    } else if (place == While::writing) {
        client.send(requestFor("much"));
        EXPECT_EQ(client.receive(1).size(), 1U);
    }
    if (place != While::accepting) {
        own = threadsSince(own);  // the thread of the connection
    } else {
        for (const int thread : before) {
            own.erase(thread);  // leaves the thread that accepts
        }
    }
    ASSERT_FALSE(own.empty());

    auto run = std::async(std::launch::async, [&] { server.runUntilSignal(); });
    waitUntil([] { return !isSetTo(SIGTERM, SIG_IGN); });
    if (toThread) {
        syscall(SYS_tgkill, getpid(), *own.begin(), number);
    } else {
        kill(getpid(), number);
    }
    if (place == While::handling) {
        waitUntil([] { return isSetTo(SIGTERM, SIG_IGN); });
        EXPECT_FALSE(client.hearsWithin(0));
        emp->leave.open();
        EXPECT_THAT(client.receive(1000), HasSubstr("wait done"));
    } else if (place == While::writing) {
        EXPECT_GT(client.receive(2 * kMuch).size(), kMuch);
    } else {
        EXPECT_EQ(client.receive(1), "");
    }
    run.get();
    EXPECT_TRUE(isSetTo(SIGINT, ownHandler));
    EXPECT_TRUE(isSetTo(SIGTERM, SIG_IGN));
    EXPECT_THAT(reports.all(), IsEmpty());
}

// Otherwise the program's own system calls would fail with EINTR.
TEST(ServerTest, DoesNotInterruptSystemCallsWhenASignalComes) {
    signal(SIGTERM, SIG_IGN);
    Server server("127.0.0.1:0", std::make_shared<Emp>());
    auto run = std::async(std::launch::async, [&] { server.runUntilSignal(); });
    struct sigaction now = {};
    waitUntil([&] {
        sigaction(SIGTERM, nullptr, &now);
        return now.sa_handler != SIG_IGN;
    });
    EXPECT_NE(now.sa_flags & SA_RESTART, 0);
    kill(getpid(), SIGTERM);
    run.get();
}

TEST(ServerTest, RunsAgainAfterASignal) {
    signal(SIGTERM, SIG_IGN);
    for (int i = 0; i < 2; ++i) {
        Server server("127.0.0.1:0", std::make_shared<Emp>());
        auto run = std::async(std::launch::async, [&] { server.runUntilSignal(); });
        waitUntil([] {
            struct sigaction now = {};
            sigaction(SIGTERM, nullptr, &now);
            return now.sa_handler != SIG_IGN;
        });
        RemoteEmp emp(server.address());
        EXPECT_EQ(execute(emp, "read"), "read done");  // it doesn't stop for the last signal
        kill(getpid(), SIGTERM);
        run.get();
    }
}

// In its own process.
void sendTwice(int number) {
    const auto emp = std::make_shared<WaitingEmp>();
    Server server("127.0.0.1:0", emp);
    Caller running(server.address());
    running.send(requestFor("wait"));
    emp->entered.wait();
    Caller idle(server.address());
    auto run = std::async(std::launch::async, [&] { server.runUntilSignal(); });
    waitUntil([] {
        struct sigaction now = {};
        sigaction(SIGTERM, nullptr, &now);
        return now.sa_handler != SIG_DFL;
    });
    kill(getpid(), number);
    idle.receive(1);  // it stops, and waits for the call
    kill(getpid(), number);
    emp->leave.open();
    run.get();
}

TEST(ServerDeathTest, ASecondSignalEndsTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    for (const int number : {SIGINT, SIGTERM}) {
        EXPECT_EXIT(
            {
                sendTwice(number);
                std::exit(0);
            },
            testing::KilledBySignal(number), "");
    }
}

// The undefined behavior sanitizer needs descriptors to look at the exception.
#ifndef __SANITIZE_ADDRESS__

// In its own process, which has not waited for a signal before.
void runWithoutDescriptors() {
    Server server("127.0.0.1:0", std::make_shared<Emp>());
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none = before;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &none);
    bool thrown = false;
    try {
        server.runUntilSignal();
    } catch (const std::system_error&) {
        thrown = true;
    }
    setrlimit(RLIMIT_NOFILE, &before);
    if (!thrown) {
        std::exit(1);
    }
    auto run = std::async(std::launch::async, [&] { server.runUntilSignal(); });
    waitUntil([] {
        struct sigaction now = {};
        sigaction(SIGTERM, nullptr, &now);
        return now.sa_handler != SIG_DFL;
    });
    kill(getpid(), SIGTERM);
    run.get();
}

TEST(ServerDeathTest, RunUntilSignalThrowsWithoutADescriptorAndWorksLater) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            runWithoutDescriptors();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

#endif

}  // namespace
