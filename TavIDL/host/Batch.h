#ifndef TAVIDL_HOST_BATCH_H
#define TAVIDL_HOST_BATCH_H

#include <TavIDL/TavIDL.h>
#include <TavIDL/export.h>
#include <TavIDL/host/Remote.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>

namespace TavIDL {

namespace host {
class Requests;
}

/// Many calls for the cost of a few: they are sent together, before their replies are read.
///
/// Adding a call encodes it, and run() makes all calls, in order, over one connection. Each call's
/// future then has its result, or throws what a single call would have thrown; a call that the peer
/// answers with an exception does not affect the others.
///
///     TavIDL::EmpBatch batch(emp);
///     std::future<std::string> inside = batch.Execute(7, "read", "kitchen", "", "", "");
///     std::future<std::string> outside = batch.Execute(7, "read", "garden", "", "", "");
///     batch.run();
///     std::cout << inside.get() << ' ' << outside.get() << '\n';
///
/// Replies are matched to calls only by their order: the server must answer in the order of the
/// requests, as Host's server and libthrift's C++ servers do.
///
/// Use a batch from one thread at a time. It keeps the encoded calls in memory until they have run.
class TAVIDL_EXPORT Batch {
public:
    /// The futures of calls that have not run then throw std::future_error.
    virtual ~Batch();

    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    /// The number of calls that wait for run().
    std::size_t size() const;

    /// Makes all calls, within the `callTimeout` of the Remote's settings or within `timeout`. The
    /// batch is empty afterwards and can be filled again.
    ///
    /// Throws CallFailed if the connection fails. The futures of the calls without a reply then
    /// throw the same; the earlier ones have their results.
    void run();
    void run(std::chrono::milliseconds timeout);

protected:
    explicit Batch(Remote& remote);

    std::unique_ptr<host::Requests> requests_;
};

/// Calls of a broker. The batch must not outlive `broker`.
class TAVIDL_EXPORT BrokerBatch : public Batch {
public:
    explicit BrokerBatch(RemoteBroker& broker);
    ~BrokerBatch() override;

    std::future<ConnectionInfo> OpenEmp(const std::string& name, const std::string& version,
                                        const std::string& credential);
    std::future<std::string> Execute(int32_t fromPort, const std::string& cmd,
                                     const std::string& param1, const std::string& param2,
                                     const std::string& param3, const std::string& param4);
    std::future<bool> CloseEmp(const ConnectionInfo& connectionInfo);
};

/// Calls of an EMP. The batch must not outlive `emp`.
class TAVIDL_EXPORT EmpBatch : public Batch {
public:
    explicit EmpBatch(RemoteEmp& emp);
    ~EmpBatch() override;

    std::future<bool> Open(int32_t clientID, const std::string& name, const std::string& version,
                           const std::string& credential);
    std::future<int32_t> Close(int32_t clientID);
    std::future<std::string> Execute(int32_t clientID, const std::string& cmd,
                                     const std::string& param1, const std::string& param2,
                                     const std::string& param3, const std::string& param4);
    std::future<std::string> ExecuteWithParamList(int32_t clientID, const std::string& cmd,
                                                  const ParamList& paramList);
};

/// Events, written at once. The batch must not outlive `callback`.
class TAVIDL_EXPORT CallbackBatch : public Batch {
public:
    explicit CallbackBatch(RemoteCallback& callback);
    ~CallbackBatch() override;

    void Callback(int32_t eventType, const std::string& param1, const std::string& param2);
};

}  // namespace TavIDL

#endif
