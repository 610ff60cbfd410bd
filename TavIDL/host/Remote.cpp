#include <TavIDL/host/Remote.h>

#include "pool.h"

namespace TavIDL {

using apache::thrift::TApplicationException;

namespace {

std::string describe(CallFailed::Reason reason) {
    switch (reason) {
        case CallFailed::CannotConnect:
            return "cannot connect";
        case CallFailed::NoAnswerInTime:
            return "no answer in time";
        case CallFailed::ConnectionClosed:
            return "the connection was closed";
        case CallFailed::NotOurProtocol:
            return "the peer sent something that is not a reply";
        default:
            return "cancelled";
    }
}

// Makes one call with `work`, which gets a client.
template <typename Client, typename Work>
void makeCall(host::Pool& pool, const char* operation, Work work) {
    host::Call call(pool, operation, pool.settings().callTimeout);
    try {
        Client client(call.channel().protocol);
        work(client);
    } catch (const TApplicationException& failure) {
        if (host::canKeepAfter(failure)) {
            call.keep();
        }
        throw;
    } catch (...) {
        call.fail();
    }
    call.keep();
}

}  // namespace

CallFailed::CallFailed(Reason reason, bool sent, const std::string& operation,
                       const std::string& address, const std::string& detail)
    : TTransportException(reason == NoAnswerInTime   ? TIMED_OUT
                          : reason == Cancelled      ? INTERRUPTED
                          : reason == NotOurProtocol ? CORRUPTED_DATA
                                                     : NOT_OPEN,
                          operation + " at " + address + ": " + describe(reason) +
                              (detail.empty() ? "" : ": " + detail)),
      reason_(reason),
      sent_(sent) {
}

CallFailed::~CallFailed() noexcept = default;

Remote::Remote(const std::string& address, const Settings& settings, bool oneWay)
    : pool_(new host::Pool(address, settings, oneWay)) {
}

Remote::~Remote() = default;

const std::string& Remote::address() const {
    return pool_->addressText();
}

const Settings& Remote::settings() const {
    return pool_->settings();
}

void Remote::cancel() {
    pool_->cancel();
}

RemoteBroker::RemoteBroker(const std::string& address, const Settings& settings)
    : Remote(address, settings, false) {
}

RemoteBroker::~RemoteBroker() = default;

void RemoteBroker::OpenEmp(ConnectionInfo& result, const std::string& name,
                           const std::string& version, const std::string& credential) {
    makeCall<TavBrokerClient>(*pool_, "TavBroker.OpenEmp", [&](TavBrokerClient& client) {
        client.OpenEmp(result, name, version, credential);
    });
}

void RemoteBroker::Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                           const std::string& param1, const std::string& param2,
                           const std::string& param3, const std::string& param4) {
    makeCall<TavBrokerClient>(*pool_, "TavBroker.Execute", [&](TavBrokerClient& client) {
        client.Execute(result, fromPort, cmd, param1, param2, param3, param4);
    });
}

bool RemoteBroker::CloseEmp(const ConnectionInfo& connectionInfo) {
    bool result = false;
    makeCall<TavBrokerClient>(*pool_, "TavBroker.CloseEmp", [&](TavBrokerClient& client) {
        result = client.CloseEmp(connectionInfo);
    });
    return result;
}

RemoteEmp::RemoteEmp(const std::string& address, const Settings& settings)
    : Remote(address, settings, false) {
}

RemoteEmp::~RemoteEmp() = default;

bool RemoteEmp::Open(int32_t clientID, const std::string& name, const std::string& version,
                     const std::string& credential) {
    bool result = false;
    makeCall<TavEmpClient>(*pool_, "TavEmp.Open", [&](TavEmpClient& client) {
        result = client.Open(clientID, name, version, credential);
    });
    return result;
}

int32_t RemoteEmp::Close(int32_t clientID) {
    int32_t result = 0;
    makeCall<TavEmpClient>(*pool_, "TavEmp.Close",
                           [&](TavEmpClient& client) { result = client.Close(clientID); });
    return result;
}

void RemoteEmp::Execute(std::string& result, int32_t clientID, const std::string& cmd,
                        const std::string& param1, const std::string& param2,
                        const std::string& param3, const std::string& param4) {
    makeCall<TavEmpClient>(*pool_, "TavEmp.Execute", [&](TavEmpClient& client) {
        client.Execute(result, clientID, cmd, param1, param2, param3, param4);
    });
}

void RemoteEmp::ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                                     const ParamList& paramList) {
    makeCall<TavEmpClient>(*pool_, "TavEmp.ExecuteWithParamList", [&](TavEmpClient& client) {
        client.ExecuteWithParamList(result, clientID, cmd, paramList);
    });
}

RemoteCallback::RemoteCallback(const std::string& address, const Settings& settings)
    : Remote(address, settings, true) {
}

RemoteCallback::~RemoteCallback() = default;

void RemoteCallback::Callback(int32_t eventType, const std::string& param1,
                              const std::string& param2) {
    makeCall<TavEmpEventClient>(*pool_, "TavEmpEvent.Callback", [&](TavEmpEventClient& client) {
        client.Callback(eventType, param1, param2);
    });
}

}  // namespace TavIDL
