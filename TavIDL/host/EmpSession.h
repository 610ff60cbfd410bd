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

/// An EMP that is open as long as this lives: the constructor has the broker open it and serves
/// the program's callback service, `->` calls it, the destructor has the broker close it.
///
///     TavIDL::RemoteBroker broker("127.0.0.1:9090");
///     TavIDL::EmpSession emp(broker, "thermometer", "1.0", credential,
///                            [](int32_t type, const std::string& a, const std::string& b) {
///                                std::cout << "event " << type << ": " << a << ' ' << b << '\n';
///                            });
///     emp->Open(7, "thermometer", "1.0", credential);
///
/// The EMP is expected on the broker's host. `Open` and `Close` are the program's to call.
class TAVIDL_EXPORT EmpSession {
public:
    /// Gets the events: a type and two strings.
    using OnEvent = std::function<void(int32_t, const std::string&, const std::string&)>;

    /// Calls OpenEmp, listens for events on the `callbackServicePort` that the broker names (not
    /// if that is 0 or `onEvent` is empty), and prepares the connection to the EMP, which the first
    /// call makes. It listens on the address by which this machine reaches the broker.
    ///
    /// `onEvent` is called by threads of the session's, one event at a time. It must not destroy or
    /// close the session. What it throws goes to `settings.onFailure`.
    ///
    /// Connections to the EMP and from it are as the broker's settings say, or as `settings` do.
    /// With TLS, the callback service needs `certificate` and `key`.
    ///
    /// Throws what OpenEmp does; and, after CloseEmp, std::runtime_error if the broker names a port
    /// that cannot be one, and std::system_error if it is not possible to listen for events. The
    /// broker must outlive the session.
    EmpSession(RemoteBroker& broker, const std::string& name, const std::string& version,
               const std::string& credential, OnEvent onEvent = OnEvent());
    EmpSession(RemoteBroker& broker, const std::string& name, const std::string& version,
               const std::string& credential, OnEvent onEvent, const Settings& settings);

    /// Closes the session. A failure goes to the settings' `onFailure`.
    ~EmpSession();

    EmpSession(const EmpSession&) = delete;
    EmpSession& operator=(const EmpSession&) = delete;

    /// The EMP. Any thread may call it.
    RemoteEmp* operator->() const;
    RemoteEmp& operator*() const;

    /// What the broker returned.
    const ConnectionInfo& info() const;

    /// Has the broker close the EMP, and returns its answer. Events that the EMP sent before it was
    /// closed are still delivered. Then cancels calls of the EMP that are still waiting. A second
    /// call does nothing and returns the first one's answer.
    ///
    /// Throws what CloseEmp throws. The session is closed even so, but the EMP may still be open.
    bool close();

private:
    std::unique_ptr<host::Session> session_;
};

}  // namespace TavIDL

#endif
