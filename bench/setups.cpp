// The cost of a round trip for each set-up of a connection: libthrift's servers and sockets, and
// Host. The call is always the same; bare sockets pass the same bytes. Also how long a server takes
// to stop. A benchmark's name consists of the set-up and the transport.

#include "memory.h"

#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Server.h>
#include <benchmark/benchmark.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TNonblockingServer.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TNonblockingServerSocket.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <iostream>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace apache::thrift::concurrency;
using namespace apache::thrift::protocol;
using namespace apache::thrift::server;
using namespace apache::thrift::transport;
using namespace bench;
using std::chrono::milliseconds;

constexpr int kPatience = 10'000;  // milliseconds; a peer that is silent for longer hangs
constexpr int kBatch = 16;

const std::string kText(8, 'r');

enum class Way { tcp, unixSocket };
constexpr Way kWays[] = {Way::tcp, Way::unixSocket};

const char* nameOf(Way way) {
    return way == Way::tcp ? "tcp" : "unix";
}

std::string socketPath() {
    static std::atomic<int> last{0};
    return "/tmp/bench-setups." + std::to_string(getpid()) + "." + std::to_string(++last);
}

std::string hostAddress(Way way) {
    return way == Way::tcp ? "127.0.0.1:0" : "unix:" + socketPath();
}

// Makes one round trip. The connection and the server exist as long as this object.
using RoundTrip = std::function<void()>;

std::shared_ptr<apache::thrift::TProcessor> processor() {
    return kOurs.makeProcessor(Service::broker, Encoding::staticBinary, kText.size());
}

void call(TavBrokerIf& broker) {
    std::string result;
    broker.Execute(result, 123456, kText, kText, kText, kText, kText);
}

