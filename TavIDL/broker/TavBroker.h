#ifndef TAVIDL_BROKER_TAVBROKER_H
#define TAVIDL_BROKER_TAVBROKER_H

#include <TavIDL/broker/TavBrokerRecords.h>
#include <TavIDL/export.h>
#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

/// What a broker offers to programs. It opens EMPs for them: modules that are identified by name,
/// version and credential.
///
/// A broker implements this class and hands it to a TavBrokerProcessor; a program calls it through
/// a TavBrokerClient. TavIDL.h says what an implementation may throw, and which threads call it.
class TAVIDL_EXPORT TavBrokerIf {
public:
    virtual ~TavBrokerIf() {}

    /// Opens an EMP. Fills `result` with where it and the caller's callback service listen.
    virtual void OpenEmp(ConnectionInfo& result, const std::string& name,
                         const std::string& version, const std::string& credential) = 0;

    /// Runs a command for the caller, who is identified by `fromPort`. Fills `result` with the
    /// command's answer.
    virtual void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                         const std::string& param1, const std::string& param2,
                         const std::string& param3, const std::string& param4) = 0;

    /// Closes an EMP. Returns whether it is closed.
    virtual bool CloseEmp(const ConnectionInfo& connectionInfo) = 0;
};

/// The names of the operations on the wire.
namespace TavBrokerOperation {
constexpr const char* OpenEmp = "OpenEmp";
constexpr const char* Execute = "Execute";
constexpr const char* CloseEmp = "CloseEmp";
}  // namespace TavBrokerOperation

/// Calls a remote broker. TavIDL.h says what it throws and owns, and which threads may use it.
class TAVIDL_EXPORT TavBrokerClient : virtual public TavBrokerIf {
public:
    /// Calls over one protocol, both ways.
    explicit TavBrokerClient(const TavIDL::ProtocolPointer& protocol)
        : TavBrokerClient(protocol, protocol) {}

    /// Writes requests to `output` and reads replies from `input`.
    TavBrokerClient(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output)
        : piprot_(std::move(input)),
          poprot_(std::move(output)),
          iprot_(piprot_.get()),
          oprot_(poprot_.get()) {}

    ~TavBrokerClient() override {}

    TavIDL::ProtocolPointer getInputProtocol() const { return piprot_; }
    TavIDL::ProtocolPointer getOutputProtocol() const { return poprot_; }

    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override;
    void send_OpenEmp(const std::string& name, const std::string& version,
                      const std::string& credential);
    /// Fields that the reply lacks keep their value in `result`.
    void recv_OpenEmp(ConnectionInfo& result);

    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override;
    void send_Execute(int32_t fromPort, const std::string& cmd, const std::string& param1,
                      const std::string& param2, const std::string& param3,
                      const std::string& param4);
    void recv_Execute(std::string& result);

    bool CloseEmp(const ConnectionInfo& connectionInfo) override;
    void send_CloseEmp(const ConnectionInfo& connectionInfo);
    bool recv_CloseEmp();

protected:
    TavIDL::ProtocolPointer piprot_;
    TavIDL::ProtocolPointer poprot_;
    TavIDL::TProtocol* iprot_;
    TavIDL::TProtocol* oprot_;
};

/// Serves a broker. TavIDL.h says how it answers, what it owns, and which threads may use it.
class TAVIDL_EXPORT TavBrokerProcessor : virtual public apache::thrift::TProcessor {
public:
    explicit TavBrokerProcessor(TavIDL::shared_ptr<TavBrokerIf> handler)
        : handler_(std::move(handler)) {
        operationMap_[TavBrokerOperation::OpenEmp] = &TavBrokerProcessor::process_OpenEmp;
        operationMap_[TavBrokerOperation::Execute] = &TavBrokerProcessor::process_Execute;
        operationMap_[TavBrokerOperation::CloseEmp] = &TavBrokerProcessor::process_CloseEmp;
    }

    virtual ~TavBrokerProcessor() {}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsuggest-override"  // thrift.h says why there are two, without it
    /// Handles one message and returns true. `connectionContext` is not used.
    bool process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output,
                 void* connectionContext);
    bool process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output);
#pragma GCC diagnostic pop

    /// Handles the rest of a message, whose header has been read, and returns true.
    virtual bool process_fn(TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot, std::string& name,
                            int32_t seqid);

protected:
    void process_OpenEmp(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);
    void process_Execute(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);
    void process_CloseEmp(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);

    TavIDL::shared_ptr<TavBrokerIf> handler_;
    std::map<std::string,
             void (TavBrokerProcessor::*)(int32_t, TavIDL::TProtocol*, TavIDL::TProtocol*)>
        operationMap_;
};

#endif
