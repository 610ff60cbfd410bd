// One side of a conversation between two languages, over the services of libTavIDL
// or over those that the Thrift compiler generates: services.h says which.
//
//     peer serve PROTOCOL TRANSPORT
//     peer call PROTOCOL TRANSPORT BROKERPORT EMPPORT EVENTPORT ODDPORT
//
// PROTOCOL is binary, compact or json; TRANSPORT is buffered or framed.
//
// `serve` prints its ports in one line and ends at the end of its standard input.
// `call` prints a line "case = outcome" for each case. The peers in the other
// languages have the same cases.

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>
#include <thrift/protocol/TProtocolDecorator.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <future>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "services.h"

using namespace apache::thrift;
using namespace apache::thrift::protocol;
using namespace apache::thrift::transport;

namespace {

// --- Both sides

struct Wire {
    std::shared_ptr<TProtocolFactory> protocol;
    std::shared_ptr<TTransportFactory> transport;
};

Wire wireFrom(const std::string& protocol, const std::string& transport) {
    Wire wire;
    if (protocol == "binary") {
        wire.protocol = std::make_shared<TBinaryProtocolFactory>();
    } else if (protocol == "compact") {
        wire.protocol = std::make_shared<TCompactProtocolFactory>();
    } else if (protocol == "json") {
        wire.protocol = std::make_shared<TJSONProtocolFactory>();
    }
    if (transport == "buffered") {
        wire.transport = std::make_shared<TBufferedTransportFactory>();
    } else if (transport == "framed") {
        wire.transport = std::make_shared<TFramedTransportFactory>();
    }
    if (!wire.protocol || !wire.transport) {
        throw std::invalid_argument("no such protocol or transport");
    }
    return wire;
}

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts) {
        text += (&part == parts.data() ? "" : "|") + part;
    }
    return text;
}

const std::string kLong(100000, 'x');
const std::string kWithNul("a\0b", 3);
const std::string kNotUtf8("\xff\xfe");

// --- Serving side

// The events that the callback service received. The broker returns them.
class Events {
public:
    void add(const std::string& event) {
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(event);
    }

    std::string reported() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return joined(events_);
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
};

class Broker : public TavBrokerIf {
public:
    explicit Broker(const Events& events) : events_(events) {}

    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override {
        if (name == "none") {
            throw std::runtime_error("no such EMP: none");
        }
        result.callbackServicePort = 49801;
        result.empServicePort = -49802;
        result.empID = joined({name, version, credential});
    }

    void Execute(std::string& result, const int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        if (cmd == "fail") {
            throw std::runtime_error("the broker cannot: fail");
        }
        if (cmd == "failwell") {
            throw TApplicationException(TApplicationException::MISSING_RESULT,
                                        "the broker cannot: failwell");
        }
        if (cmd == "events") {
            result = events_.reported();
        } else if (cmd == "length") {
            result = std::to_string(param1.size());
        } else if (cmd == "long") {
            result = kLong;
        } else if (cmd == "nul") {
            result = kWithNul;
        } else if (cmd != "nothing") {  // which is not possible here: it answers ""
            result = joined({std::to_string(fromPort), cmd, param1, param2, param3, param4});
        }
    }

    bool CloseEmp(const ConnectionInfo& info) override {
        if (info.empID == "none") {
            throw std::runtime_error("no such EMP: none");
        }
        return info.callbackServicePort == 49801 && info.empServicePort == -49802 &&
               info.empID == "camera|2.1|key";
    }

private:
    const Events& events_;
};

