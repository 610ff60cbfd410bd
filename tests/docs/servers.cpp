// Prints a table of what libthrift's servers and Host's do when something goes wrong: each cell is
// a server in a process of its own, one thing done to it, and a good call after it.

#include <TavIDL/emp/TavEmp.h>
#include <TavIDL/host/Server.h>
#include <event2/event.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TNonblockingServer.h>
#include <thrift/server/TSimpleServer.h>
#include <thrift/server/TThreadPoolServer.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TNonblockingSSLServerSocket.h>
#include <thrift/transport/TNonblockingServerSocket.h>
#include <thrift/transport/TSSLServerSocket.h>
#include <thrift/transport/TSSLSocket.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "../host/Certificates.h"

using namespace apache::thrift;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TBinaryProtocolFactory;
using apache::thrift::server::TServer;
using apache::thrift::transport::TBufferedTransport;
using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TSocket;
using apache::thrift::transport::TTransportException;

namespace {

enum class Kind { Simple, Threaded, ThreadPool, Nonblocking, Host };
constexpr Kind kKinds[] = {Kind::Simple, Kind::Threaded, Kind::ThreadPool, Kind::Nonblocking,
                           Kind::Host};

struct Precautions {
    bool limits = false;
    bool timeouts = false;
    bool frames = false;
    bool littleMemory = false;
    const Certificate* tls = nullptr;
};

// --- The server's process

class Handler : public TavEmpIf {
public:
    explicit Handler(int parent) : parent_(parent) {}

    bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    int32_t Close(int32_t) override { return 0; }
    void Execute(std::string& result, int32_t, const std::string& cmd, const std::string&,
                 const std::string&, const std::string&, const std::string&) override {
        if (cmd == "exception") {
            throw std::runtime_error("the handler's words");
        }
        if (cmd == "transport") {
            throw TTransportException(TTransportException::NOT_OPEN, "the handler's words");
        }
        if (cmd == "int") {
            throw 7;
        }
        if (cmd == "when asked") {
            char byte = 0;
            if (write(parent_, &byte, 1) != 1 || read(parent_, &byte, 1) != 1) {
                throw std::runtime_error("not asked");
            }
            result.assign(1000000, 'x');
            return;
        }
        result = cmd;
    }
    void ExecuteWithParamList(std::string&, int32_t, const std::string&,
                              const ParamList&) override {}

private:
    const int parent_;
};

void tellPort(int number, int parent) {
    if (write(parent, &number, sizeof number) != sizeof number) {
        _exit(1);
    }
}

struct TellPort : server::TServerEventHandler {
    TellPort(std::function<int()> listening, int output)
        : port(std::move(listening)), parent(output) {}
    void preServe() override { tellPort(port(), parent); }
    std::function<int()> port;
    int parent;
};

std::shared_ptr<transport::TSSLSocketFactory> tlsOf(const Certificate& certificate) {
    auto factory = std::make_shared<transport::TSSLSocketFactory>();
    factory->loadCertificate(certificate.file.c_str());
    factory->loadPrivateKey(certificate.keyFile.c_str());
    factory->authenticate(false);
    return factory;
}

void serveByHost(const Precautions& with, int parent) {
    TavIDL::Settings settings;
    settings.framed = with.frames;
    if (with.tls) {
        settings.tls.enabled = true;
        settings.tls.certificate = with.tls->file;
        settings.tls.key = with.tls->keyFile;
    }
    if (with.timeouts) {
        settings.idleTimeout = settings.receiveTimeout = std::chrono::milliseconds(200);
    }
    TavIDL::Server server("127.0.0.1:0", std::make_shared<Handler>(parent), settings);
    const std::string& address = server.address();
    tellPort(std::stoi(address.substr(address.rfind(':') + 1)), parent);
    server.runUntilSignal();
}

void serve(Kind kind, const Precautions& with, int parent) {
    if (kind == Kind::Host) {
        serveByHost(with, parent);
        return;
    }
    const auto processor = std::make_shared<TavEmpProcessor>(std::make_shared<Handler>(parent));
    const auto protocols = with.limits
                               ? std::make_shared<TBinaryProtocolFactory>(1 << 20, 1000, true, true)
                               : std::make_shared<TBinaryProtocolFactory>();
    std::shared_ptr<transport::TTransportFactory> transports =
        std::make_shared<transport::TBufferedTransportFactory>();
    if (with.frames) {
        transports = std::make_shared<transport::TFramedTransportFactory>();
    }

    if (kind == Kind::Nonblocking) {
        const auto socket =
            with.tls == nullptr
                ? std::make_shared<transport::TNonblockingServerSocket>("127.0.0.1", 0)
                : std::make_shared<transport::TNonblockingSSLServerSocket>("127.0.0.1", 0,
                                                                           tlsOf(*with.tls));
        if (with.timeouts) {
            socket->setRecvTimeout(200);
            socket->setSendTimeout(200);
        }
        server::TNonblockingServer server(processor, protocols, socket);
        server.setServerEventHandler(
            std::make_shared<TellPort>([&] { return socket->getListenPort(); }, parent));
        server.serve();
        return;
    }
    const auto socket =
        with.tls == nullptr
            ? std::make_shared<transport::TServerSocket>("127.0.0.1", 0)
            : std::make_shared<transport::TSSLServerSocket>("127.0.0.1", 0, tlsOf(*with.tls));
    if (with.timeouts) {
        socket->setRecvTimeout(200);
        socket->setSendTimeout(200);
    }
    std::unique_ptr<TServer> server;
    if (kind == Kind::Simple) {
        server = std::make_unique<server::TSimpleServer>(processor, socket, transports, protocols);
    } else if (kind == Kind::Threaded) {
        server =
            std::make_unique<server::TThreadedServer>(processor, socket, transports, protocols);
    } else {
        const auto workers = concurrency::ThreadManager::newSimpleThreadManager(1);
        workers->threadFactory(std::make_shared<concurrency::ThreadFactory>());
        workers->start();
        server = std::make_unique<server::TThreadPoolServer>(processor, socket, transports,
                                                             protocols, workers);
    }
    server->setServerEventHandler(
        std::make_shared<TellPort>([&] { return socket->getPort(); }, parent));
    server->serve();
}

class ServerProcess {
public:
    ServerProcess(Kind kind, const Precautions& with) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        pid_ = fork();
        if (pid_ == 0) {
            const rlimit none{0, 0};
            setrlimit(RLIMIT_CORE, &none);
            if (with.littleMemory) {
                const rlimit gibibyte{1 << 30, 1 << 30};
                setrlimit(RLIMIT_AS, &gibibyte);
            }
            if (freopen("/dev/null", "w", stderr) == nullptr) {
                _exit(1);
            }
            close(ends[0]);
            try {
                serve(kind, with, ends[1]);
            } catch (...) {
                std::abort();  // as a program ends that does not catch it
            }
            _exit(0);
        }
        // A TLS client writes to a server that has just ended; this must not end the client. Not
        // before the fork: the server would inherit it.
        (void)signal(SIGPIPE, SIG_IGN);
        close(ends[1]);
        child_ = ends[0];
        const bool known = read(child_, &port_, sizeof port_) == sizeof port_;
        if (!known) {
            throw std::runtime_error("a server does not start");
        }
    }

