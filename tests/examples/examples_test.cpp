// Runs the examples' processes and checks what they promise to readers who copy them.

#include <TavIDL/host/Remote.h>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>

#include "processes.h"

namespace {

using apache::thrift::TApplicationException;
using TavIDL::CallFailed;

constexpr int kWaitMs = 20000;

std::string example(const std::string& name) {
    return std::string(EXAMPLES_DIR) + "/" + name;
}

// Waits for the end of a process and returns how it ended.
std::string endingOf(ChildProcess& process) {
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOWAIT);
    return process.ending().value_or("still running");
}

std::set<pid_t> childrenOf(pid_t parent) {
    std::set<pid_t> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string text;
        std::getline(stat, text);
        const auto name = text.rfind(')');  // The name before it may contain anything.
        if (name == std::string::npos) {
            continue;
        }
        std::istringstream rest(text.substr(name + 1));
        std::string state;
        pid_t itsParent = 0;
        rest >> state >> itsParent;
        if (itsParent == parent) {
            children.insert(std::stoi(entry.path().filename()));
        }
    }
    return children;
}

std::set<std::string> socketsOf(pid_t pid) {
    std::set<std::string> sockets;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path());
        if (target.rfind("socket:", 0) == 0) {
            sockets.insert(target);
        }
    }
    return sockets;
}

// The memory in MiB from a line of /proc/PID/status.
long memoryOf(pid_t pid, const std::string& line) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    while (status >> word) {
        if (word == line + ":") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes / 1024;
        }
    }
    return -1;
}

std::string addressOf(int port) {
    return ":" + std::to_string(port);
}

class Broker {
public:
    Broker() : process_({example("broker")}), port_(std::stoi(process_.readLine(kWaitMs))) {}
    ~Broker() { kill(process_.pid(), SIGTERM); }

    ChildProcess& process() { return process_; }
    int port() const { return port_; }

    ConnectionInfo open(const std::string& name = "thermometer", const std::string& version = "1.0",
                        const std::string& credential = "swordfish") {
        ConnectionInfo info;
        remote_.OpenEmp(info, name, version, credential);
        return info;
    }

    bool close(const ConnectionInfo& info) { return remote_.CloseEmp(info); }

    std::string nameAt(int callbackPort) {
        std::string result;
        remote_.Execute(result, callbackPort, "name", "", "", "", "");
        return result;
    }

private:
    ChildProcess process_;
    int port_;
    TavIDL::RemoteBroker remote_{addressOf(port_)};
};

class Emp {
public:
    explicit Emp(int port) : remote_(addressOf(port)) {}

    bool open() { return remote_.Open(7, "thermometer", "1.0", "swordfish"); }

    std::string execute(const std::string& cmd, const std::string& param1 = "") {
        std::string result;
        remote_.Execute(result, 7, cmd, param1, "", "", "");
        return result;
    }

private:
    TavIDL::RemoteEmp remote_;
};

// A running callback service.
class CallbackService {
public:
    explicit CallbackService(const ReservedPort& port)
        : process_({example("callback"), std::to_string(port.number())}) {
        EXPECT_EQ(nextLine(), "serves");
    }

    pid_t pid() const { return process_.pid(); }
    std::string nextLine() { return process_.readLine(kWaitMs); }

private:
    ChildProcess process_;
};

// The text of the exception in the peer's answer.
std::string refusalOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const TApplicationException& failure) {
        return failure.what();
    }
    return "not refused";
}

struct ExamplesTest : testing::Test {
    ExamplesTest() {
        setenv("TAV_CREDENTIAL", "swordfish", 1);
        // Processes whose parent is killed become children of this process, which sees them end.
        adopts_ = prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
    }

    // QEMU does not support it.
    bool adopts_;
};

TEST_F(ExamplesTest, TheProgramRunsAsExpectedAndLeavesNoProcess) {
    Broker broker;
    {
        ChildProcess program({example("program"), std::to_string(broker.port())});
        EXPECT_EQ(endingOf(program), "exit status 0");
    }
    EXPECT_EQ(childrenOf(broker.process().pid()), std::set<pid_t>());
    EXPECT_EQ(childrenOf(getpid()), std::set<pid_t>{broker.process().pid()});
}

TEST_F(ExamplesTest, TheProgramFailsWhenTheBrokerRejectsItsCredential) {
    Broker broker;
    setenv("TAV_CREDENTIAL", "guessed", 1);
    ChildProcess program({example("program"), std::to_string(broker.port())});
    EXPECT_EQ(endingOf(program), "exit status 1");
}

