#include "typed.h"

#include <TavIDL/host/Batch.h>

#include <map>
#include <tuple>

#include "connection.h"

namespace tavctl {

namespace {

using Call = std::function<Reply(TavIDL::Batch&, const Json&)>;

// The fields of the arguments are in the order of the operation's parameters.
template <typename... Parameters>
std::tuple<std::decay_t<Parameters>...> parametersFrom(const Json& arguments) {
    auto next = arguments.begin();
    return {(next++)->template get<std::decay_t<Parameters>>()...};
}

template <typename Batch, typename Result, typename... Parameters>
Call call(Result (Batch::*operation)(Parameters...)) {
    return [operation](TavIDL::Batch& batch, const Json& arguments) -> Reply {
        const auto add = [&](const auto&... values) {
            return (dynamic_cast<Batch&>(batch).*operation)(values...);
        };
        if constexpr (std::is_void_v<Result>) {
            std::apply(add, parametersFrom<Parameters...>(arguments));
            return [] { return Json(); };
        } else {
            return [result = std::apply(add, parametersFrom<Parameters...>(arguments)).share()] {
                return Json(result.get());
            };
        }
    };
}

const std::map<std::string, Call> kCalls = {
    {"TavBroker.OpenEmp", call(&TavIDL::BrokerBatch::OpenEmp)},
    {"TavBroker.Execute", call(&TavIDL::BrokerBatch::Execute)},
    {"TavBroker.CloseEmp", call(&TavIDL::BrokerBatch::CloseEmp)},
    {"TavEmp.Open", call(&TavIDL::EmpBatch::Open)},
    {"TavEmp.Close", call(&TavIDL::EmpBatch::Close)},
    {"TavEmp.Execute", call(&TavIDL::EmpBatch::Execute)},
    {"TavEmp.ExecuteWithParamList", call(&TavIDL::EmpBatch::ExecuteWithParamList)},
    {"TavEmpEvent.Callback", call(&TavIDL::CallbackBatch::Callback)},
};

// What the three handlers share.
class Handler {
public:
    explicit Handler(Answer answer) : answer_(std::move(answer)) {}

protected:
    template <typename... Values>
    Json answer(const char* name, const Values&... values) const {
        const Operation& operation = operationNamed(name);
        Json arguments;
        auto field = operation.arguments.begin();
        ((arguments[(field++)->name] = values), ...);
        return answer_(operation, arguments);
    }

private:
    const Answer answer_;
};

using Text = const std::string&;

class Broker : public TavBrokerIf, Handler {
public:
    using Handler::Handler;

    void OpenEmp(ConnectionInfo& result, Text name, Text version, Text credential) override {
        result = answer("TavBroker.OpenEmp", name, version, credential);
    }

    void Execute(std::string& result, int32_t fromPort, Text cmd, Text param1, Text param2,
                 Text param3, Text param4) override {
        result = answer("TavBroker.Execute", fromPort, cmd, param1, param2, param3, param4);
    }

    bool CloseEmp(const ConnectionInfo& connectionInfo) override {
        return answer("TavBroker.CloseEmp", connectionInfo);
    }
};

class Emp : public TavEmpIf, Handler {
public:
    using Handler::Handler;

    bool Open(int32_t clientID, Text name, Text version, Text credential) override {
        return answer("TavEmp.Open", clientID, name, version, credential);
    }

    int32_t Close(int32_t clientID) override { return answer("TavEmp.Close", clientID); }

    void Execute(std::string& result, int32_t clientID, Text cmd, Text param1, Text param2,
                 Text param3, Text param4) override {
        result = answer("TavEmp.Execute", clientID, cmd, param1, param2, param3, param4);
    }

    void ExecuteWithParamList(std::string& result, int32_t clientID, Text cmd,
                              const ParamList& paramList) override {
        result = answer("TavEmp.ExecuteWithParamList", clientID, cmd, paramList);
    }
};

class Event : public TavEmpEventIf, Handler {
public:
    using Handler::Handler;

    void Callback(int32_t eventType, Text param1, Text param2) override {
        answer("TavEmpEvent.Callback", eventType, param1, param2);
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
    return kCalls.at(operation.fullName())(batch, arguments);
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