    ~ServerProcess() {
        if (pid_ != 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(child_);
    }

    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    int port() const { return port_; }

    // Waits until the handler of "when asked" runs; lets it go on.
    void awaitHandler() const {
        char byte = 0;
        check(read(child_, &byte, 1));
    }
    void tellHandler() const { check(write(child_, "", 1)); }

    // How many there are; at most one once it has ended.
    int threads() const {
        std::error_code gone;  // if it ends while they are counted
        int count = 0;
        std::filesystem::directory_iterator each("/proc/" + std::to_string(pid_) + "/task", gone);
        for (; !gone && each != std::filesystem::directory_iterator(); each.increment(gone)) {
            ++count;
        }
        return count;
    }

    // Waits for its end.
    void awaitEnd() {
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }

    bool hasEnded() {
        if (pid_ != 0 && waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = 0;
        }
        return pid_ == 0;
    }

private:
    static void check(ssize_t bytes) {
        if (bytes != 1) {
            throw std::runtime_error("a server cannot be talked with");
        }
    }

    pid_t pid_ = 0;
    int port_ = 0;
    int child_ = -1;
};

// --- What is done to it

std::shared_ptr<TSocket> connected(int port, int timeout, const Certificate* tls = nullptr) {
    auto socket = std::make_shared<TSocket>("127.0.0.1", port);
    if (tls != nullptr) {
        transport::TSSLSocketFactory factory;
        factory.loadTrustedCertificates(tls->file.c_str());
        socket = factory.createSocket("127.0.0.1", port);
    }
    socket->setConnTimeout(timeout);
    socket->setSendTimeout(timeout);
    socket->setRecvTimeout(timeout);
    socket->open();
    return socket;
}

TavEmpClient clientOf(bool framed, const std::shared_ptr<TSocket>& socket) {
    std::shared_ptr<transport::TTransport> transport;
    if (framed) {
        transport = std::make_shared<TFramedTransport>(socket);
    } else {
        transport = std::make_shared<TBufferedTransport>(socket);
    }
    return TavEmpClient(std::make_shared<TBinaryProtocol>(transport));
}

std::string executed(Kind kind, const Precautions& with, int port, const std::string& command,
                     int timeout = 10000) {
    try {
        TavEmpClient client =
            clientOf(kind == Kind::Nonblocking, connected(port, timeout, with.tls));
        std::string result;
        client.Execute(result, 0, command, "", "", "", "");
        return result;
    } catch (const TApplicationException& failure) {
        return std::string("answered: ") + failure.what();
    } catch (const TTransportException& failure) {
        return failure.getType() == TTransportException::TIMED_OUT ? "silent" : "closed";
    }
}

// Sends bytes and waits for the end of the connection.
std::string sent(int port, const std::string& bytes, int timeout = 10000) {
    try {
        const auto socket = connected(port, timeout);
        socket->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<uint32_t>(bytes.size()));
        uint8_t answer = 0;
        return socket->read(&answer, 1) == 0 ? "closed" : "answered";
    } catch (const TTransportException& failure) {
        return failure.getType() == TTransportException::TIMED_OUT ? "silent" : "closed";
    }
}

