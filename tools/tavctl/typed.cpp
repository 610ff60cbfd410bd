#include "typed.h"

#include <TavIDL/TavIDL.h>

#include <map>

namespace {

using Call = Json (*)(const TavIDL::ProtocolPointer&, const Json&);

// A field of the arguments, as the client's parameter has it.
std::string text(const Json& arguments, const char* field) {
    return arguments[field];
}

int32_t number(const Json& arguments, const char* field) {
    return arguments[field];
}

const std::map<std::string, Call> kCalls = {
    {"TavBroker.OpenEmp",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         ConnectionInfo info;
         TavBrokerClient(protocol).OpenEmp(info, text(a, "name"), text(a, "version"),
                                           text(a, "credential"));
         return toJson(info);
     }},
    {"TavBroker.Execute",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         std::string result;
         TavBrokerClient(protocol).Execute(result, number(a, "fromPort"), text(a, "cmd"),
                                           text(a, "param1"), text(a, "param2"), text(a, "param3"),
                                           text(a, "param4"));
         return result;
     }},
    {"TavBroker.CloseEmp",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         return TavBrokerClient(protocol).CloseEmp(connectionInfoFrom(a["connectionInfo"]));
     }},
    {"TavEmp.Open",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         return TavEmpClient(protocol).Open(number(a, "clientID"), text(a, "name"),
                                            text(a, "version"), text(a, "credential"));
     }},
    {"TavEmp.Close",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         return TavEmpClient(protocol).Close(number(a, "clientID"));
     }},
    {"TavEmp.Execute",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         std::string result;
         TavEmpClient(protocol).Execute(result, number(a, "clientID"), text(a, "cmd"),
                                        text(a, "param1"), text(a, "param2"), text(a, "param3"),
                                        text(a, "param4"));
         return result;
     }},
    {"TavEmp.ExecuteWithParamList",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         std::string result;
         TavEmpClient(protocol).ExecuteWithParamList(result, number(a, "clientID"), text(a, "cmd"),
                                                     paramListFrom(a["paramList"]));
         return result;
     }},
    {"TavEmpEvent.Callback",
     [](const TavIDL::ProtocolPointer& protocol, const Json& a) -> Json {
         TavEmpEventClient(protocol).Callback(number(a, "eventType"), text(a, "param1"),
                                              text(a, "param2"));
         return nullptr;
     }},
};

// What the three handlers share.
class Handler {
public:
    explicit Handler(Answer answer) : answer_(std::move(answer)) {}

protected:
    Json answer(const char* operation, const Json& arguments) const {
        return answer_(operationNamed(operation), arguments);
    }

    Json answerCommand(const char* operation, const char* caller, int32_t number,
                       const std::string& cmd, const std::string& param1, const std::string& param2,
                       const std::string& param3, const std::string& param4) const {
        return answer(operation, {{caller, number},
                                  {"cmd", cmd},
                                  {"param1", param1},
                                  {"param2", param2},
                                  {"param3", param3},
                                  {"param4", param4}});
    }

private:
    Answer answer_;
};

class Broker : public TavBrokerIf, Handler {
public:
    using Handler::Handler;

    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override {
        result = connectionInfoFrom(
            answer("TavBroker.OpenEmp",
                   {{"name", name}, {"version", version}, {"credential", credential}}));
    }

    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        result = answerCommand("TavBroker.Execute", "fromPort", fromPort, cmd, param1, param2,
                               param3, param4);
    }

    bool CloseEmp(const ConnectionInfo& connectionInfo) override {
        return answer("TavBroker.CloseEmp", {{"connectionInfo", toJson(connectionInfo)}});
    }
};

class Emp : public TavEmpIf, Handler {
public:
    using Handler::Handler;

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override {
        return answer("TavEmp.Open", {{"clientID", clientID},
                                      {"name", name},
                                      {"version", version},
                                      {"credential", credential}});
    }

    int32_t Close(int32_t clientID) override {
        return answer("TavEmp.Close", {{"clientID", clientID}});
    }

    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        result = answerCommand("TavEmp.Execute", "clientID", clientID, cmd, param1, param2, param3,
                               param4);
    }

    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& paramList) override {
        result = answer("TavEmp.ExecuteWithParamList",
                        {{"clientID", clientID}, {"cmd", cmd}, {"paramList", toJson(paramList)}});
    }
};

class Event : public TavEmpEventIf, Handler {
public:
    using Handler::Handler;

    void Callback(int32_t eventType, const std::string& param1,
                  const std::string& param2) override {
        answer("TavEmpEvent.Callback",
               {{"eventType", eventType}, {"param1", param1}, {"param2", param2}});
    }
};

}  // namespace

Json call(const Operation& operation, const TavIDL::ProtocolPointer& protocol,
          const Json& arguments) {
    return kCalls.at(operation.fullName())(protocol, arguments);
}

std::shared_ptr<apache::thrift::TProcessor> processorOf(const std::string& service, Answer answer) {
    if (service == "TavBroker") {
        return std::make_shared<TavBrokerProcessor>(std::make_shared<Broker>(std::move(answer)));
    }
    if (service == "TavEmp") {
        return std::make_shared<TavEmpProcessor>(std::make_shared<Emp>(std::move(answer)));
    }
    return std::make_shared<TavEmpEventProcessor>(std::make_shared<Event>(std::move(answer)));
}
