#ifndef TAVIDL_EMP_TAVEMP_H
#define TAVIDL_EMP_TAVEMP_H

#include <TavIDL/emp/TavEmpRecords.h>
#include <TavIDL/export.h>
#include <TavIDL/records/ParamList.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

/// What an EMP offers to programs. An EMP is a module that a broker opens by name, version and
/// credential. It identifies each program that uses it by a number, `clientID`.
///
/// An EMP implements this class and hands it to a TavEmpProcessor; a program calls it through a
/// TavEmpClient. TavIDL.h says what an implementation may throw, and which threads call it.
class TAVIDL_EXPORT TavEmpIf {
public:
    virtual ~TavEmpIf() {}

    /// Opens the EMP for a client. Returns whether it is open.
    virtual bool Open(int32_t clientID, const std::string& name, const std::string& version,
                      const std::string& credential) = 0;

    /// Closes the EMP for a client. Returns a number whose meaning the EMP defines, not a bool as
    /// Open does.
    virtual int32_t Close(int32_t clientID) = 0;

    /// Runs a command with four parameters. Fills `result` with its answer.
    virtual void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                         const std::string& param1, const std::string& param2,
                         const std::string& param3, const std::string& param4) = 0;

    /// Runs a command with ten parameters. Fills `result` with its answer.
    virtual void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                                      const ParamList& paramList) = 0;
};

/// The names of the operations on the wire.
namespace TavEmpOperation {
constexpr const char* Open = "Open";
constexpr const char* Close = "Close";
constexpr const char* Execute = "Execute";
constexpr const char* ExecuteWithParamList = "ExecuteWithParamList";
}  // namespace TavEmpOperation

/// Calls a remote EMP. TavIDL.h says what it throws and owns, and which threads may use it.
class TAVIDL_EXPORT TavEmpClient : virtual public TavEmpIf {
public:
    /// Calls over one protocol, both ways.
    explicit TavEmpClient(const TavIDL::ProtocolPointer& protocol)
        : TavEmpClient(protocol, protocol) {}

    /// Writes requests to `output` and reads replies from `input`.
    TavEmpClient(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output)
        : piprot_(std::move(input)),
          poprot_(std::move(output)),
          iprot_(piprot_.get()),
          oprot_(poprot_.get()) {}

    ~TavEmpClient() override {}

    TavIDL::ProtocolPointer getInputProtocol() const { return piprot_; }
    TavIDL::ProtocolPointer getOutputProtocol() const { return poprot_; }

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override;
    void send_Open(int32_t clientID, const std::string& name, const std::string& version,
                   const std::string& credential);
    bool recv_Open();

    int32_t Close(int32_t clientID) override;
    void send_Close(int32_t clientID);
    int32_t recv_Close();

    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override;
    void send_Execute(int32_t clientID, const std::string& cmd, const std::string& param1,
                      const std::string& param2, const std::string& param3,
                      const std::string& param4);
    void recv_Execute(std::string& result);

    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& paramList) override;
    void send_ExecuteWithParamList(int32_t clientID, const std::string& cmd,
                                   const ParamList& paramList);
    void recv_ExecuteWithParamList(std::string& result);

protected:
    TavIDL::ProtocolPointer piprot_;
    TavIDL::ProtocolPointer poprot_;
    TavIDL::TProtocol* iprot_;
    TavIDL::TProtocol* oprot_;
};

/// Serves an EMP. TavIDL.h says how it answers, what it owns, and which threads may use it.
class TAVIDL_EXPORT TavEmpProcessor : virtual public apache::thrift::TProcessor {
public:
    explicit TavEmpProcessor(TavIDL::shared_ptr<TavEmpIf> handler) : handler_(std::move(handler)) {
        operationMap_[TavEmpOperation::Open] = &TavEmpProcessor::process_Open;
        operationMap_[TavEmpOperation::Close] = &TavEmpProcessor::process_Close;
        operationMap_[TavEmpOperation::Execute] = &TavEmpProcessor::process_Execute;
        operationMap_[TavEmpOperation::ExecuteWithParamList] =
            &TavEmpProcessor::process_ExecuteWithParamList;
    }

    virtual ~TavEmpProcessor() {}

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
    void process_Open(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);
    void process_Close(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);
    void process_Execute(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);
    void process_ExecuteWithParamList(int32_t seqid, TavIDL::TProtocol* iprot,
                                      TavIDL::TProtocol* oprot);

    TavIDL::shared_ptr<TavEmpIf> handler_;
    std::map<std::string,
             void (TavEmpProcessor::*)(int32_t, TavIDL::TProtocol*, TavIDL::TProtocol*)>
        operationMap_;
};

#endif
