#include <TavIDL/host/EmpSession.h>
#include <TavIDL/host/Server.h>

#include <mutex>
#include <stdexcept>
#include <utility>

#include "pool.h"

namespace TavIDL {

namespace {

// Passes events to the program, one at a time.
class Events : public TavEmpEventIf {
public:
    Events(EmpSession::OnEvent onEvent, const Settings& settings)
        : onEvent_(std::move(onEvent)), onFailure_(settings.onFailure) {}

    void Callback(int32_t eventType, const std::string& param1,
                  const std::string& param2) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        try {
            onEvent_(eventType, param1, param2);
        } catch (const std::exception& failure) {
            report(eventType, failure.what());
        } catch (...) {
            report(eventType, "the function threw something that is not a std::exception");
        }
    }

private:
    // The sender does not notice; its next events are still delivered.
    void report(int32_t eventType, const char* failure) {
        try {
            if (onFailure_) {
                onFailure_("event " + std::to_string(eventType) + ": " + failure);
            }
        } catch (...) {  // NOLINT(bugprone-empty-catch): as Settings::onFailure says
        }
    }

    const EmpSession::OnEvent onEvent_;
    const std::function<void(const std::string&)> onFailure_;
    std::mutex mutex_;
};

std::string addressOf(const std::string& host, int32_t port, const char* what) {
    if (port < 1 || port > 65535) {
        throw std::runtime_error(std::string("the broker gives ") + what + " as " +
                                 std::to_string(port) + ", which is not a port");
    }
    host::Address address;
    address.host = host;
    address.port = port;
    return address.text();
}

}  // namespace

namespace host {

class Session {
public:
    Session(RemoteBroker& broker, Pool& pool, const std::string& name, const std::string& version,
            const std::string& credential, EmpSession::OnEvent onEvent, Settings settings)
        : broker_(broker), settings_(std::move(settings)) {
        broker.OpenEmp(info_, name, version, credential);
        try {
            if (onEvent && info_.callbackServicePort != 0) {
                events_ = std::make_unique<Server>(
                    addressOf(pool.localHost(), info_.callbackServicePort, "callbackServicePort"),
                    std::make_shared<Events>(std::move(onEvent), settings_), settings_);
            }
            emp_ = std::make_unique<RemoteEmp>(
                // No host if the broker has a unix socket: this machine.
                addressOf(pool.address().host, info_.empServicePort, "empServicePort"), settings_);
        } catch (...) {
            closeAndReport();
            throw;
        }
    }

    ~Session() { closeAndReport(); }

    RemoteEmp& emp() const { return *emp_; }
    const ConnectionInfo& info() const { return info_; }

    bool close() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return answer_;
        }
        closed_ = true;
        try {
            answer_ = broker_.CloseEmp(info_);
        } catch (...) {
            endConnections();
            throw;
        }
        endConnections();
        return answer_;
    }

private:
    void closeAndReport() noexcept {
        try {
            close();
        } catch (const std::exception& failure) {
            try {
                if (settings_.onFailure) {
                    settings_.onFailure("the EMP " + info_.empID +
                                        " may still be open: " + failure.what());
                }
            } catch (...) {  // NOLINT(bugprone-empty-catch): as Settings::onFailure says
            }
        }
    }

    void endConnections() {
        if (events_) {
            events_->finish();
        }
        if (emp_) {
            emp_->cancel();
        }
    }

    RemoteBroker& broker_;
    const Settings settings_;
    ConnectionInfo info_;
    std::unique_ptr<Server> events_;
    std::unique_ptr<RemoteEmp> emp_;
    std::mutex mutex_;
    bool closed_ = false;
    bool answer_ = false;
};

}  // namespace host

EmpSession::EmpSession(RemoteBroker& broker, const std::string& name, const std::string& version,
                       const std::string& credential, OnEvent onEvent)
    : EmpSession(broker, name, version, credential, std::move(onEvent), broker.settings()) {
}

EmpSession::EmpSession(RemoteBroker& broker, const std::string& name, const std::string& version,
                       const std::string& credential, OnEvent onEvent, const Settings& settings)
    : session_(new host::Session(broker, *broker.pool_, name, version, credential,
                                 std::move(onEvent), settings)) {
}

EmpSession::~EmpSession() = default;

RemoteEmp* EmpSession::operator->() const {
    return &session_->emp();
}

RemoteEmp& EmpSession::operator*() const {
    return session_->emp();
}

const ConnectionInfo& EmpSession::info() const {
    return session_->info();
}

bool EmpSession::close() {
    return session_->close();
}

}  // namespace TavIDL
