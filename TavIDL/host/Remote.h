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

/// Why a call has no answer. (A peer's refusal is an answer: a TApplicationException, unchanged.)
/// what() names the operation, the address and the reason.
class TAVIDL_EXPORT CallFailed : public apache::thrift::transport::TTransportException {
public:
    enum Reason {
        CannotConnect,     ///< no such server, or it refuses; TLS failed
        NoAnswerInTime,    ///< the time-out of the call has passed
        ConnectionClosed,  ///< by the peer, or by the network
        NotOurProtocol,    ///< what came cannot be a reply, or is too long
        Cancelled          ///< by cancel(), or by the destructor
    };

    CallFailed(Reason reason, bool sent, const std::string& operation, const std::string& address,
               const std::string& detail);
    ~CallFailed() noexcept override;

    Reason reason() const { return reason_; }

    /// Whether some of the request has left this process. If so, the peer may have run the call; if
    /// not, the call can be repeated.
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
/// The first call connects. Each call gets a connection for itself, from a small pool: any number
/// of threads may call the same object. A call beyond `maxConnections` waits for a connection,
/// within its time-out.
///
/// Calls throw
/// - TApplicationException: what the peer answered; or one of kind INVALID_MESSAGE_TYPE,
///   WRONG_METHOD_NAME or MISSING_RESULT if that is not an answer to the call, as TavIDL.h says.
///   The connection stays open, except after the first two of these kinds.
/// - CallFailed: all other failures of the connection, which is then closed. The next call
///   connects again.
///
/// A connection that was not used for more than a second, or since another one has failed, is
/// checked before it is used again, so that a server's restart rarely fails a call. No call is ever
/// sent twice.
class TAVIDL_EXPORT Remote {
public:
    /// Ends the current calls as cancel() does, and waits until they have returned.
    virtual ~Remote();

    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    /// As it was passed to the constructor.
    const std::string& address() const;

    const Settings& settings() const;

    /// Ends all current calls: they throw CallFailed with the reason Cancelled. (One that looks up
    /// a host name ends when it has it.) Later calls connect again. Any thread may call it.
    void cancel();

protected:
    /// Throws std::invalid_argument if the address or the settings cannot be used.
    Remote(const std::string& address, const Settings& settings, bool oneWay);

    std::unique_ptr<host::Pool> pool_;

private:
    friend class Batch;
    friend class EmpSession;
};

/// A broker somewhere else, as if it were here.
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

/// An EMP somewhere else. EmpSession makes one for an EMP that a broker opens.
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

/// A callback service somewhere else. Events are one-way: nothing is ever read, and an event that
/// was written may still get lost with its connection. All events take one connection, and so keep
/// their order; the destructor lets the system deliver what was written.
class TAVIDL_EXPORT RemoteCallback : public Remote, public TavEmpEventIf {
public:
    explicit RemoteCallback(const std::string& address, const Settings& settings = Settings());
    ~RemoteCallback() override;

    void Callback(int32_t eventType, const std::string& param1, const std::string& param2) override;
};

}  // namespace TavIDL

#endif
