#ifndef TAVIDL_HOST_REMOTE_H
#define TAVIDL_HOST_REMOTE_H

#include <TavIDL/TavIDL.h>
#include <TavIDL/export.h>
#include <TavIDL/host/Settings.h>
#include <thrift/transport/TTransportException.h>

#include <cstdint>
#include <memory>
#include <string>

namespace TavIDL {

namespace host {
class Pool;
}

/// Why a call has no answer. (An error that the peer returns is an answer: a TApplicationException,
/// unchanged.) what() names the operation, the address and the reason.
class TAVIDL_EXPORT CallFailed : public apache::thrift::transport::TTransportException {
public:
    enum Reason {
        CannotConnect,     ///< no such server, connection refused, or TLS failed
        NoAnswerInTime,    ///< the call's time-out has expired
        ConnectionClosed,  ///< by the peer or the network
        NotOurProtocol,    ///< the received bytes are not a reply, or too long
        Cancelled          ///< by cancel() or the destructor
    };

    CallFailed(Reason reason, bool sent, const std::string& operation, const std::string& address,
               const std::string& detail);
    ~CallFailed() noexcept override;

    Reason reason() const { return reason_; }

    /// Whether any of the request has been sent. If so, the peer may have run the call; if not, it
    /// is safe to repeat the call.
    bool sent() const { return sent_; }

private:
    Reason reason_;
    bool sent_;
};

/// What RemoteBroker, RemoteEmp and RemoteCallback have in common.
///
/// An address is one of
/// - `HOST:PORT`, with a name or an IPv4 address
/// - `[ADDRESS]:PORT`, with an IPv6 address
/// - `:PORT`, this machine: 127.0.0.1
/// - `unix:PATH`, a unix socket on this machine
///
/// The first call connects. Any number of threads may call the same object: each call uses its own
/// connection from a small pool. If all `maxConnections` are in use, a call waits for one, within
/// its time-out.
///
/// Calls throw
/// - TApplicationException: the peer's own; or one of kind INVALID_MESSAGE_TYPE, WRONG_METHOD_NAME
///   or MISSING_RESULT if the reply does not belong to the call, as TavIDL.h says. The connection
///   stays open, except after the first two of these kinds.
/// - CallFailed: all other failures of the connection, which is then closed. The next call
///   connects again.
///
/// A connection is checked before it is used again if it has been idle for more than a second, or
/// if another one has failed since. So calls rarely fail because a server was restarted. No call is
/// ever sent twice.
class TAVIDL_EXPORT Remote {
public:
    /// Ends the current calls as cancel() does, and waits until they have returned.
    virtual ~Remote();

    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    /// As it was passed to the constructor.
    const std::string& address() const;

    const Settings& settings() const;

    /// Ends all current calls: they throw CallFailed with the reason Cancelled. (A call that looks
    /// up a host name ends after the lookup.) Later calls connect again. Any thread may call this.
    void cancel();

protected:
    /// Throws std::invalid_argument if the address or the settings cannot be used.
    Remote(const std::string& address, const Settings& settings, bool oneWay);

    std::unique_ptr<host::Pool> pool_;

private:
    friend class Batch;
    friend class EmpSession;
};

/// Calls a broker in another process.
class TAVIDL_EXPORT RemoteBroker : public Remote, public TavBrokerIf {
public:
    explicit RemoteBroker(const std::string& address, const Settings& settings = Settings());
    ~RemoteBroker() override;

    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override;
    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override;
    bool CloseEmp(const ConnectionInfo& connectionInfo) override;
};

/// Calls an EMP in another process. EmpSession creates one for an EMP that a broker opens.
class TAVIDL_EXPORT RemoteEmp : public Remote, public TavEmpIf {
public:
    explicit RemoteEmp(const std::string& address, const Settings& settings = Settings());
    ~RemoteEmp() override;

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override;
    int32_t Close(int32_t clientID) override;
    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override;
    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& paramList) override;
};

/// Sends events to a callback service in another process. Events are one-way: nothing is ever read,
/// and an event that was written can still be lost with its connection. All events use the same
/// connection, so they keep their order. After the destructor the system still delivers what was
/// written.
class TAVIDL_EXPORT RemoteCallback : public Remote, public TavEmpEventIf {
public:
    explicit RemoteCallback(const std::string& address, const Settings& settings = Settings());
    ~RemoteCallback() override;

    void Callback(int32_t eventType, const std::string& param1, const std::string& param2) override;
};

}  // namespace TavIDL

#endif
