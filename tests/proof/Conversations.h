#ifndef TESTS_PROOF_CONVERSATIONS_H
#define TESTS_PROOF_CONVERSATIONS_H

#include <TavIDL/TavIDL.h>
#include <thrift/transport/TBufferTransports.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "TavBroker.h"
#include "TavEmp.h"
#include "TavEmpEvent.h"

// What the proofs go through: each operation, everything that a client or a processor can do with
// one of its messages, and each encoding.
namespace proof {

using apache::thrift::TProcessor;
using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TProtocol;
using apache::thrift::transport::TBufferBase;
using apache::thrift::transport::TMemoryBuffer;

// The same services, from the library and from the Thrift compiler.
struct Library {
    using ConnectionInfo = ::ConnectionInfo;
    using ParamList = ::ParamList;
    using BrokerIf = ::TavBrokerIf;
    using BrokerClient = ::TavBrokerClient;
    using BrokerProcessor = ::TavBrokerProcessor;
    using EmpIf = ::TavEmpIf;
    using EmpClient = ::TavEmpClient;
    using EmpProcessor = ::TavEmpProcessor;
    using EventIf = ::TavEmpEventIf;
    using EventClient = ::TavEmpEventClient;
    using EventProcessor = ::TavEmpEventProcessor;
};
struct Generated {
    using ConnectionInfo = TAV_IDL::ConnectionInfo;
    using ParamList = TAV_IDL::ParamList;
    using BrokerIf = TAV_IDL::TavBrokerIf;
    using BrokerClient = TAV_IDL::TavBrokerClient;
    using BrokerProcessor = TAV_IDL::TavBrokerProcessor;
    using EmpIf = TAV_IDL::TavEmpIf;
    using EmpClient = TAV_IDL::TavEmpClient;
    using EmpProcessor = TAV_IDL::TavEmpProcessor;
    using EventIf = TAV_IDL::TavEmpEventIf;
    using EventClient = TAV_IDL::TavEmpEventClient;
    using EventProcessor = TAV_IDL::TavEmpEventProcessor;
};

// --- Encodings

enum class Wire { binary, compact, json };

// Which kind of protocol class is used. The library calls the first two directly: one over any
// transport, one over TBufferBase. It calls the third kind, derived from libthrift's classes, by
// virtual calls. The only class for JSON is called by virtual calls, too.
enum class Calls { exact, exactOverBuffer, virtually };

struct Encoding {
    const char* name;
    Wire wire;
    Calls calls;
};
extern const std::vector<Encoding> kEncodings;

// With the limits that doc/servers.md advises.
std::shared_ptr<TProtocol> makeProtocol(const Encoding& encoding,
                                        const std::shared_ptr<TBufferBase>& buffer);

// --- Operations

enum class Service { broker, emp, event };
enum class Call {
    openEmp,
    brokerExecute,
    closeEmp,
    open,
    close,
    empExecute,
    executeWithParamList,
    callback
};
struct Operation {
    Call call;
    Service service;
    const char* name;   // on the wire
    const char* title;  // in reports, and of the messages that tests/wire keeps
};
extern const std::vector<Operation> kOperations;

// The arguments or the result of any operation: each takes what it needs.
struct Values {
    int32_t number = 0;
    int32_t secondNumber = 0;
    bool flag = false;
    std::array<std::string, 11> texts;

    bool operator==(const Values& other) const {
        return number == other.number && secondNumber == other.secondNumber && flag == other.flag &&
               texts == other.texts;
    }
};
// All different. The texts are long enough to be allocated.
Values someValues();

template <typename Family>
typename Family::ConnectionInfo infoOf(const Values& values) {
    typename Family::ConnectionInfo info;
    info.callbackServicePort = values.number;
    info.empServicePort = values.secondNumber;
    info.empID = values.texts[0];
    return info;
}

template <typename Info>
Values valuesOf(const Info& info) {
    Values values;
    values.number = info.callbackServicePort;
    values.secondNumber = info.empServicePort;
    values.texts[0] = info.empID;
    return values;
}

// The two halves of every call.
template <typename Family>
class Caller {
public:
    explicit Caller(const std::shared_ptr<TProtocol>& input,
                    const std::shared_ptr<TProtocol>& output)
        : broker_(input, output), emp_(input, output), event_(input, output) {}

    void send(Call call, const Values& with) {
        const auto& text = with.texts;
        switch (call) {
            case Call::openEmp:
                return broker_.send_OpenEmp(text[0], text[1], text[2]);
            case Call::brokerExecute:
                return broker_.send_Execute(with.number, text[0], text[1], text[2], text[3],
                                            text[4]);
            case Call::closeEmp:
                return broker_.send_CloseEmp(infoOf<Family>(with));
            case Call::open:
                return emp_.send_Open(with.number, text[0], text[1], text[2]);
            case Call::close:
                return emp_.send_Close(with.number);
            case Call::empExecute:
                return emp_.send_Execute(with.number, text[0], text[1], text[2], text[3], text[4]);
            case Call::executeWithParamList:
                return emp_.send_ExecuteWithParamList(with.number, text[0], listOf(with));
            case Call::callback:
                return event_.send_Callback(with.number, text[0], text[1]);
        }
    }

