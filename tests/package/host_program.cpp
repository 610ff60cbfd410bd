// Uses all of Host's classes and derives from some: an EMP and a broker, served and called in one
// process.

#include <TavIDL/TavIDL.h>
#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/EmpSession.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <TavIDL/host/Settings.h>

#include <cstdlib>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace {

class Emp : public TavEmpIf {
public:
    bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    int32_t Close(int32_t) override { return 0; }
    void Execute(std::string& result, int32_t, const std::string& cmd, const std::string&,
                 const std::string&, const std::string&, const std::string&) override {
        if (cmd == "end") {
            throw 1;  // closes the connection
        }
        result = cmd;
    }
    void ExecuteWithParamList(std::string& result, int32_t, const std::string& cmd,
                              const ParamList&) override {
        result = cmd;
    }
};

class Broker : public TavBrokerIf {
public:
    explicit Broker(const std::string& emp)
        : port_(std::atoi(emp.substr(emp.rfind(':') + 1).c_str())) {}
    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string&) override {
        result.empID = name + " " + version;
        result.empServicePort = port_;
    }
    void Execute(std::string& result, int32_t, const std::string& cmd, const std::string&,
                 const std::string&, const std::string&, const std::string&) override {
        result = cmd;
    }
    bool CloseEmp(const ConnectionInfo&) override { return true; }

private:
    int port_;
};

class Events : public TavEmpEventIf {
public:
    void Callback(int32_t, const std::string& param1, const std::string&) override {
        seen.set_value(param1);
    }
    std::promise<std::string> seen;
};

// A program's own classes, derived from a Remote and from a failure.
class ListedEmp : public TavIDL::RemoteEmp {
public:
    explicit ListedEmp(const std::string& address) : RemoteEmp(address) {}
    int32_t Close(int32_t clientID) override { return RemoteEmp::Close(clientID) + 1; }
};

class Unreachable : public TavIDL::CallFailed {
public:
    explicit Unreachable(const std::string& address)
        : CallFailed(CannotConnect, false, "Open", address, "it is switched off") {}
};

class OwnBatch : public TavIDL::EmpBatch {
public:
    explicit OwnBatch(TavIDL::RemoteEmp& emp) : EmpBatch(emp) {}
};

void expect(bool as, const char* what) {
    if (!as) {
        std::cerr << "not as expected: " << what << '\n';
        std::exit(EXIT_FAILURE);
    }
}

// An exception of Host can be caught as each of its types.
template <typename Failure>
void expectFailure(const std::function<void()>& call, const char* what) {
    try {
        call();
    } catch (const Failure&) {
        return;
    }
    expect(false, what);
}

}  // namespace

int main() {
    TavIDL::Server empServer("127.0.0.1:0", std::make_shared<Emp>());
    TavIDL::Server brokerServer("127.0.0.1:0", std::make_shared<Broker>(empServer.address()));

    TavIDL::RemoteBroker broker(brokerServer.address());
    TavIDL::EmpSession session(broker, "camera", "1.0", "key");
    std::string result;
    session->Execute(result, 7, "read", "", "", "", "");
    expect(result == "read", "an EMP that a broker opened answers");
    expect(session.close(), "the session is closed");

    ListedEmp emp(empServer.address());
    TavEmpIf& asAnyOther = emp;
    expect(asAnyOther.Close(7) == 1, "the program's override is called");
    TavIDL::Remote& remote = emp;
    expect(dynamic_cast<ListedEmp*>(&remote) == &emp, "a Remote keeps its dynamic type");
    expect(dynamic_cast<TavEmpIf*>(&remote) == &asAnyOther, "a Remote is its interface, too");

    OwnBatch batch(emp);
    std::future<std::string> first = batch.Execute(7, "first", "", "", "", "");
    std::future<bool> second = batch.Open(7, "camera", "1.0", "key");
    batch.run();
    expect(first.get() == "first" && second.get(), "a batch has its results");
    TavIDL::BrokerBatch brokerBatch(broker);
    std::future<ConnectionInfo> opened = brokerBatch.OpenEmp("camera", "1.0", "key");
    brokerBatch.run(std::chrono::seconds(5));
    expect(opened.get().empID == "camera 1.0", "a broker's batch has its results");

    const auto events = std::make_shared<Events>();
    TavIDL::Server eventServer("127.0.0.1:0", events);
    TavIDL::RemoteCallback callback(eventServer.address());
    TavIDL::CallbackBatch eventBatch(callback);
    eventBatch.Callback(1, "moved", "");
    eventBatch.run();
    expect(events->seen.get_future().get() == "moved", "an event arrives");

    const auto end = [&] { asAnyOther.Execute(result, 7, "end", "", "", "", ""); };
    expectFailure<TavIDL::CallFailed>(end, "it is caught as CallFailed");
    expectFailure<apache::thrift::transport::TTransportException>(end, "... TTransportException");
    expectFailure<apache::thrift::TException>(end, "... TException");
    expectFailure<std::exception>(end, "... std::exception");
    expectFailure<TavIDL::CallFailed>([&] { throw Unreachable(emp.address()); }, "one of our own");
    expectFailure<std::invalid_argument>([] { TavIDL::RemoteEmp("nowhere"); }, "not an address");

    TavIDL::Server bare("127.0.0.1:0", [](const std::shared_ptr<TavIDL::Connection>& client) {
        uint8_t byte = 0;
        client->read(&byte, 1);
        client->write(&byte, 1);
        client->closeOutput();
    });
    const std::shared_ptr<TavIDL::Connection> connection =
        TavIDL::Connection::open(bare.address(), emp.settings());
    uint8_t byte = 42;
    connection->write(&byte, 1);
    byte = 0;
    connection->read(&byte, 1);
    expect(byte == 42, "a plain connection returns what was written");
    expect(connection->peer() == bare.address(), "a plain connection knows its peer");

    std::cout << session.info().empID << '\n';
}