std::string answeredCall(Kind kind, const Precautions& with, const std::string& command) {
    ServerProcess server(kind, with);
    const std::string outcome = executed(kind, with, server.port(), command);
    const std::string then = executed(kind, with, server.port(), "good");
    if (then == "good") {
        return outcome == "closed" ? "closes the connection" : outcome;
    }
    server.awaitEnd();
    return "**ends the process**";
}

std::string hostileBytes(Kind kind, const Precautions& with, const std::string& bytes) {
    ServerProcess server(kind, with);
    const std::string outcome = sent(server.port(), bytes);
    const std::string then = executed(kind, with, server.port(), "good");
    if (then == "good") {
        return outcome == "closed" ? "closes the connection" : outcome;
    }
    server.awaitEnd();
    return "**ends the process**";
}

std::string silentClient(Kind kind, const Precautions& with) {
    ServerProcess server(kind, with);
    const auto silent = connected(server.port(), 10000);
    const uint8_t half[] = {0x80, 0x01};   // of a call's first four bytes
    const uint8_t hello[] = {0x16, 0x03};  // the same of a TLS handshake
    silent->write(with.tls == nullptr ? half : hello, sizeof half);
    // A server that is to get rid of a silent client is given the time to do so.
    const std::string then =
        executed(kind, with, server.port(), "good", with.timeouts ? 10000 : 3000);
    if (server.hasEnded()) {
        return "**ends the process**";
    }
    return then == "good" ? "serves others" : "**others wait**";
}

std::string idleClient(Kind kind, const Precautions& with) {
    const ServerProcess server(kind, with);
    return sent(server.port(), "", 3000) == "closed" ? "closes the connection" : "keeps it";
}

// A client that gives up while its call runs.
std::string impatientClient(Kind kind, const Precautions& with) {
    ServerProcess server(kind, with);
    const int before = server.threads();
    {
        const auto socket = connected(server.port(), 10000, with.tls);
        TavEmpClient client = clientOf(kind == Kind::Nonblocking, socket);
        std::string result;
        client.Execute(result, 0, "good", "", "", "", "");
        client.send_Execute(0, "when asked", "", "", "", "");
        server.awaitHandler();
        socket->close();
    }
    server.tellHandler();
    while (server.threads() > before) {  // those that have one for the connection
        std::this_thread::yield();
    }
    const std::string then = executed(kind, with, server.port(), "good");
    if (then == "good") {
        return "serves others";
    }
    server.awaitEnd();
    return "**ends the process**";
}

// Calls of one megabyte each, over one connection.
std::string manyCalls(Kind kind, const Precautions& with) {
    if (kind == Kind::Nonblocking && !with.frames) {
        return "it has frames only";
    }
    const ServerProcess server(kind, with);
    TavEmpClient client = clientOf(with.frames, connected(server.port(), 10000));
    const std::string megabyte(1000000, 'x');
    std::string result;
    int answered = 0;
    try {
        for (; answered < 110; ++answered) {
            client.Execute(result, 0, "good", megabyte, "", "", "");
        }
    } catch (const TTransportException& failure) {
        return "closes the connection after " + std::to_string(answered);
    }
    return "answers all";
}

