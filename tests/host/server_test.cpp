#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thrift/processor/TMultiplexedProcessor.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

#include "Caller.h"
#include "Emp.h"
#include "Peer.h"
#include "Support.h"

// What the comments of Server and its settings promise, except for time limits and stopping.

namespace {

using TavIDL::RemoteEmp;
using TavIDL::ServedCall;
using TavIDL::Server;
using TavIDL::Settings;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::StartsWith;

const std::shared_ptr<TavEmpIf> kEmp = std::make_shared<Emp>();

Settings unixMode(unsigned mode) {
    Settings settings;
    settings.unixMode = mode;
    return settings;
}

// --- Starting

TEST(ServerTest, IsReadyWhenItIsConstructed) {
    const Server server("127.0.0.1:0", kEmp);
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(ServerTest, SaysWhichPortTheSystemChose) {
    const Server server(":0", kEmp);
    EXPECT_THAT(server.address(), StartsWith("127.0.0.1:"));
    EXPECT_NE(server.address(), "127.0.0.1:0");
}

TEST(ServerTest, CanBeReachedAtItsAddressWhenItListensOnAllAddresses) {
    const Server server("0.0.0.0:0", kEmp);
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

void expectServiceAt(const std::string& host) {
    const Server server(host + ":0", kEmp);
    EXPECT_THAT(server.address(), StartsWith(host + ":"));
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(ServerTest, ServesByName) {
    expectServiceAt("localhost");
}

TEST(ServerTest, ServesOverIpv6) {
    if (!peers::hasIpv6()) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    expectServiceAt("[::1]");
}

TEST(ServerTest, RejectsAPortInUse) {
    const Server first("127.0.0.1:0", kEmp);
    EXPECT_THROW(Server(first.address(), kEmp), std::system_error);
    RemoteEmp emp(first.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(ServerTest, CanUseThePortOfAServerThatClosedItsConnections) {
    auto first = std::make_unique<Server>("127.0.0.1:0", kEmp);
    const std::string address = first->address();
    Caller client(address);
    client.send(requestFor("read"));
    EXPECT_EQ(client.result(), "read done");
    first.reset();  // its side of the connection is now in TIME_WAIT, or waits for the client
    const Server second(address, kEmp);
    EXPECT_EQ(second.address(), address);
}

template <typename Handler>
std::string complaintAbout(Handler handler) {
    try {
        const Server server(":0", handler);
    } catch (const std::invalid_argument& complaint) {
        return complaint.what();
    }
    return "";
}

TEST(ServerTest, RejectsANullHandler) {
    const char* const complaint = "a server needs a handler, but got a null pointer";
    EXPECT_EQ(complaintAbout(std::shared_ptr<TavEmpIf>()), complaint);
    EXPECT_EQ(complaintAbout(std::shared_ptr<TavBrokerIf>()), complaint);
    EXPECT_EQ(complaintAbout(std::shared_ptr<TavEmpEventIf>()), complaint);
    EXPECT_EQ(complaintAbout(std::shared_ptr<apache::thrift::TProcessor>()), complaint);
    EXPECT_EQ(complaintAbout(std::function<void(const std::shared_ptr<TavIDL::Connection>&)>()),
              complaint);
}

TEST(ServerTest, RejectsAnInvalidAddress) {
    EXPECT_THROW(Server("nonsense", kEmp), std::invalid_argument);
}

TEST(ServerTest, RejectsInvalidSettings) {
    Settings settings;
    settings.maxClients = 0;
    EXPECT_THROW(Server(":0", kEmp, settings), std::invalid_argument);
    settings = Settings();
    settings.idleTimeout = std::chrono::milliseconds(0);
    EXPECT_THROW(Server(":0", kEmp, settings), std::invalid_argument);
    EXPECT_THROW(Server(":0", kEmp, unixMode(01777)), std::invalid_argument);
}

// --- Unix sockets

TEST(UnixSocketTest, IsOnlyForTheSameUserByDefault) {
    const Directory directory;
    struct stat file = {};
    const Server server(directory.socket("own"), kEmp);
    ASSERT_EQ(stat(directory.file("own").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0600U);

    const Server open(directory.socket("open"), kEmp, unixMode(0666));
    ASSERT_EQ(stat(directory.file("open").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0666U);
}

TEST(UnixSocketTest, HasItsPermissionsWithAnyUmask) {
    const Directory directory;
    const mode_t before = umask(0777);
    const Server server(directory.socket(), kEmp, unixMode(0660));
    umask(before);
    struct stat file = {};
    ASSERT_EQ(stat(directory.file("socket").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0660U);
}

// Leaves the file of a socket on which no process listens.
void abandon(const std::string& path) {
    const int abandoned = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    ASSERT_EQ(bind(abandoned, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(abandoned, 1), 0);
    close(abandoned);
}

TEST(UnixSocketTest, ReplacesTheFileOfAServerThatHasEnded) {
    const Directory directory;
    abandon(directory.file("socket"));
    const Server server(directory.socket(), kEmp);
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(UnixSocketTest, KeepsTheFileOfARunningServer) {
    const Directory directory;
    const Server first(directory.socket(), kEmp);
    errno = ECONNREFUSED;  // from an earlier failure
    EXPECT_THROW(Server(directory.socket(), kEmp), std::system_error);
    RemoteEmp emp(first.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(UnixSocketTest, KeepsTheFileOfAServerWhoseQueueIsFull) {
    const Directory directory;
    const int busy = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    directory.file("socket").copy(name.sun_path, sizeof name.sun_path - 1);
    ASSERT_EQ(bind(busy, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(busy, 0), 0);
    const Caller waits(
        directory.socket());  // the queue has room for one connection and is now full

    EXPECT_THROW(Server(directory.socket(), kEmp), std::system_error);
    EXPECT_TRUE(std::filesystem::is_socket(directory.file("socket")));
    close(busy);
}

TEST(UnixSocketTest, OneOfSeveralServersThatStartTogetherGetsIt) {
    constexpr std::size_t kServers = 8;
    for (int round = 0; round < 100; ++round) {
        const Directory directory;
        abandon(directory.file("socket"));
        Gate start;
        std::array<std::unique_ptr<Server>, kServers> servers;
        std::array<std::thread, kServers> threads;
        for (std::size_t i = 0; i < kServers; ++i) {
            auto number = std::make_shared<Emp>(
                [i](const std::string&, const std::string&) { return std::to_string(i); });
            threads[i] = std::thread([&directory, &start, &server = servers[i], number] {
                start.wait();
                try {
                    server = std::make_unique<Server>(directory.socket(), number);
                } catch (const std::system_error&) {
                    // Another server has it.
                }
            });
        }
        start.open();
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::set<std::string> listening;
        for (std::size_t i = 0; i < kServers; ++i) {
            if (servers[i]) {
                listening.insert(std::to_string(i));
            }
        }
        RemoteEmp emp(directory.socket());
        EXPECT_THAT(listening, ElementsAre(execute(emp, "who")));
    }
}

TEST(UnixSocketTest, KeepsAFileThatIsNotASocket) {
    const Directory directory;
    std::ofstream(directory.file("notes")) << "mine";
    std::filesystem::create_symlink(directory.file("notes"), directory.file("link"));
    for (const std::string name : {"notes", "link"}) {
        EXPECT_THROW(Server(directory.socket(name), kEmp), std::system_error);
        std::string text;
        std::ifstream(directory.file(name)) >> text;
        EXPECT_EQ(text, "mine");
    }
}

TEST(UnixSocketTest, IsRemovedWhenTheServerStops) {
    const Directory directory;
    Server server(directory.socket(), kEmp);
    server.stop();
    EXPECT_FALSE(std::filesystem::exists(directory.file("socket")));
}

TEST(UnixSocketTest, IsNotRemovedByAServerWhoseFileWasReplaced) {
    const Directory directory;
    Server first(directory.socket(), kEmp);
    std::filesystem::remove(directory.file("socket"));
    const Server second(directory.socket(), kEmp);
    first.stop();
    RemoteEmp emp(second.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(UnixSocketTest, CanBeInTheCurrentDirectory) {
    const Directory directory;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.file(""));
    {
        const Server server("unix:socket", kEmp);
        RemoteEmp emp("unix:socket");
        EXPECT_EQ(execute(emp, "read"), "read done");
    }
    EXPECT_FALSE(std::filesystem::exists("socket"));
    std::filesystem::current_path(before);
}

TEST(UnixSocketTest, WaitsForAnotherServerThatStartsInTheSameDirectory) {
    const Directory directory;
    const auto before = std::filesystem::current_path();
    for (const std::string& address : {directory.socket(), std::string("unix:socket")}) {
        const int other = open(directory.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_EQ(flock(other, LOCK_EX), 0);
        const auto begin = std::chrono::steady_clock::now();
        const Server server(address, kEmp);  // after a while, it does not wait any longer
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
        close(other);
        std::filesystem::current_path(directory.file(""));  // for the second address
    }
    std::filesystem::current_path(before);
}

TEST(UnixSocketTest, RejectsAPathThatIsTooLong) {
    const Directory directory;
    const std::string stem = directory.socket("");
    const std::string longest = stem + std::string(5 + 107 - stem.size(), 's');
    const Server server(longest, kEmp);
    RemoteEmp emp(longest);
    EXPECT_EQ(execute(emp, "read"), "read done");
    EXPECT_THROW(Server(longest + "s", kEmp), std::invalid_argument);
}

// --- What is served

TEST(ServerTest, ServesAMultiplexedProcessor) {
    const auto processor = std::make_shared<apache::thrift::TMultiplexedProcessor>();
    processor->registerProcessor("emp", std::make_shared<TavEmpProcessor>(kEmp));
    const Server server("127.0.0.1:0", std::shared_ptr<apache::thrift::TProcessor>(processor));
    Caller client(server.address());
    std::string request = requestFor("read");
    // The operation's name is "Execute", with its length in front: now "emp:Execute".
    request.replace(request.find("Execute") - 1, 8,
                    "\x0b"
                    "emp:Execute");
    client.send(request);
    EXPECT_EQ(client.result(), "read done");
}

TEST(ServerTest, PassesAPlainConnectionToAFunction) {
    Reports<std::string> peers;
    const Server server("127.0.0.1:0", [&](const std::shared_ptr<TavIDL::Connection>& connection) {
        peers.add(connection->peer());
        uint8_t bytes[16];
        const uint32_t count = connection->read(bytes, sizeof bytes);
        connection->write(bytes, count);
    });
    Caller client(server.address());
    client.send("ping");
    EXPECT_EQ(client.receive(5), "ping");  // and the end, because the function has returned
    EXPECT_THAT(peers.all(), ElementsAre(StartsWith("127.0.0.1:")));
}

TEST(UnixSocketTest, NamesTheProcessOnItsOtherSide) {
    const Directory directory;
    Reports<std::string> peers;
    const Server server(directory.socket(),
                        [&](const std::shared_ptr<TavIDL::Connection>& connection) {
                            peers.add(connection->peer());
                        });
    const std::string own = "unix: process " + std::to_string(getpid());
    EXPECT_EQ(TavIDL::Connection::open(server.address())->peer(), own);
    EXPECT_THAT(peers.waitFor(1), ElementsAre(own));
}

TEST(ServerTest, EndsAConnectionThatItsFunctionHasKept) {
    Reports<std::shared_ptr<TavIDL::Connection>> kept;
    Reports<std::string> reports;
    const Server server(
        "127.0.0.1:0",
        [&](const std::shared_ptr<TavIDL::Connection>& connection) { kept.add(connection); },
        patient(reports));
    const Caller client(server.address());  // is not closed
    uint8_t byte = 0;
    EXPECT_EQ(kept.waitFor(1)[0]->read(&byte, 1), 0U);
}

// This process's descriptor of a connection to that port.
int connectedTo(uint16_t port) {
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            ntohs(peer.sin_port) == port) {
            return descriptor;
        }
    }
    return -1;
}

uint16_t ownPort(int descriptor) {
    sockaddr_in own = {};
    socklen_t size = sizeof own;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
}

TEST(ServerTest, NeitherSideWaitsForAcknowledgmentsBeforeItSendsMore) {
    const Server server("127.0.0.1:0", kEmp);
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
    const auto port = std::stoul(server.address().substr(server.address().find(':') + 1));
    const int calling = connectedTo(static_cast<uint16_t>(port));
    for (const int descriptor : {calling, connectedTo(ownPort(calling))}) {
        int on = 0;
        socklen_t size = sizeof on;
        EXPECT_EQ(getsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, &size), 0);
        EXPECT_NE(on, 0);
    }
}

TEST(ServerTest, ServesEachProtocolFramedOrNot) {
    for (const auto protocol : {Settings::Binary, Settings::Compact}) {
        for (const bool framed : {false, true}) {
            Settings settings;
            settings.protocol = protocol;
            settings.framed = framed;
            const Server server("127.0.0.1:0", kEmp, settings);
            Caller client(server.address());
            client.send(requestFor("read", "", settings));
            EXPECT_EQ(client.result(settings), "read done");
        }
    }
}

// --- Threads and descriptors

std::size_t stackSize() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    std::size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

TEST(ServerTest, GivesItsThreadsTheStackOfTheSettings) {
    Reports<std::size_t> sizes;
    Settings settings;
    settings.maxClients = 1;
    settings.stackSize = std::size_t{768} * 1024;
    settings.onFailure = [&](const std::string&) { sizes.add(stackSize()); };  // accepting
    const Server server("127.0.0.1:0",
                        std::make_shared<Emp>([&](const std::string&, const std::string&) {
                            sizes.add(stackSize());
                            return "";
                        }),
                        settings);
    RemoteEmp emp(server.address());
    execute(emp, "read");
    // The thread sanitizer adds to the size.
    EXPECT_THAT(sizes.waitFor(2), Each(AllOf(Ge(768U * 1024), Lt(1024U * 1024))));
}

TEST(ServerTest, GivesItsThreadsTheMinimumStackIfTheSettingsSayLess) {
    Reports<std::size_t> sizes;
    Settings settings;
    settings.stackSize = 1;
    const Server server(
        "127.0.0.1:0", [&](const std::shared_ptr<TavIDL::Connection>&) { sizes.add(stackSize()); },
        settings);
    const Caller client(server.address());
    EXPECT_LT(sizes.waitFor(1)[0], 2048U * 1024);  // the sanitizers need stack, too
}

TEST(ServerTest, ClosesItsDescriptorsInProcessesThatItsHandlersStart) {
    const Directory directory;
    for (const std::string& address : {std::string("127.0.0.1:0"), directory.socket()}) {
        const Server server(address, kEmp);
        Caller client(server.address());
        client.send(requestFor("read"));
        EXPECT_EQ(client.result(), "read done");  // its connection exists, too
        int inherited = 0;
        for (int descriptor = 3; descriptor < 1024; ++descriptor) {
            const int flags = fcntl(descriptor, F_GETFD);
            int type = 0;
            socklen_t size = sizeof type;
            const bool isSocket = getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0;
            std::error_code ignored;
            const auto target = std::filesystem::read_symlink(
                "/proc/self/fd/" + std::to_string(descriptor), ignored);
            if (flags >= 0 && (isSocket || target == "anon_inode:[eventfd]")) {
                inherited += (flags & FD_CLOEXEC) == 0 ? 1 : 0;
            }
        }
        EXPECT_EQ(inherited, 0);
    }
}

// Restores a limit of the process.
class Limit {
public:
    explicit Limit(int what) : what_(static_cast<__rlimit_resource_t>(what)) {
        getrlimit(what_, &before_);
    }
    ~Limit() { lift(); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    void set(rlim_t most) {
        rlimit limit = before_;
        limit.rlim_cur = most;
        ASSERT_EQ(setrlimit(what_, &limit), 0);
    }
    void lift() { setrlimit(what_, &before_); }

private:
    __rlimit_resource_t what_;
    rlimit before_ = {};
};

TEST(ServerTest, AcceptsAgainWhenDescriptorsAreFreed) {
    Reports<std::string> reports;
    const Server server("127.0.0.1:0", kEmp, patient(reports));
    Caller client(server.address());
    client.send(requestFor("one"));
    EXPECT_EQ(client.result(), "one done");

    Limit descriptors(RLIMIT_NOFILE);
    Caller waits(server.address());
    waits.send(requestFor("two"));
    // The connection may have been accepted already. The next one cannot be.
    EXPECT_EQ(waits.result(), "two done");
    const int next = dup(0);
    close(next);
    // One descriptor for the client, but none for the server.
    descriptors.set(static_cast<rlim_t>(next) + 1);
    Caller later(server.address());
    reports.waitFor(1);
    client.send(requestFor("three"));  // existing connections are not affected
    const std::string result = client.result();
    const bool heard = later.hearsWithin(250);  // meanwhile the server keeps retrying

    // The sanitizers need descriptors for the comparison.
    descriptors.lift();
    EXPECT_EQ(result, "three done");
    EXPECT_FALSE(heard);
    later.send(requestFor("four"));
    EXPECT_EQ(later.result(), "four done");
    EXPECT_THAT(reports.all(),
                ElementsAre(AllOf(StartsWith(server.address()), EndsWith("Too many open files"))));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(EMULATED)
TEST(ServerTest, ContinuesWhenAThreadCannotBeStarted) {
    Reports<std::string> reports;
    Settings settings = patient(reports);
    settings.stackSize = 512 << 20;  // reserved, not used
    const Server server("127.0.0.1:0", kEmp, settings);
    Caller client(server.address());
    client.send(requestFor("one"));
    EXPECT_EQ(client.result(), "one done");

    Limit memory(RLIMIT_AS);
    std::ifstream sizes("/proc/self/statm");
    rlim_t pages = 0;
    sizes >> pages;
    memory.set(pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (128 << 20));
    Caller(server.address()).waitForEnd();
    EXPECT_THAT(reports.all(),
                ElementsAre(HasSubstr("a connection was closed: cannot start a thread: ")));
    client.send(requestFor("two"));
    EXPECT_EQ(client.result(), "two done");

    memory.lift();
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "three"), "three done");
}
#endif

TEST(ServerTest, LeaksNothingIfItsFirstThreadCannotBeStarted) {
    const Directory directory;
    Settings settings;
    settings.stackSize = std::numeric_limits<std::size_t>::max() / 16 * 15;
    const std::size_t descriptors = countDescriptors();
    EXPECT_THROW(Server(directory.socket(), kEmp, settings), std::system_error);
    EXPECT_FALSE(std::filesystem::exists(directory.file("socket")));
    EXPECT_EQ(countDescriptors(), descriptors);
}

// --- Connections

TEST(ServerTest, LetsFurtherConnectionsWaitAndServesThemLater) {
    Reports<std::string> reports;
    Settings settings = patient(reports);
    settings.maxClients = 2;
    std::optional<Server> server;
    const int accepting = threadStartedBy([&] { server.emplace("127.0.0.1:0", kEmp, settings); });
    Caller first(server->address());
    Caller second(server->address());
    for (Caller* client : {&first, &second}) {
        client->send(requestFor("read"));
        EXPECT_EQ(client->result(), "read done");
    }
    Caller third(server->address());
    third.send(requestFor("third"));
    EXPECT_THAT(
        reports.waitFor(1),
        ElementsAre(server->address() + ": maxClients connections are open; further ones wait"));
    peers::waitUntilAsleep(accepting);          // it does not keep the processor busy meanwhile
    for (Caller* client : {&first, &second}) {  // only these are still served
        client->send(requestFor("again"));
        EXPECT_EQ(client->result(), "again done");
    }
    EXPECT_FALSE(third.hearsWithin(0));

    first.close();
    EXPECT_EQ(third.result(), "third done");
}

TEST(ServerTest, LetsFurtherConnectionsWaitEvenWithoutAFunctionForFailures) {
    Settings settings;
    settings.maxClients = 1;
    const Server server("127.0.0.1:0", kEmp, settings);
    Caller first(server.address());
    Caller second(server.address());
    second.send(requestFor("second"));
    first.send(requestFor("first"));
    EXPECT_EQ(first.result(), "first done");
    EXPECT_FALSE(second.hearsWithin(0));
    first.close();
    EXPECT_EQ(second.result(), "second done");
}

// Daemons often close standard input.
TEST(ServerTest, UsesDescriptor0LikeAnyOther) {
    const int other = open("/dev/null", O_RDONLY | O_CLOEXEC);  // if standard input is closed, 0
    Settings settings;
    settings.maxClients = 1;
    const Server server("127.0.0.1:0", kEmp, settings);
    std::optional<Caller> first(server.address());
    first->send(requestFor("read"));
    EXPECT_EQ(first->result(), "read done");
    Caller second(server.address());  // waits
    second.send(requestFor("read"));

    const int saved = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    first->close();
    EXPECT_EQ(second.result(), "read done");  // accepted as descriptor 0
    second.close();
    waitUntil([] { return fcntl(STDIN_FILENO, F_GETFD) < 0; });
    {
        RemoteEmp emp(server.address());  // connects with descriptor 0
        EXPECT_EQ(execute(emp, "read"), "read done");
    }
    waitUntil([] { return fcntl(STDIN_FILENO, F_GETFD) < 0; });
    EXPECT_NO_THROW(Server("127.0.0.1:0", kEmp));
    dup2(saved, STDIN_FILENO);
    close(saved);
    close(other);
}

TEST(ServerTest, ReleasesConnectionsThatHaveEnded) {
    Reports<std::string> reports;
    const Server server("127.0.0.1:0", kEmp, patient(reports));
    {
        RemoteEmp emp(server.address());
        execute(emp, "read");
    }
    waitUntil([threads = countThreads()] { return countThreads() <= threads; });
    const std::size_t descriptors = countDescriptors();
    const std::size_t threads = countThreads();
    for (int i = 0; i < 200; ++i) {
        {
            Caller client(server.address());
            client.send(requestFor("read"));
            client.result();
        }
        waitUntil([&] { return countThreads() <= threads; });
    }
    waitUntil([&] { return countDescriptors() <= descriptors; });
    EXPECT_THAT(reports.all(), IsEmpty());
}

// --- Handlers that throw

class Failing : public testing::Test {
protected:
    Reports<std::string> reports;
    Server server{"127.0.0.1:0",
                  std::make_shared<Emp>([](const std::string& cmd, const std::string&) {
                      if (cmd == "runtime_error") {
                          throw std::runtime_error("the lens is dirty");
                      }
                      if (cmd == "bad_alloc") {
                          throw std::bad_alloc();
                      }
                      if (cmd == "int") {
                          throw 42;
                      }
                      return cmd + " done";
                  }),
                  patient(reports)};
};

constexpr const char* kForeign =
    ": closed: the handler threw something that is not a std::exception";

TEST_F(Failing, AnswersWithWhatAHandlerThrows) {
    Caller client(server.address());
    for (const std::string kind : {"runtime_error", "bad_alloc"}) {
        client.send(requestFor(kind));
        try {
            client.result();
            FAIL() << "no failure";
        } catch (const apache::thrift::TApplicationException& failure) {
            EXPECT_STREQ(failure.what(),
                         kind == "bad_alloc" ? "std::bad_alloc" : "the lens is dirty");
        }
    }
    client.send(requestFor("read"));
    EXPECT_EQ(client.result(), "read done");
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(Failing, ClosesTheConnectionAfterANonStandardException) {
    Caller client(server.address());
    client.send(requestFor("int"));
    EXPECT_EQ(client.receive(1), "");
    EXPECT_THAT(reports.all(), ElementsAre(AllOf(StartsWith("127.0.0.1:"), EndsWith(kForeign))));
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST_F(Failing, AnswersTheCallsBeforeTheOneThatEndsTheConnection) {
    Caller client(server.address());
    client.send(requestFor("one") + requestFor("two") + requestFor("int"));
    EXPECT_EQ(client.result(), "one done");
    EXPECT_EQ(client.result(), "two done");
    EXPECT_EQ(client.receive(1), "");
}

TEST_F(Failing, SurvivesARawFunctionThatThrows) {
    const Server raw(
        "127.0.0.1:0", [](const std::shared_ptr<TavIDL::Connection>&) { throw 42; },
        patient(reports));
    EXPECT_EQ(Caller(raw.address()).receive(1), "");
    EXPECT_THAT(reports.waitFor(1), ElementsAre(EndsWith(kForeign)));
}

TEST_F(Failing, SaysWhatARawFunctionThrew) {
    const Server raw(
        "127.0.0.1:0",
        [](const std::shared_ptr<TavIDL::Connection>&) { throw std::runtime_error("no more"); },
        patient(reports));
    EXPECT_EQ(Caller(raw.address()).receive(1), "");
    EXPECT_THAT(reports.waitFor(1), ElementsAre(EndsWith(": closed: no more")));
}

TEST(ServerTest, DoesNotReportAClientThatResetsBetweenTwoCalls) {
    Reports<std::string> reports;
    Server server("127.0.0.1:0", kEmp, patient(reports));
    Caller client(server.address());
    client.send(requestFor("read"));
    EXPECT_EQ(client.result(), "read done");
    client.reset();
    server.stop();
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST(ServerTest, IgnoresExceptionsFromOnFailure) {
    Settings settings;
    settings.onFailure = [](const std::string&) { throw 42; };
    const Server server("127.0.0.1:0", kEmp, settings);
    Caller client(server.address());
    client.send("GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.receive(1), "");
    RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(ServerTest, NeverPrints) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        Server server("127.0.0.1:0",
                      std::make_shared<Emp>([](const std::string& cmd, const std::string&) {
                          if (cmd == "int") {
                              throw 42;
                          }
                          return std::string(1 << 19, 'x');
                      }));
        for (const std::string& bytes : {requestFor("int"), std::string("GET / HTTP/1.1\r\n\r\n"),
                                         requestFor("x").substr(9), requestFor("x").substr(0, 9)}) {
            Caller client(server.address());
            client.send(bytes);
            client.closeOutput();
            client.waitForEnd();
        }
        for (int i = 0; i < 10; ++i) {
            Caller client(server.address());
            client.send(requestFor("x"));
            client.receive(1);
            client.reset();
        }
        RemoteEmp emp(server.address());
        execute(emp, "read");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// --- Settings::onCall

class Observed : public Failing {
protected:
    Observed() {
        Settings settings = patient(reports);
        settings.onCall = [this](const ServedCall& call) { calls.add(call); };
        observed = std::make_unique<Server>(
            "127.0.0.1:0", std::make_shared<Emp>([](const std::string& cmd, const std::string&) {
                if (cmd == "int") {
                    throw 42;
                }
                if (cmd == "runtime_error") {
                    throw std::runtime_error("the lens is dirty");
                }
                if (cmd == "slow") {
                    const auto end = std::chrono::steady_clock::now() + kSlow;
                    while (std::chrono::steady_clock::now() < end) {
                    }
                }
                return cmd + " done";
            }),
            settings);
    }

    static constexpr std::chrono::milliseconds kSlow{3};
    Reports<ServedCall> calls;
    std::unique_ptr<Server> observed;
};

TEST_F(Observed, GetsOperationPeerAndOutcome) {
    Caller client(observed->address());
    sockaddr_in own = {};
    socklen_t size = sizeof own;
    getsockname(client.descriptor(), reinterpret_cast<sockaddr*>(&own), &size);
    const std::string peer = "127.0.0.1:" + std::to_string(ntohs(own.sin_port));

    client.send(requestFor("runtime_error") + requestFor("read") + requestFor("int"));
    client.waitForEnd();
    const auto seen = calls.all();
    ASSERT_EQ(seen.size(), 3U);
    for (const ServedCall& call : seen) {
        EXPECT_EQ(call.operation, "Execute");
        EXPECT_EQ(call.peer, peer);
    }
    EXPECT_EQ(seen[0].outcome, ServedCall::Refused);
    EXPECT_EQ(seen[1].outcome, ServedCall::Done);
    EXPECT_EQ(seen[2].outcome, ServedCall::Failed);
}

TEST_F(Observed, GetsTheNamesOfUnknownOperationsAndPartialRequests) {
    Caller client(observed->address());
    std::string unknown = requestFor("read");
    unknown.replace(unknown.find("Execute"), 7, "Destroy");
    const std::string half = requestFor("read");
    client.send(unknown + half.substr(0, half.size() - 1));
    client.closeOutput();
    client.waitForEnd();
    const auto seen = calls.all();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].operation, "Destroy");
    EXPECT_EQ(seen[0].outcome, ServedCall::Refused);
    EXPECT_EQ(seen[1].operation, "Execute");
    EXPECT_EQ(seen[1].outcome, ServedCall::Failed);
}

TEST_F(Observed, GetsTheTimeThatTheHandlerTook) {
    RemoteEmp emp(observed->address());
    const auto begin = std::chrono::steady_clock::now();
    execute(emp, "slow");
    const auto seen = calls.waitFor(1);
    EXPECT_GE(seen[0].duration, kSlow);
    EXPECT_LE(seen[0].duration, std::chrono::steady_clock::now() - begin);
}

class Events : public TavEmpEventIf {
public:
    void Callback(int32_t eventType, const std::string&, const std::string&) override {
        types.add(eventType);
    }
    Reports<int32_t> types;
};

TEST_F(Observed, GetsOneWayCalls) {
    Settings settings = patient(reports);
    settings.onCall = [this](const ServedCall& call) { calls.add(call); };
    const Server events("127.0.0.1:0", std::make_shared<Events>(), settings);
    TavIDL::RemoteCallback callback(events.address());
    callback.Callback(1, "", "");
    const auto seen = calls.waitFor(1);
    EXPECT_EQ(seen[0].operation, "Callback");
    EXPECT_EQ(seen[0].outcome, ServedCall::Done);
}

TEST_F(Observed, MayThrow) {
    Settings settings = patient(reports);
    settings.onCall = [](const ServedCall&) { throw 42; };
    const Server throws("127.0.0.1:0", kEmp, settings);
    RemoteEmp emp(throws.address());
    EXPECT_EQ(execute(emp, "one"), "one done");
    EXPECT_EQ(execute(emp, "two"), "two done");
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(Observed, SeesCallsOfEachProtocol) {
    for (const auto protocol : {Settings::Binary, Settings::Compact}) {
        Settings settings = patient(reports);
        settings.protocol = protocol;
        settings.framed = true;
        settings.onCall = [this](const ServedCall& call) { calls.add(call); };
        const Server each("127.0.0.1:0", kEmp, settings);
        RemoteEmp emp(each.address(), settings);
        ParamList list;
        list.param10 = "lens";
        std::string result;
        emp.ExecuteWithParamList(result, 7, "clean", list);
        EXPECT_EQ(result, "clean lens");
    }
    const auto seen = calls.waitFor(2);
    EXPECT_EQ(seen[0].operation, "ExecuteWithParamList");
    EXPECT_EQ(seen[1].operation, "ExecuteWithParamList");
}

}  // namespace
