#include "typed.h"

#include <TavIDL/host/Batch.h>

#include <map>
#include <type_traits>
#include <utility>

#include "connection.h"

namespace tavctl {

namespace {

using Add = std::function<Reply(TavIDL::Batch&, const Operation&, const Json&)>;

// A field of the arguments, as the client's parameter has it.
template <typename T>
T valueOf(const Json& value) {
    if constexpr (std::is_same_v<T, ConnectionInfo>) {
        return connectionInfoFrom(value);
    } else if constexpr (std::is_same_v<T, ParamList>) {
        return paramListFrom(value);
    } else {
        return value.get<T>();
    }
}

Json jsonOf(const ConnectionInfo& result) {
    return toJson(result);
}

template <typename T>
Json jsonOf(const T& result) {
    return result;
}

template <typename T>
Reply replyOf(std::future<T> result) {
    return [result = result.share()] { return jsonOf(result.get()); };
}

// The parameters have the order of the operation's fields.
template <typename Batch, typename Result, typename... Parameters, std::size_t... Index>
Add adding(Result (Batch::*method)(Parameters...), std::index_sequence<Index...> /*fields*/) {
    return [method](TavIDL::Batch& batch, const Operation& operation, const Json& given) -> Reply {
        const auto add = [&] {
            return (dynamic_cast<Batch&>(batch).*method)(
                valueOf<std::decay_t<Parameters>>(given[operation.arguments[Index].name])...);
        };
        if constexpr (std::is_void_v<Result>) {
            add();
            return [] { return Json(); };  // an event has no reply
        } else {
            return replyOf(add());
        }
    };
}

template <typename Batch, typename Result, typename... Parameters>
Add adding(Result (Batch::*method)(Parameters...)) {
    return adding(method, std::index_sequence_for<Parameters...>());
}

const std::map<std::string, Add> kCalls = {
    {"TavBroker.OpenEmp", adding(&TavIDL::BrokerBatch::OpenEmp)},
    {"TavBroker.Execute", adding(&TavIDL::BrokerBatch::Execute)},
    {"TavBroker.CloseEmp", adding(&TavIDL::BrokerBatch::CloseEmp)},
    {"TavEmp.Open", adding(&TavIDL::EmpBatch::Open)},
    {"TavEmp.Close", adding(&TavIDL::EmpBatch::Close)},
    {"TavEmp.Execute", adding(&TavIDL::EmpBatch::Execute)},
    {"TavEmp.ExecuteWithParamList", adding(&TavIDL::EmpBatch::ExecuteWithParamList)},
    {"TavEmpEvent.Callback", adding(&TavIDL::CallbackBatch::Callback)},
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

std::unique_ptr<TavIDL::Batch> batchOf(TavIDL::Remote& peer) {
    if (auto* const broker = dynamic_cast<TavIDL::RemoteBroker*>(&peer)) {
        return std::make_unique<TavIDL::BrokerBatch>(*broker);
    }
    if (auto* const emp = dynamic_cast<TavIDL::RemoteEmp*>(&peer)) {
        return std::make_unique<TavIDL::EmpBatch>(*emp);
    }
    return std::make_unique<TavIDL::CallbackBatch>(dynamic_cast<TavIDL::RemoteCallback&>(peer));
}

Reply addTo(TavIDL::Batch& batch, const Operation& operation, const Json& arguments) {
    return kCalls.at(operation.fullName())(batch, operation, arguments);
}

Json call(const Operation& operation, TavIDL::Remote& peer, const Json& arguments) {
    try {
        const auto batch = batchOf(peer);
        const Reply reply = addTo(*batch, operation, arguments);
        batch->run();
        return reply();
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