    // Not for Callback, which has no reply. If it throws, `result` holds what the client has left
    // in a result that is passed by reference.
    void receive(Call call, Values& result) {
        switch (call) {
            case Call::openEmp:
                return receiveInfo(result);
            case Call::brokerExecute:
                return broker_.recv_Execute(result.texts[0]);
            case Call::closeEmp:
                result.flag = broker_.recv_CloseEmp();
                return;
            case Call::open:
                result.flag = emp_.recv_Open();
                return;
            case Call::close:
                result.number = emp_.recv_Close();
                return;
            case Call::empExecute:
                return emp_.recv_Execute(result.texts[0]);
            default:
                return emp_.recv_ExecuteWithParamList(result.texts[0]);
        }
    }

private:
    static typename Family::ParamList listOf(const Values& with) {
        typename Family::ParamList list;
        std::size_t next = 1;
        for (std::string* param :
             {&list.param1, &list.param2, &list.param3, &list.param4, &list.param5, &list.param6,
              &list.param7, &list.param8, &list.param9, &list.param10}) {
            *param = with.texts.at(next++);
        }
        return list;
    }

    void receiveInfo(Values& result) {
        typename Family::ConnectionInfo info;
        try {
            broker_.recv_OpenEmp(info);
        } catch (...) {
            result = valuesOf(info);
            throw;
        }
        result = valuesOf(info);
    }

    typename Family::BrokerClient broker_;
    typename Family::EmpClient emp_;
    typename Family::EventClient event_;
};

// Handles all operations: keeps what it is called with, and returns `answer` or throws.
template <typename Family>
class Handler : public Family::BrokerIf, public Family::EmpIf, public Family::EventIf {
public:
    Values answer;
    bool refuses = false;
    int calls = 0;
    const char* called = "";
    Values seen;

    void OpenEmp(typename Family::ConnectionInfo& result, const std::string& name,
                 const std::string& version, const std::string& credential) override {
        note("OpenEmp", 0, {&name, &version, &credential});
        result = infoOf<Family>(answer);
    }
    // For both TavBroker and TavEmp.
    void Execute(std::string& result, int32_t number, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        note("Execute", number, {&cmd, &param1, &param2, &param3, &param4});
        result = answer.texts[0];
    }
    bool CloseEmp(const typename Family::ConnectionInfo& info) override {
        note("CloseEmp", info.callbackServicePort, {&info.empID});
        seen.secondNumber = info.empServicePort;
        return answer.flag;
    }
    bool Open(int32_t number, const std::string& name, const std::string& version,
              const std::string& credential) override {
        note("Open", number, {&name, &version, &credential});
        return answer.flag;
    }
    int32_t Close(int32_t number) override {
        note("Close", number, {});
        return answer.number;
    }
    void ExecuteWithParamList(std::string& result, int32_t number, const std::string& cmd,
                              const typename Family::ParamList& list) override {
        note("ExecuteWithParamList", number,
             {&cmd, &list.param1, &list.param2, &list.param3, &list.param4, &list.param5,
              &list.param6, &list.param7, &list.param8, &list.param9, &list.param10});
        result = answer.texts[0];
    }
    void Callback(int32_t number, const std::string& param1, const std::string& param2) override {
        note("Callback", number, {&param1, &param2});
    }

private:
    void note(const char* name, int32_t number, std::initializer_list<const std::string*> texts) {
        ++calls;
        called = name;
        seen.number = number;
        std::size_t next = 0;
        for (const std::string* text : texts) {
            seen.texts.at(next++) = *text;
        }
        if (refuses) {
            throw std::runtime_error(
                "refused, with a text that is long enough to be allocated by whatever copies it");
        }
    }
};

template <typename Family>
std::shared_ptr<TProcessor> makeProcessor(Service service,
                                          const std::shared_ptr<Handler<Family>>& handler) {
    switch (service) {
        case Service::broker:
            return std::make_shared<typename Family::BrokerProcessor>(handler);
        case Service::emp:
            return std::make_shared<typename Family::EmpProcessor>(handler);
        default:
            return std::make_shared<typename Family::EventProcessor>(handler);
    }
}

// --- Conversations

enum class Path {
    send,
    receive,
    receiveRefusal,  // the handler's failure
    receiveForeign,  // a reply to another operation
    receiveEmpty,    // a reply without a result
    receiveRequest,  // a message that is not a reply
    serve,
    serveRefusing,  // the handler throws
    serveForeign,   // the operation of another service
    serveReply      // a message that is not a call
};
constexpr bool isServers(Path path) {
    return path >= Path::serve;
}

struct Conversation {
    const Operation* operation;
    Path path;

    std::string name() const;
};
// The one-way operation has none of those that receive.
std::vector<Conversation> conversations();

// The request with someValues(), and the reply to it.
std::string requestOf(const Operation& operation, const Encoding& encoding);
std::string replyTo(const Operation& operation, const Encoding& encoding, bool refused = false);
// The message that the conversation begins with: empty if it is sending.
std::string messageOf(const Conversation& conversation, const Encoding& encoding);

}  // namespace proof

#endif
