#ifndef TAVIDL_HOST_EMPSESSION_H
#define TAVIDL_HOST_EMPSESSION_H

#include <TavIDL/TavIDL.h>
#include <TavIDL/export.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Settings.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace TavIDL {

namespace host {
class Session;
}

/// An EMP that is open as long as this object exists: the constructor has the broker open it and
/// serves the program's callback service, `->` calls the EMP, and the destructor has the broker
/// close it.
///
///     TavIDL::RemoteBroker broker("127.0.0.1:9090");
///     TavIDL::EmpSession emp(broker, "thermometer", "1.0", credential,
///                            [](int32_t type, const std::string& a, const std::string& b) {
///                                std::cout << "event " << type << ": " << a << ' ' << b << '\n';
///                            });
///     emp->Open(7, "thermometer", "1.0", credential);
///
/// The EMP must run on the broker's host. The program itself calls the EMP's `Open` and `Close`.
class TAVIDL_EXPORT EmpSession {
public:
    /// Receives the events: a type and two strings.
    using OnEvent = std::function<void(int32_t, const std::string&, const std::string&)>;

    /// Calls OpenEmp and listens for events on the `callbackServicePort` that the broker returns,
    /// unless that is 0 or `onEvent` is empty. It listens on the address with which this machine
    /// reaches the broker. The first call connects to the EMP.
    ///
    /// `onEvent` is called by the session's threads, one event at a time. It must not destroy or
    /// close the session. Its exceptions are reported to `settings.onFailure`.
    ///
    /// The connections to and from the EMP use `settings`, or the broker's settings if there are
    /// none. With TLS, the callback service needs `certificate` and `key`.
    ///
    /// Throws what OpenEmp throws. Also throws, after CloseEmp, std::runtime_error if the broker
    /// returns an invalid port, and std::system_error if it cannot listen for events. The broker
    /// must outlive the session.
    EmpSession(RemoteBroker& broker, const std::string& name, const std::string& version,
               const std::string& credential, OnEvent onEvent = OnEvent());
    EmpSession(RemoteBroker& broker, const std::string& name, const std::string& version,
               const std::string& credential, OnEvent onEvent, const Settings& settings);

    /// Closes the session. A failure is reported to the settings' `onFailure`.
    ~EmpSession();

    EmpSession(const EmpSession&) = delete;
    EmpSession& operator=(const EmpSession&) = delete;

    /// The EMP. Any thread may call it.
    RemoteEmp* operator->() const;
    RemoteEmp& operator*() const;

    /// What the broker returned.
    const ConnectionInfo& info() const;

    /// Has the broker close the EMP, and returns its answer. Events that the EMP sent before it was
    /// closed are still delivered. Then cancels calls to the EMP that are still waiting. A second
    /// call does nothing and returns the answer of the first.
    ///
    /// Throws what CloseEmp throws. The session is closed then, too, but the EMP may still be open.
    bool close();

private:
    std::unique_ptr<host::Session> session_;
};

}  // namespace TavIDL

#endif
