#include "typed.h"

#include <TavIDL/host/Remote.h>

#include <map>

#include "connection.h"

namespace tavctl {

namespace {

using Call = Json (*)(TavIDL::Remote&, const Json&);

template <typename Interface>
Interface& as(TavIDL::Remote& peer) {
    return dynamic_cast<Interface&>(peer);
}

// A field of the arguments, as the client's parameter has it.
std::string text(const Json& arguments, const char* field) {
    return arguments[field];
}

int32_t number(const Json& arguments, const char* field) {
    return arguments[field];
}

const std::map<std::string, Call> kCalls = {
    {"TavBroker.OpenEmp",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         ConnectionInfo info;
         as<TavBrokerIf>(peer).OpenEmp(info, text(a, "name"), text(a, "version"),
                                       text(a, "credential"));
         return toJson(info);
     }},
    {"TavBroker.Execute",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         std::string result;
         as<TavBrokerIf>(peer).Execute(result, number(a, "fromPort"), text(a, "cmd"),
                                       text(a, "param1"), text(a, "param2"), text(a, "param3"),
                                       text(a, "param4"));
         return result;
     }},
    {"TavBroker.CloseEmp",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         return as<TavBrokerIf>(peer).CloseEmp(connectionInfoFrom(a["connectionInfo"]));
     }},
    {"TavEmp.Open",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         return as<TavEmpIf>(peer).Open(number(a, "clientID"), text(a, "name"), text(a, "version"),
                                        text(a, "credential"));
     }},
    {"TavEmp.Close",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         return as<TavEmpIf>(peer).Close(number(a, "clientID"));
     }},
    {"TavEmp.Execute",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         std::string result;
         as<TavEmpIf>(peer).Execute(result, number(a, "clientID"), text(a, "cmd"),
                                    text(a, "param1"), text(a, "param2"), text(a, "param3"),
                                    text(a, "param4"));
         return result;
     }},
    {"TavEmp.ExecuteWithParamList",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         std::string result;
         as<TavEmpIf>(peer).ExecuteWithParamList(result, number(a, "clientID"), text(a, "cmd"),
                                                 paramListFrom(a["paramList"]));
         return result;
     }},
    {"TavEmpEvent.Callback",
     [](TavIDL::Remote& peer, const Json& a) -> Json {
         as<TavEmpEventIf>(peer).Callback(number(a, "eventType"), text(a, "param1"),
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

std::unique_ptr<TavIDL::Remote> remoteOf(const std::string& service, const std::string& address,
                                         const TavIDL::Settings& settings) {
    if (service == "TavBroker") {
        return std::make_unique<TavIDL::RemoteBroker>(address, settings);
    }
    if (service == "TavEmp") {
        return std::make_unique<TavIDL::RemoteEmp>(address, settings);
    }
    return std::make_unique<TavIDL::RemoteCallback>(address, settings);
}

Json call(const Operation& operation, TavIDL::Remote& peer, const Json& arguments) {
    try {
        return kCalls.at(operation.fullName())(peer, arguments);
    } catch (const apache::thrift::TException& thrown) {
        throw failureFrom(thrown, operation.fullName(), peer);
    }
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

}  // namespace tavctl