TEST_F(ExamplesTest, TheProgramFailsWhenThereIsNoBroker) {
    const ReservedPort port;
    ChildProcess program({example("program"), std::to_string(port.number())});
    EXPECT_EQ(endingOf(program), "exit status 1");
}

TEST_F(ExamplesTest, ProcessesEndWithStatusOneOnInvalidArguments) {
    for (const auto& command :
         std::vector<std::vector<std::string>>{{example("program")},
                                               {example("program"), "port"},
                                               {example("program"), "65536"},
                                               {example("callback"), "65536"},
                                               {example("callback"), ""},
                                               {example("emp"), "emp-1", "4000"},
                                               {example("emp"), "emp-1", "-1", "4000"}}) {
        ChildProcess process(command);
        EXPECT_EQ(endingOf(process), "exit status 1") << command.back();
    }
    unsetenv("TAV_CREDENTIAL");
    ChildProcess broker({example("broker")});
    EXPECT_EQ(endingOf(broker), "exit status 1");
}

TEST_F(ExamplesTest, TheBrokerRejectsAWrongCredentialWithAClearMessage) {
    Broker broker;
    EXPECT_EQ(refusalOf([&] { broker.open("thermometer", "1.0", "guessed"); }),
              "wrong credential for 'thermometer'");
}

TEST_F(ExamplesTest, TheBrokerRejectsAnUnknownNameWithAClearMessage) {
    Broker broker;
    EXPECT_EQ(refusalOf([&] { broker.open("barometer"); }), "there is no EMP 'barometer'");
}

TEST_F(ExamplesTest, TheBrokerRejectsAnUnknownVersionWithAClearMessage) {
    Broker broker;
    EXPECT_EQ(refusalOf([&] { broker.open("thermometer", "9.9"); }),
              "'thermometer' has version 1.0, not '9.9'");
}

TEST_F(ExamplesTest, TheBrokerOpensAtMostSixteenEmpsAtATime) {
    Broker broker;
    std::vector<ConnectionInfo> open;
    open.reserve(16);
    for (int i = 0; i < 16; ++i) {
        open.push_back(broker.open());
    }
    EXPECT_EQ(refusalOf([&] { broker.open(); }), "too many EMPs are open");
    EXPECT_TRUE(broker.close(open.front()));
    EXPECT_EQ(broker.open().empID, "emp-17");
}

TEST_F(ExamplesTest, NoProcessIsLeftOnceAnEmpIsClosed) {
    Broker broker;
    const ConnectionInfo info = broker.open();
    EXPECT_EQ(childrenOf(broker.process().pid()).size(), 1u);

    EXPECT_TRUE(broker.close(info));

    EXPECT_EQ(childrenOf(broker.process().pid()), std::set<pid_t>());
    EXPECT_FALSE(broker.close(info));
}

TEST_F(ExamplesTest, NoProcessIsLeftWhenTheBrokerIsTerminated) {
    Broker broker;
    broker.open();
    broker.open();

    kill(broker.process().pid(), SIGTERM);

    EXPECT_EQ(endingOf(broker.process()), "exit status 0");
    EXPECT_EQ(childrenOf(getpid()), std::set<pid_t>());
}

