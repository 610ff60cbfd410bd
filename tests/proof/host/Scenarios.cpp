#include <TavIDL/host/Connection.h>
#include <TavIDL/host/EmpSession.h>
#include <netinet/in.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "../../host/Peer.h"
#include "Trial.h"

// What is done while something fails.
namespace proof {

using TavIDL::CallFailed;
using TavIDL::Connection;
using TavIDL::EmpSession;
using TavIDL::RemoteBroker;
using TavIDL::RemoteCallback;
using TavIDL::RemoteEmp;
using TavIDL::Server;

namespace {

class Events : public TavEmpEventIf {
public:
    explicit Events(Ledger& ledger) : ledger_(ledger) {}
    void Callback(int32_t, const std::string& number, const std::string&) override {
        ledger_.execute(number);
    }

private:
    Ledger& ledger_;
};

void calls(Trial& trial) {
    std::optional<Server> server;
    trial.begin();
    if (trial.step<std::system_error>("a server", [&] {
            server.emplace(trial.where(), trial.emp(), trial.serverSettings());
        })) {
        RemoteEmp emp(server->address(), trial.clientSettings());
        trial.call(emp);
        trial.call(emp);
        trial.step<CallFailed>("a batch", [&] { trial.ledger().batch(emp, 3); });
        trial.goOn(emp, server->address());
    } else {
        trial.mustLeaveNoFile();
    }
    server.reset();
    trial.goOnWithNewServer();
}

void events(Trial& trial) {
    const auto handler = std::make_shared<Events>(trial.ledger());
    Server server(trial.where(), handler, trial.serverSettings());
    trial.begin();
    {
        RemoteCallback callback(server.address(), trial.clientSettings());
        for (int i = 0; i < 2; ++i) {
            trial.step<CallFailed>("an event", [&] { trial.ledger().event(callback); });
        }
    }
    server.finish();
    trial.goOnWithNewServer();
}

// A client's connection that does not use Thrift, to a server that returns each byte.
void connections(Trial& trial) {
    const auto echo = [](const std::shared_ptr<Connection>& connection) {
        uint8_t byte = 0;
        while (connection->read(&byte, 1) == 1) {
            connection->write(&byte, 1);
        }
    };
    Server server(trial.where(), echo, trial.serverSettings());
    trial.begin();
    std::shared_ptr<Connection> connection;
    if (trial.step<CallFailed>("Connection::open", [&] {
            connection = Connection::open(server.address(), trial.clientSettings());
        })) {
        trial.step<apache::thrift::transport::TTransportException>("a connection", [&] {
            const uint8_t sent = 42;
            connection->write(&sent, 1);
            connection->closeOutput();
            uint8_t got[2] = {};
            if (connection->read(got, 1) != 1 || got[0] != sent || connection->read(got, 1) != 0) {
                throw CallFailed(CallFailed::ConnectionClosed, true, "echo", server.address(),
                                 "no echo");
            }
        });
        connection->close();
        connection->peer();
    }
    server.stop();
    trial.goOnWithNewServer();
}

// A client that sends more than the system's buffers hold.
void stream(Trial& trial) {
    constexpr std::size_t kMuch = 1 << 20;
    const auto drain = [](const std::shared_ptr<Connection>& connection) {
        std::vector<uint8_t> bytes(kMuch);
        while (connection->read(bytes.data(), static_cast<uint32_t>(bytes.size())) > 0) {
        }
    };
    Server server(trial.where(), drain, trial.serverSettings());
    trial.begin();
    std::shared_ptr<Connection> connection;
    if (trial.step<CallFailed>("Connection::open", [&] {
            connection = Connection::open(server.address(), trial.clientSettings());
        })) {
        trial.step<apache::thrift::transport::TTransportException>("a long write", [&] {
            const std::vector<uint8_t> sent(kMuch);
            connection->write(sent.data(), static_cast<uint32_t>(sent.size()));
        });
        connection->close();
    }
    server.stop();
    trial.goOnWithNewServer();
}

class Broker : public TavBrokerIf {
public:
    explicit Broker(ConnectionInfo info) : info_(std::move(info)) {}
    void OpenEmp(ConnectionInfo& result, const std::string&, const std::string&,
                 const std::string&) override {
        result = info_;
    }
    void Execute(std::string&, int32_t, const std::string&, const std::string&, const std::string&,
                 const std::string&, const std::string&) override {}
    bool CloseEmp(const ConnectionInfo&) override { return true; }

private:
    const ConnectionInfo info_;
};

int portOf(const std::string& address) {
    return std::stoi(address.substr(address.rfind(':') + 1));
}

// Opens an EMP, calls it, gets an event, and closes it.
void session(Trial& trial) {
    const Server emp("127.0.0.1:0", trial.emp(), trial.serverSettings());
    ConnectionInfo info;
    info.empID = "7";
    info.empServicePort = portOf(emp.address());
    const peers::ReservedPort events;
    info.callbackServicePort = events.number();
    const Server broker(trial.where(), std::make_shared<Broker>(info), trial.serverSettings());
    {
        RemoteBroker remote(broker.address(), trial.clientSettings());
        const auto onEvent = [&](int32_t, const std::string& number, const std::string&) {
            trial.ledger().execute(number);
        };
        std::optional<EmpSession> opened;
        trial.begin();
        if (trial.step<CallFailed, std::system_error>(
                "EmpSession", [&] { opened.emplace(remote, "thermometer", "1.0", "", onEvent); })) {
            trial.call(**opened);
            trial.step<CallFailed>("an event", [&] {
                RemoteCallback callback("127.0.0.1:" + std::to_string(info.callbackServicePort),
                                        trial.clientSettings());
                trial.ledger().event(callback);
            });
            trial.goOn(**opened, emp.address());
            trial.step<CallFailed>("close", [&] { opened->close(); });
        }
    }
    trial.goOnWithNewServer();
}

// A server that a signal ends. All signals of the test must arrive before the next trial.
void signals(Trial& trial) {
    (void)::signal(SIGTERM, SIG_IGN);
    Server server(trial.where(), trial.emp(), trial.serverSettings());
    std::atomic<bool> ended{false};
    std::thread sender([&ended] {
        while (!ended) {
            ::kill(::getpid(), SIGTERM);  // again and again: a fault can swallow its effect
            std::this_thread::sleep_for(std::chrono::milliseconds(1));  // only the pace
        }
    });
    trial.begin();
    trial.step("runUntilSignal", [&] { server.runUntilSignal(); });
    trial.end();
    ended = true;
    sender.join();
    trial.goOnWithNewServer();
}

constexpr Way kTcp = {"tcp", false, false, false};
constexpr Way kUnix = {"unix", true, true, false};
constexpr Way kTls = {"tls", false, false, true};

}  // namespace

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all = {
        {"calls", {kTcp, kUnix, kTls}, calls},
        {"events", {kTcp, kUnix}, events},
        {"connections", {kTcp, kUnix}, connections},
        {"stream", {kUnix}, stream},
        {"session", {kTcp}, session},
        {"signals", {kUnix}, signals},
    };
    return all;
}

}  // namespace proof