class Emp : public TavEmpIf {
public:
    bool Open(const int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override {
        if (clientID == -1) {
            throw std::runtime_error("no client -1");
        }
        return clientID == 2147483647 && name == "camera" && version == "2.1" &&
               credential == "key";
    }

    int32_t Close(const int32_t clientID) override {
        if (clientID == -1) {
            throw std::runtime_error("no client -1");
        }
        return clientID - 10;
    }

    void Execute(std::string& result, const int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        if (cmd == "fail") {
            throw std::runtime_error("the EMP cannot: fail");
        }
        result = joined({std::to_string(clientID), cmd, param1, param2, param3, param4});
    }

    void ExecuteWithParamList(std::string& result, const int32_t clientID, const std::string& cmd,
                              const ParamList& list) override {
        if (cmd == "fail") {
            throw std::runtime_error("the EMP cannot: fail");
        }
        result = joined({std::to_string(clientID), cmd, list.param1, list.param2, list.param3,
                         list.param4, list.param5, list.param6, list.param7, list.param8,
                         list.param9, list.param10});
    }
};

class Callbacks : public TavEmpEventIf {
public:
    explicit Callbacks(Events& events) : events_(events) {}

    void Callback(const int32_t eventType, const std::string& param1,
                  const std::string& param2) override {
        events_.add(std::to_string(eventType) + "/" + param1 + "/" + param2);
        if (param1 == "fail") {
            throw std::runtime_error("nobody hears this");
        }
    }

private:
    Events& events_;
};

// Answers any call as none of our servers would: the command says how.
class OddProcessor : public TProcessor {
public:
    bool process(std::shared_ptr<TProtocol> input, std::shared_ptr<TProtocol> output,
                 void*) override {
        std::string name;
        TMessageType type = T_CALL;
        int32_t seqid = 0;
        input->readMessageBegin(name, type, seqid);
        const std::string command = commandIn(*input);
        input->readMessageEnd();
        input->getTransport()->readEnd();

        output->writeMessageBegin(command == "othername" ? "execute" : name,
                                  command == "othertype" ? T_CALL : T_REPLY,
                                  command == "otherseqid" ? seqid + 7 : seqid);
        output->writeStructBegin("AnyName");
        if (command == "unknownfield") {
            output->writeFieldBegin("more", T_STRING, 9);
            output->writeString("to be skipped");
            output->writeFieldEnd();
        }
        if (command == "othersuccess") {
            output->writeFieldBegin("success", T_I32, 0);
            output->writeI32(5);
            output->writeFieldEnd();
        } else if (command != "nosuccess") {
            output->writeFieldBegin("success", T_STRING, 0);
            output->writeString(command == "notutf8"     ? kNotUtf8
                                : command == "tellseqid" ? std::to_string(seqid)
                                                         : command);
            output->writeFieldEnd();
        }
        output->writeFieldStop();
        output->writeStructEnd();
        output->writeMessageEnd();
        output->getTransport()->flush();
        output->getTransport()->writeEnd();
        return true;
    }

private:
    static std::string commandIn(TProtocol& input) {
        std::string command;
        std::string name;
        TType type = T_STOP;
        int16_t id = 0;
        input.readStructBegin(name);
        for (input.readFieldBegin(name, type, id); type != T_STOP;
             input.readFieldBegin(name, type, id)) {
            if (id == 2) {
                input.readString(command);
            } else {
                input.skip(type);
            }
            input.readFieldEnd();
        }
        input.readStructEnd();
        return command;
    }
};

class Server {
public:
    Server(const Wire& wire, const std::shared_ptr<TProcessor>& processor)
        : socket_(std::make_shared<TServerSocket>("127.0.0.1", 0)),
          server_(processor, socket_, wire.transport, wire.protocol) {
        struct Listening : server::TServerEventHandler {
            std::promise<void> promise;
            void preServe() override { promise.set_value(); }
        };
        const auto listening = std::make_shared<Listening>();
        server_.setServerEventHandler(listening);
        thread_ = std::thread([this] { server_.serve(); });
        listening->promise.get_future().get();
    }

    ~Server() {
        server_.stop();
        thread_.join();
    }

