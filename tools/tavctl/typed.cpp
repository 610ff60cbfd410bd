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

using Text = const std::string&;

// Serves any of the services: where two have the same operation, it has the same signature.
class Handler : public TavBrokerIf, public TavEmpIf, public TavEmpEventIf {
public:
    Handler(std::string service, Answer answer)
        : service_(std::move(service)), answer_(std::move(answer)) {}

    void OpenEmp(ConnectionInfo& result, Text name, Text version, Text credential) override {
        result = answer("OpenEmp", name, version, credential);
    }

    bool CloseEmp(const ConnectionInfo& connectionInfo) override {
        return answer("CloseEmp", connectionInfo);
    }

    bool Open(int32_t clientID, Text name, Text version, Text credential) override {
        return answer("Open", clientID, name, version, credential);
    }

    int32_t Close(int32_t clientID) override { return answer("Close", clientID); }

    void Execute(std::string& result, int32_t caller, Text cmd, Text param1, Text param2,
                 Text param3, Text param4) override {
        result = answer("Execute", caller, cmd, param1, param2, param3, param4);
    }

    void ExecuteWithParamList(std::string& result, int32_t clientID, Text cmd,
                              const ParamList& paramList) override {
        result = answer("ExecuteWithParamList", clientID, cmd, paramList);
    }

    void Callback(int32_t eventType, Text param1, Text param2) override {
        answer("Callback", eventType, param1, param2);
    }

private:
    template <typename... Values>
    Json answer(const char* name, const Values&... values) const {
        const Operation& operation = operationNamed(name, service_);
        Json arguments;
        auto field = operation.arguments.begin();
        ((arguments[(field++)->name] = values), ...);
        return answer_(operation, arguments);
    }

    const std::string service_;
    const Answer answer_;
};

// How a service is called, and served.
struct Service {
    std::function<std::unique_ptr<TavIDL::Remote>(Text address, const TavIDL::Settings&)> remote;
    std::function<std::unique_ptr<TavIDL::Batch>(TavIDL::Remote&)> batch;
    std::function<std::shared_ptr<apache::thrift::TProcessor>(std::shared_ptr<Handler>)> processor;
};

template <typename Remote, typename Batch, typename Processor>
Service service() {
    return {
        std::make_unique<Remote, Text, const TavIDL::Settings&>,
        [](TavIDL::Remote& peer) { return std::make_unique<Batch>(dynamic_cast<Remote&>(peer)); },
        std::make_shared<Processor, std::shared_ptr<Handler>>};
}

const std::map<std::string, Service> kServices = {
    {"TavBroker", service<TavIDL::RemoteBroker, TavIDL::BrokerBatch, TavBrokerProcessor>()},
    {"TavEmp", service<TavIDL::RemoteEmp, TavIDL::EmpBatch, TavEmpProcessor>()},
    {"TavEmpEvent",
     service<TavIDL::RemoteCallback, TavIDL::CallbackBatch, TavEmpEventProcessor>()}};

}  // namespace

std::unique_ptr<TavIDL::Remote> remoteOf(const std::string& service, const std::string& address,
                                         const TavIDL::Settings& settings) {
    return kServices.at(service).remote(address, settings);
}

std::unique_ptr<TavIDL::Batch> batchOf(const std::string& service, TavIDL::Remote& peer) {
    return kServices.at(service).batch(peer);
}

Reply addTo(TavIDL::Batch& batch, const Operation& operation, const Json& arguments) {
    return kCalls.at(operation.fullName())(batch, arguments);
}

Json call(const Operation& operation, TavIDL::Remote& peer, const Json& arguments) {
    try {
        const auto batch = batchOf(operation.service, peer);
        const Reply reply = addTo(*batch, operation, arguments);
        batch->run();
        return reply();
    } catch (const apache::thrift::TException& thrown) {
        throw failureFrom(thrown, operation.fullName(), peer);
    }
}

std::shared_ptr<apache::thrift::TProcessor> processorOf(const std::string& service, Answer answer) {
    return kServices.at(service).processor(std::make_shared<Handler>(service, std::move(answer)));
}

}  // namespace tavctl