// One of libthrift's servers, in its own thread.
class Running {
public:
    Running(std::shared_ptr<TServer> server, std::string path)
        : server_(std::move(server)), path_(std::move(path)) {
        auto listening = std::make_shared<Listening>();
        server_->setServerEventHandler(listening);
        thread_ = std::thread([this] { server_->serve(); });
        listening->promise.get_future().wait();
    }
    ~Running() {
        server_->stop();
        thread_.join();
        unlink(path_.c_str());
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    struct Listening : TServerEventHandler {
        void preServe() override { promise.set_value(); }
        std::promise<void> promise;
    };

    std::shared_ptr<TServer> server_;
    std::string path_;
    std::thread thread_;
};

std::shared_ptr<TSocket> connect(Way way, const std::string& path, int port) {
    auto socket = way == Way::tcp ? std::make_shared<TSocket>("127.0.0.1", port)
                                  : std::make_shared<TSocket>(path);
    socket->setConnTimeout(kPatience);
    socket->setRecvTimeout(kPatience);
    socket->setSendTimeout(kPatience);
    socket->open();
    return socket;
}

template <typename Transport>
RoundTrip caller(std::shared_ptr<Running> server, std::shared_ptr<TSocket> socket) {
    auto protocol = std::make_shared<TBinaryProtocolT<TBufferBase>>(
        std::make_shared<Transport>(std::move(socket)));
    auto client = std::make_shared<TavBrokerClient>(protocol);
    return [server, client] { call(*client); };
}

std::shared_ptr<TProtocolFactory> protocols() {
    return std::make_shared<TBinaryProtocolFactoryT<TBufferBase>>();
}

template <typename Transport, typename Factory>
RoundTrip threaded(Way way) {
    const std::string path = socketPath();
    auto listener = way == Way::tcp ? std::make_shared<TServerSocket>("127.0.0.1", 0)
                                    : std::make_shared<TServerSocket>(path);
    listener->setRecvTimeout(kPatience);
    listener->setSendTimeout(kPatience);
    auto server = std::make_shared<Running>(
        std::make_shared<TThreadedServer>(processor(), listener, std::make_shared<Factory>(),
                                          protocols()),
        path);
    return caller<Transport>(server, connect(way, path, listener->getPort()));
}

RoundTrip nonblocking(Way way, std::size_t workers) {
    const std::string path = socketPath();
    auto listener = way == Way::tcp ? std::make_shared<TNonblockingServerSocket>("127.0.0.1", 0)
                                    : std::make_shared<TNonblockingServerSocket>(path);
    std::shared_ptr<ThreadManager> threads;
    if (workers > 0) {
        threads = ThreadManager::newSimpleThreadManager(workers);
        threads->threadFactory(std::make_shared<ThreadFactory>());
        threads->start();
    }
    auto server = std::make_shared<Running>(
        std::make_shared<TNonblockingServer>(processor(), protocols(), listener, threads), path);
    return caller<TFramedTransport>(server, connect(way, path, listener->getListenPort()));
}

std::shared_ptr<TavIDL::Server> hostServer(Way way, const TavIDL::Settings& settings) {
    return std::make_shared<TavIDL::Server>(hostAddress(way), processor(), settings);
}

RoundTrip host(Way way, bool framed) {
    TavIDL::Settings settings;
    settings.framed = framed;
    auto server = hostServer(way, settings);
    auto broker = std::make_shared<TavIDL::RemoteBroker>(server->address(), settings);
    return [server, broker] { call(*broker); };
}

// Calls per batch: results.py divides by this.
RoundTrip batch(Way way) {
    auto server = hostServer(way, TavIDL::Settings());
    auto broker = std::make_shared<TavIDL::RemoteBroker>(server->address());
    return [server, broker] {
        TavIDL::BrokerBatch calls(*broker);
        std::future<std::string> results[kBatch];
        for (auto& result : results) {
            result = calls.Execute(123456, kText, kText, kText, kText, kText);
        }
        calls.run();
        for (auto& result : results) {
            result.get();
        }
    };
}

bool receive(TSocket& socket, std::string& bytes) {
    return recv(socket.getSocketFD(), bytes.data(), bytes.size(), MSG_WAITALL) ==
           static_cast<ssize_t>(bytes.size());
}

void send(TSocket& socket, const std::string& bytes) {
    if (::send(socket.getSocketFD(), bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("a bare socket sent too few bytes");
    }
}

// Serves a connection until its end. The time-out applies to each message.
class BareProcessor : public apache::thrift::TProcessor {
public:
    BareProcessor(std::string request, std::string reply)
        : request_(std::move(request)), reply_(std::move(reply)) {}

    bool process(std::shared_ptr<TProtocol> input, std::shared_ptr<TProtocol>, void*) override {
        const auto transport = input->getTransport();
        auto& socket = dynamic_cast<TSocket&>(*transport);
        std::string request = request_;
        while (receive(socket, request)) {
            send(socket, reply_);
        }
        return false;
    }

private:
    const std::string request_;
    const std::string reply_;
};

// Without time-outs, buffers and protocol: only the system's part.
RoundTrip bare(Way way) {
    const auto messages =
        MemoryExchange(kOurs, Operation::brokerExecute, Encoding::binary, kText.size())
            .requestAndReply();
    const std::string path = socketPath();
    auto listener = way == Way::tcp ? std::make_shared<TServerSocket>("127.0.0.1", 0)
                                    : std::make_shared<TServerSocket>(path);
    auto server = std::make_shared<Running>(
        std::make_shared<TThreadedServer>(
            std::make_shared<BareProcessor>(messages.first, messages.second), listener,
            std::make_shared<TTransportFactory>(), std::make_shared<TBinaryProtocolFactory>()),
        path);
    auto socket = connect(way, path, listener->getPort());
    return [server, socket, request = messages.first, reply = messages.second]() mutable {
        send(*socket, request);
        if (!receive(*socket, reply)) {
            throw std::runtime_error("the other bare socket is closed");
        }
    };
}

struct Setup {
    const char* name;
    RoundTrip (*start)(Way way);
};

const Setup kSetups[] = {
    {"bare", bare},
    {"threaded", threaded<TBufferedTransport, TBufferedTransportFactory>},
    {"threaded_framed", threaded<TFramedTransport, TFramedTransportFactory>},
    {"nonblocking", [](Way way) { return nonblocking(way, 0); }},
    {"nonblocking_4", [](Way way) { return nonblocking(way, 4); }},
    {"host", [](Way way) { return host(way, false); }},
    {"host_framed", [](Way way) { return host(way, true); }},
    {"host_batch", batch},
};

// How long stop() takes with 50 connections, on one of which a call runs that takes 300 ms.
void stop(benchmark::State& state, Way way) {
    struct Slow : TavEmpIf {
        bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
            return true;
        }
        int32_t Close(int32_t) override { return 0; }
        void Execute(std::string& result, int32_t, const std::string&, const std::string&,
                     const std::string&, const std::string&, const std::string&) override {
            entered.set_value();
            std::this_thread::sleep_for(milliseconds(300));  // the work
            result = "done";
        }
        void ExecuteWithParamList(std::string&, int32_t, const std::string&,
                                  const ParamList&) override {}
        std::promise<void> entered;
    };
    for ([[maybe_unused]] auto _ : state) {
        auto slow = std::make_shared<Slow>();
        TavIDL::Server server(hostAddress(way), slow);
        std::vector<std::unique_ptr<TavIDL::RemoteEmp>> emps;
        for (int i = 0; i < 50; ++i) {
            emps.push_back(std::make_unique<TavIDL::RemoteEmp>(server.address()));
            emps.back()->Open(i, "", "", "");
        }
        auto answer = std::async(std::launch::async, [&] {
            std::string result;
            emps.front()->Execute(result, 0, "", "", "", "", "");
            return result;
        });
        slow->entered.get_future().wait();
        const auto begin = std::chrono::steady_clock::now();
        server.stop();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        if (answer.get() != "done") {
            state.SkipWithError("the running call was not answered");
        }
    }
}

}  // namespace

int main(int count, char** arguments) try {
    for (const Way way : kWays) {
        for (const Setup& setup : kSetups) {
            const std::string name = std::string("setup ") + setup.name + " " + nameOf(way);
            benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
                try {
                    const RoundTrip roundTrip = setup.start(way);
                    roundTrip();  // connects
                    for ([[maybe_unused]] auto _ : state) {
                        roundTrip();
                    }
                } catch (const std::exception& failure) {
                    state.SkipWithError(failure.what());
                }
            })->MeasureProcessCPUTime();  // the client's and the server's
        }
        benchmark::RegisterBenchmark((std::string("stop host ") + nameOf(way)).c_str(), stop, way)
            ->UseManualTime();
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
} catch (const std::exception& failure) {
    std::cerr << "bench_setups: " << failure.what() << '\n';
    return 1;
}