    int port() const { return socket_->getPort(); }

private:
    std::shared_ptr<TServerSocket> socket_;
    server::TThreadedServer server_;
    std::thread thread_;
};

void serve(const Wire& wire) {
    Events events;
    const Server broker(wire,
                        std::make_shared<TavBrokerProcessor>(std::make_shared<Broker>(events)));
    const Server emp(wire, std::make_shared<TavEmpProcessor>(std::make_shared<Emp>()));
    const Server event(wire,
                       std::make_shared<TavEmpEventProcessor>(std::make_shared<Callbacks>(events)));
    const Server odd(wire, std::make_shared<OddProcessor>());
    std::cout << broker.port() << ' ' << emp.port() << ' ' << event.port() << ' ' << odd.port()
              << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

// --- Calling side

// Writes requests with another message type than the client's.
class Retyped : public TProtocolDecorator {
public:
    Retyped(std::shared_ptr<TProtocol> wrapped, TMessageType type)
        : TProtocolDecorator(std::move(wrapped)), type_(type) {}

    uint32_t writeMessageBegin_virt(const std::string& name, const TMessageType,
                                    const int32_t seqid) override {
        return TProtocolDecorator::writeMessageBegin_virt(name, type_, seqid);
    }

private:
    TMessageType type_;
};

std::shared_ptr<TProtocol> connection(const Wire& wire, int port, int timeout = 10000) {
    const auto socket = std::make_shared<TSocket>("127.0.0.1", port);
    socket->setConnTimeout(timeout);
    socket->setSendTimeout(timeout);
    socket->setRecvTimeout(timeout);
    socket->open();
    return wire.protocol->getProtocol(wire.transport->getTransport(socket));
}

template <typename Call>
std::string outcomeOf(Call call) {
    try {
        return call();
    } catch (const TApplicationException& failure) {
        std::string kind = "exception " + std::to_string(failure.getType());
        // These two have an empty text, for which each language prints something else.
        if (failure.getType() == TApplicationException::INVALID_MESSAGE_TYPE ||
            failure.getType() == TApplicationException::WRONG_METHOD_NAME) {
            return kind;
        }
        return kind + ": " + failure.what();
    } catch (const TTransportException& failure) {
        return failure.getType() == TTransportException::TIMED_OUT ? "no answer"
                                                                   : "connection closed";
    } catch (const TProtocolException&) {
        return "broken message";
    }
}

template <typename Call>
void report(const std::string& what, Call call) {
    std::cout << what << " = " << outcomeOf(call) << std::endl;
}

std::string opened(TavBrokerIf& broker, const std::string& name) {
    ConnectionInfo info;
    broker.OpenEmp(info, name, "2.1", "key");
    return joined({std::to_string(info.callbackServicePort), std::to_string(info.empServicePort),
                   info.empID});
}

std::string closed(TavBrokerIf& broker, int32_t callbackPort, int32_t empPort,
                   const std::string& empID) {
    ConnectionInfo info;
    info.callbackServicePort = callbackPort;
    info.empServicePort = empPort;
    info.empID = empID;
    return broker.CloseEmp(info) ? "true" : "false";
}

std::string executed(TavBrokerIf& broker, const std::string& command, const std::string& param1) {
    std::string result;
    broker.Execute(result, 0, command, param1, "", "", "");
    return result;
}

std::string executed(TavEmpIf& emp, const std::string& command) {
    std::string result;
    emp.Execute(result, 2147483647, command, "eins", "zwei", "drei", "vier");
    return result;
}

std::string executedWithList(TavEmpIf& emp, const std::string& command) {
    ParamList list;
    list.param1 = "a";
    list.param2 = "b";
    list.param3 = "c";
    list.param4 = "d";
    list.param5 = "";
    list.param6 = "f";
    list.param7 = "g";
    list.param8 = "h";
    list.param9 = "i";
    list.param10 = "j";
    std::string result;
    emp.ExecuteWithParamList(result, 5, command, list);
    return result;
}

void callBroker(const Wire& wire, int port) {
    TavBrokerClient broker(connection(wire, port));
    report("OpenEmp", [&] { return opened(broker, "camera"); });
    report("OpenEmp fails", [&] { return opened(broker, "none"); });
    report("Execute at the broker", [&] {
        std::string result;
        broker.Execute(result, -2147483647 - 1, "echo", "one", "", "Gr\u00fc\u00dfe \u20ac",
                       R"("four"\)");
        return result;
    });
    report("Execute at the broker fails", [&] { return executed(broker, "fail", ""); });
    report("Execute fails with an application exception",
           [&] { return executed(broker, "failwell", ""); });
    report("CloseEmp", [&] { return closed(broker, 49801, -49802, "camera|2.1|key"); });
    report("CloseEmp, false", [&] { return closed(broker, 0, 0, ""); });
    report("CloseEmp fails", [&] { return closed(broker, 0, 0, "none"); });
    report("100000 bytes sent", [&] { return executed(broker, "length", kLong); });
    report("100000 bytes received",
           [&] { return std::to_string(executed(broker, "long", "").size()); });
    report("NUL sent", [&] { return executed(broker, "length", kWithNul); });
    report("NUL received", [&] { return std::to_string(executed(broker, "nul", "").size()); });
}

void callEmp(const Wire& wire, int port) {
    TavEmpClient emp(connection(wire, port));
    const auto opens = [&](int32_t clientID) {
        return emp.Open(clientID, "camera", "2.1", "key") ? "true" : "false";
    };
    report("Open", [&] { return opens(2147483647); });
    report("Open, false", [&] { return opens(0); });
    report("Open fails", [&] { return opens(-1); });
    report("Close", [&] { return std::to_string(emp.Close(3)); });
    report("Close, zero", [&] { return std::to_string(emp.Close(10)); });
    report("Close fails", [&] { return std::to_string(emp.Close(-1)); });
    report("Execute at the EMP", [&] { return executed(emp, "echo"); });
    report("Execute at the EMP fails", [&] { return executed(emp, "fail"); });
    report("ExecuteWithParamList", [&] { return executedWithList(emp, "echo"); });
    report("ExecuteWithParamList fails", [&] { return executedWithList(emp, "fail"); });
}

void callEvent(const Wire& wire, int brokerPort, int eventPort) {
    struct Event {
        int32_t type;
        const char* param1;
        const char* param2;
    };
    TavBrokerClient broker(connection(wire, brokerPort));
    const auto send = [&](const std::string& what, const std::vector<Event>& events) {
        const auto protocol = connection(wire, eventPort);
        TavEmpEventClient event(protocol);
        for (const Event& each : events) {
            event.Callback(each.type, each.param1, each.param2);
        }
        // If an event had been answered, this would read its answer. After this answer,
        // all events have been received.
        TavEmpClient misled(protocol);
        report(what + ", then an unknown operation",
               [&] { return std::to_string(misled.Close(3)); });
        report(what, [&] { return executed(broker, "events", ""); });
    };
    send("Callback", {{3, "started", "Gr\u00fc\u00dfe"}, {-1, "", ""}, {4, "still", "here"}});
    send("Callback fails", {{0, "fail", ""}});
}

// Cases that may end the connection have their own, and a valid call follows.
template <typename Client, typename Call, typename GoodCall>
void reportApart(const std::string& what, const Wire& wire, int port, Call call,
                 GoodCall goodCall) {
    const auto protocol = connection(wire, port);
    Client client(protocol);
    report(what, [&] { return call(protocol); });
    report(what + ", then", [&] { return goodCall(client); });
}

void callWrongly(const Wire& wire, int brokerPort, int empPort, int eventPort) {
    const auto openGood = [](TavBrokerIf& broker) { return opened(broker, "camera"); };
    const auto closeGood = [](TavEmpIf& emp) { return std::to_string(emp.Close(3)); };
    const auto openAs = [](TMessageType type) {
        return [type](std::shared_ptr<TProtocol> protocol) {
            TavBrokerClient broker(protocol, std::make_shared<Retyped>(protocol, type));
            return opened(broker, "camera");
        };
    };
    const auto closeAs = [](TMessageType type) {
        return [type](std::shared_ptr<TProtocol> protocol) {
            TavEmpClient emp(protocol, std::make_shared<Retyped>(protocol, type));
            return std::to_string(emp.Close(3));
        };
    };
    reportApart<TavBrokerClient>("Unknown operation at the broker", wire, brokerPort,
                                 closeAs(T_CALL), openGood);
    reportApart<TavEmpClient>("Unknown operation at the EMP", wire, empPort, openAs(T_CALL),
                              closeGood);
    reportApart<TavBrokerClient>("T_ONEWAY request at the broker", wire, brokerPort,
                                 openAs(T_ONEWAY), openGood);
    reportApart<TavEmpClient>("T_ONEWAY request at the EMP", wire, empPort, closeAs(T_ONEWAY),
                              closeGood);
    reportApart<TavBrokerClient>("T_REPLY request at the broker", wire, brokerPort, openAs(T_REPLY),
                                 openGood);
    reportApart<TavEmpClient>("T_REPLY request at the EMP", wire, empPort, closeAs(T_REPLY),
                              closeGood);
    // Calls an operation that a callback service does not know: a server that accepted
    // a T_REPLY "Callback" as a call would not answer, and this would hang.
    const auto protocol = connection(wire, eventPort);
    report("T_REPLY request at the callback service", [&] { return openAs(T_REPLY)(protocol); });

    reportApart<TavBrokerClient>(
        "No result", wire, brokerPort,
        [](std::shared_ptr<TProtocol> connected) {
            TavBrokerClient broker(connected);
            return executed(broker, "nothing", "");
        },
        openGood);
    reportApart<TavBrokerClient>(
        "Bytes sent that are not UTF-8", wire, brokerPort,
        [](std::shared_ptr<TProtocol> connected) {
            TavBrokerClient broker(connected);
            return executed(broker, "length", kNotUtf8);
        },
        openGood);
}

void callOdd(const Wire& wire, int port) {
    for (const std::string command :
         {"otherseqid", "othertype", "othername", "unknownfield", "nosuccess", "othersuccess"}) {
        // Generated clients wait for another reply if the name or the type is wrong.
        TavBrokerClient broker(connection(wire, port, 2000));
        report("Reply: " + command, [&] { return executed(broker, command, ""); });
        report("Reply: " + command + ", then", [&] { return executed(broker, "good", ""); });
    }
    TavBrokerClient broker(connection(wire, port));
    report("Sequence ids sent", [&] {
        const std::string first = executed(broker, "tellseqid", "");
        return first + ", " + executed(broker, "tellseqid", "");
    });
    report("Reply: notutf8",
           [&] { return std::to_string(executed(broker, "notutf8", "").size()); });
}

}  // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 3 && arguments[0] == "serve") {
        serve(wireFrom(arguments[1], arguments[2]));
    } else if (arguments.size() >= 6 && arguments[0] == "call") {
        const Wire wire = wireFrom(arguments[1], arguments[2]);
        const int broker = std::stoi(arguments[3]);
        const int emp = std::stoi(arguments[4]);
        const int event = std::stoi(arguments[5]);
        callBroker(wire, broker);
        callEmp(wire, emp);
        callEvent(wire, broker, event);
        callWrongly(wire, broker, emp, event);
        if (arguments.size() > 6) {
            callOdd(wire, std::stoi(arguments[6]));
        }
    } else {
        throw std::invalid_argument(
            "usage: peer serve PROTOCOL TRANSPORT | "
            "peer call PROTOCOL TRANSPORT BROKERPORT EMPPORT EVENTPORT [ODDPORT]");
    }
} catch (const std::exception& failure) {
    std::cerr << "peer: " << failure.what() << '\n';
    return 1;
}