TEST_F(ExamplesTest, AnEmpEndsWhenTheBrokerIsKilled) {
    Broker broker;
    broker.open();
    const pid_t emp = *childrenOf(broker.process().pid()).begin();
    pollfd end{static_cast<int>(syscall(SYS_pidfd_open, emp, 0)), POLLIN, 0};

    kill(broker.process().pid(), SIGKILL);

    EXPECT_EQ(endingOf(broker.process()), "signal 9");
    EXPECT_EQ(poll(&end, 1, kWaitMs), 1);
    close(end.fd);
    if (adopts_) {
        int status = -1;
        EXPECT_EQ(waitpid(emp, &status, 0), emp);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(ExamplesTest, TheBrokerForgetsAnEmpThatHasDiedAndLeavesNoZombie) {
    Broker broker;
    const ConnectionInfo info = broker.open();
    const pid_t emp = *childrenOf(broker.process().pid()).begin();

    kill(emp, SIGTERM);

    // It notices by a signal, at some later time.
    std::string answer;
    do {
        answer = refusalOf([&] { broker.nameAt(info.callbackServicePort); });
    } while (answer == "not refused");
    EXPECT_EQ(answer, "no EMP is open for port " + std::to_string(info.callbackServicePort));
    EXPECT_EQ(childrenOf(broker.process().pid()), std::set<pid_t>());
    EXPECT_FALSE(broker.close(info));
    EXPECT_EQ(broker.open().empID, "emp-2");
}

TEST_F(ExamplesTest, AnEmpSharesNoConnectionWithItsBroker) {
    Broker broker;
    broker.open();
    const pid_t emp = *childrenOf(broker.process().pid()).begin();

    std::set<std::string> common = socketsOf(broker.process().pid());
    EXPECT_FALSE(common.empty());
    for (auto socket = common.begin(); socket != common.end();) {
        socket = socketsOf(emp).count(*socket) == 0 ? common.erase(socket) : std::next(socket);
    }
    EXPECT_EQ(common, std::set<std::string>());
}

TEST_F(ExamplesTest, ANonStandardExceptionEndsOnlyItsConnection) {
    Broker broker;
    const ConnectionInfo info = broker.open();
    Emp other(info.empServicePort);
    EXPECT_TRUE(other.open());
    Emp emp(info.empServicePort);
    EXPECT_EQ(emp.execute("read"), "21.5 C");

    EXPECT_THROW(emp.execute("jam"), CallFailed);

    EXPECT_EQ(other.execute("read"), "21.5 C");
    EXPECT_EQ(emp.execute("read"), "21.5 C");
    EXPECT_TRUE(broker.close(info));
}

TEST_F(ExamplesTest, ACommandIsAnsweredEvenIfNobodyReceivesItsEvents) {
    Broker broker;
    Emp emp(broker.open().empServicePort);
    EXPECT_TRUE(emp.open());
    EXPECT_EQ(emp.execute("watch", "kitchen"), "watched kitchen");
}

TEST_F(ExamplesTest, AnEventThatHoldsALineEndStaysOneLine) {
    const ReservedPort port;
    CallbackService callback(port);
    TavIDL::RemoteCallback(addressOf(port.number())).Callback(1, "a\n1 b", "\x1b[2J");
    EXPECT_EQ(callback.nextLine(), "1 a?1 b ?[2J");
}

TEST_F(ExamplesTest, AConnectionLastsForMoreThanAHundredMebibytes) {
    Broker broker;
    Emp emp(broker.open().empServicePort);
    EXPECT_TRUE(emp.open());
    for (int i = 0; i < 110; ++i) {
        EXPECT_EQ(emp.execute("read", std::string(1000000, 'x')), "21.5 C");
    }
}

TEST_F(ExamplesTest, AStringBeyondTheLimitEndsOnlyItsConnection) {
    Broker broker;
    Emp emp(broker.open().empServicePort);
    EXPECT_TRUE(emp.open());
    EXPECT_THROW(emp.execute("read", std::string(1100000, 'x')), CallFailed);
    EXPECT_EQ(emp.execute("read"), "21.5 C");
}

TEST_F(ExamplesTest, TheSystemGivesAReservedPortToNoOtherProcess) {
    std::deque<ReservedPort> kept(50);
    std::set<int> numbers;
    for (const ReservedPort& port : kept) {
        numbers.insert(port.number());
    }
    EXPECT_EQ(numbers.size(), 50u);
    for (int i = 0; i < 5000; ++i) {
        EXPECT_EQ(numbers.count(ReservedPort().number()), 0u);
    }
}

TEST_F(ExamplesTest, AReservedPortRefusesConnectionsUntilItsServerListens) {
    const ReservedPort port;
    EXPECT_THROW(TavIDL::RemoteCallback(addressOf(port.number())).Callback(1, "", ""), CallFailed);
    for (int i = 0; i < 2; ++i) {
        CallbackService callback(port);
        TavIDL::RemoteCallback(addressOf(port.number())).Callback(5, "p", "q");
        EXPECT_EQ(callback.nextLine(), "5 p q");
    }
}

// --- Bytes that are not a call

struct Hostile {
    const char* name;
    std::vector<std::string> connections;  // The bytes sent on each.
};

std::ostream& operator<<(std::ostream& out, const Hostile& hostile) {
    return out << hostile.name;
}

std::vector<std::string> randomBytes() {
    std::mt19937 random(20240229);
    std::vector<std::string> connections(50);
    for (std::string& bytes : connections) {
        for (auto left = random() % 3000; left > 0; --left) {
            bytes += static_cast<char>(random() & 0xff);
        }
    }
    return connections;
}

std::string bytes(std::initializer_list<int> values) {
    std::string result;
    for (const int value : values) {
        result += static_cast<char>(value);
    }
    return result;
}

// The header of a call.
std::string header(const std::string& name) {
    return bytes({0x80, 1, 0, 1, 0, 0, 0, static_cast<int>(name.size())}) + name +
           bytes({0, 0, 0, 0});
}

std::string repeated(const std::string& part, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += part;
    }
    return result;
}

// Random fields in calls of known operations, so that the random bytes reach the records.
std::vector<std::string> callsOfRandomBytes() {
    std::vector<std::string> connections = randomBytes();
    const std::string names[] = {"OpenEmp", "Execute", "Callback", "Foo"};
    for (std::size_t i = 0; i < connections.size(); ++i) {
        connections[i].insert(0, header(names[i % 4]));
    }
    return connections;
}

// The same fields in calls of each service, and of an unknown operation.
std::vector<std::string> calls(const std::string& fields) {
    return {header("OpenEmp") + fields, header("Execute") + fields, header("Callback") + fields,
            header("Foo") + fields};
}

const std::string kTwoGiB = bytes({0x7f, 0xff, 0xff, 0xff});

const std::vector<Hostile> kHostile = {
    {"TheFourBytes", {kTwoGiB}},
    {"ANameOfTwoGiB", {bytes({0x80, 1, 0, 1}) + kTwoGiB}},
    {"AStringOfTwoGiB", calls(bytes({11, 0, 2}) + kTwoGiB)},
    {"AListOfTwoGiB", calls(bytes({15, 0, 99, 11}) + kTwoGiB)},
    {"StructsInStructsInStructs", calls(repeated(bytes({12, 0, 99}), 100000))},
    {"AnHttpRequest", {"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"}},
    {"RandomBytes", randomBytes()},
    {"CallsOfRandomBytes", callsOfRandomBytes()},
    {"HalfAMessage", {bytes({0x80, 1, 0, 1, 0, 0, 0, 7}) + "Exec"}},
    {"Nothing", {""}},
};

// Sends `content`, ends the sending side, and waits for the server to close. Returns its answer.
std::string sendRaw(int port, const std::string& content) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    // The server may close before it has read everything.
    send(fd, content.data(), content.size(), MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    std::string answer;
    char piece[512];
    for (ssize_t size = 0; (size = recv(fd, piece, sizeof piece, 0)) > 0;) {
        answer.append(piece, static_cast<std::size_t>(size));
    }
    close(fd);
    return answer;
}

TEST_F(ExamplesTest, ACallWithoutAVersionIsNotServed) {
    Broker broker;
    // libthrift also accepts this as a call, unless it is strict.
    const std::string call = bytes({0, 0, 0, 8}) + "CloseEmp" + bytes({1, 0, 0, 0, 0, 0});
    EXPECT_EQ(sendRaw(broker.port(), call), "");
}

// How much a process may grow, in MiB. A sanitizer keeps its own records about each thread and its
// memory. QEMU keeps 0.3 MiB for each thread that a 64-bit ARM program has ever had. The 2 GiB that
// a peer may claim exceed all of these limits.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr long kMostGrowth = 256;
#elif defined(EMULATED)
constexpr long kMostGrowth = 64;
#else
constexpr long kMostGrowth = 16;
#endif

struct HostileTest : ExamplesTest, testing::WithParamInterface<Hostile> {
    // Sends the bytes between two valid calls. The process must not have grown: neither its used
    // memory nor its reserved memory, of which each thread takes much.
    void attack(pid_t pid, int port, const std::function<void()>& goodCall) {
        goodCall();
        const long used = memoryOf(pid, "VmHWM");
        const long asked = memoryOf(pid, "VmPeak");
        ASSERT_GT(used, 0);
        for (const std::string& content : GetParam().connections) {
            sendRaw(port, content);
        }
        goodCall();
        EXPECT_LT(memoryOf(pid, "VmHWM") - used, kMostGrowth);
        EXPECT_LT(memoryOf(pid, "VmPeak") - asked, 1024);
    }
};

TEST_P(HostileTest, LeaveABrokerServing) {
    Broker broker;
    attack(broker.process().pid(), broker.port(), [&] {
        EXPECT_EQ(refusalOf([&] { broker.open("barometer"); }), "there is no EMP 'barometer'");
    });
}

TEST_P(HostileTest, LeaveAnEmpServing) {
    Broker broker;
    const ConnectionInfo info = broker.open();
    const pid_t pid = *childrenOf(broker.process().pid()).begin();
    attack(pid, info.empServicePort, [&] {
        Emp emp(info.empServicePort);
        EXPECT_TRUE(emp.open());
        EXPECT_EQ(emp.execute("read"), "21.5 C");
    });
    EXPECT_TRUE(broker.close(info));
}

TEST_P(HostileTest, LeaveACallbackServiceServing) {
    const ReservedPort port;
    CallbackService callback(port);
    attack(callback.pid(), port.number(), [&] {
        TavIDL::RemoteCallback(addressOf(port.number())).Callback(3, "a", "b");
        EXPECT_EQ(callback.nextLine(), "3 a b");
    });
}

INSTANTIATE_TEST_SUITE_P(Bytes, HostileTest, testing::ValuesIn(kHostile),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