struct Row {
    const char* what;
    std::function<std::string(Kind)> cell;
};

std::string outcomeOf(const Row& row, Kind kind) {
    try {
        return row.cell(kind);
    } catch (const std::exception& failure) {
        return std::string("failed: ") + failure.what();
    }
}

// The cells wait for their servers' time-outs, so they do it together, each in a process.
std::string lineOf(const Row& row) {
    std::vector<int> results;
    for (const Kind kind : kKinds) {
        int ends[2];
        if (pipe(ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        if (fork() == 0) {
            const std::string cell = outcomeOf(row, kind);
            _exit(write(ends[1], cell.data(), cell.size()) < 0 ? 1 : 0);
        }
        close(ends[1]);
        results.push_back(ends[0]);
    }
    std::string line = std::string("| ") + row.what;
    for (const int result : results) {
        line += " | ";
        char bytes[200];
        for (ssize_t size; (size = read(result, bytes, sizeof bytes)) > 0;) {
            line.append(bytes, static_cast<std::size_t>(size));
        }
        close(result);
        wait(nullptr);
    }
    return line + " |";
}

}  // namespace

int main() try {
    // In front of a frame where the server expects frames, these four bytes are the
    // length of the frame; else they are that of the operation's name.
    const std::string huge("\x7f\xff\xff\xff", 4);
    const std::string http = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";

    Precautions none;
    Precautions limits;
    limits.limits = true;
    Precautions timeouts;
    timeouts.timeouts = true;
    Precautions frames;
    frames.frames = true;
    Precautions littleMemory;
    littleMemory.littleMemory = true;
    const Directory directory;
    const Certificate certificate = makeCertificate(directory, "server", "IP:127.0.0.1", nullptr);
    Precautions tls;
    tls.tls = &certificate;
    Precautions tlsAndTimeouts = tls;
    tlsAndTimeouts.timeouts = true;
    Precautions littleMemoryAndLimits = littleMemory;
    littleMemoryAndLimits.limits = true;

    const Row rows[] = {
        {"A handler throws a `std::exception`",
         [&](Kind kind) { return answeredCall(kind, none, "exception"); }},
        {"A handler throws a `TTransportException`",
         [&](Kind kind) { return answeredCall(kind, none, "transport"); }},
        {"A handler throws an `int`", [&](Kind kind) { return answeredCall(kind, none, "int"); }},
        {"Four bytes `7f ff ff ff`, and less than 2 GiB of memory",
         [&](Kind kind) { return hostileBytes(kind, littleMemory, huge); }},
        {"the same, with limits",
         [&](Kind kind) { return hostileBytes(kind, littleMemoryAndLimits, huge); }},
        {"An HTTP request, with limits",
         [&](Kind kind) { return hostileBytes(kind, limits, http); }},
        {"A client stops in the middle of a call",
         [&](Kind kind) { return silentClient(kind, none); }},
        {"the same, with timeouts", [&](Kind kind) { return silentClient(kind, timeouts); }},
        {"A client closes the connection before it gets a result of 1 MB",
         [&](Kind kind) { return impatientClient(kind, none); }},
        {"the same, with TLS", [&](Kind kind) { return impatientClient(kind, tls); }},
        {"A client stops in the middle of the TLS handshake",
         [&](Kind kind) { return silentClient(kind, tls); }},
        {"the same, with timeouts", [&](Kind kind) { return silentClient(kind, tlsAndTimeouts); }},
        {"A client is idle for longer than the timeouts",
         [&](Kind kind) { return idleClient(kind, timeouts); }},
        {"110 calls of 1 MB each over one connection, with frames",
         [&](Kind kind) { return manyCalls(kind, frames); }},
        {"the same, with a buffer in their place",
         [&](Kind kind) { return manyCalls(kind, none); }},
    };

    std::cout << "| | TSimpleServer | TThreadedServer | TThreadPoolServer | TNonblockingServer | "
                 "TavIDL::Server |\n"
              << "| --- | --- | --- | --- | --- | --- |" << std::endl;
    for (const Row& row : rows) {
        std::cout << lineOf(row) << std::endl;
    }
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
}
