#ifndef TAVIDL_EVENT_TAVEMPEVENT_H
#define TAVIDL_EVENT_TAVEMPEVENT_H

#include <TavIDL/event/TavEmpEventRecords.h>
#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

/// What a callback service offers to EMPs, the modules that a broker opens for programs. A program
/// runs a callback service to receive its EMPs' events.
///
/// A callback service implements this class and hands it to a TavEmpEventProcessor; an EMP calls it
/// through a TavEmpEventClient. TavIDL.h says what an implementation may throw, and which threads
/// call it.
class TAVIDL_EXPORT TavEmpEventIf {
public:
    virtual ~TavEmpEventIf() {}

    /// Takes one event: a type and two strings, whose meaning the EMP defines. One-way: the EMP
    /// does not learn what this does or throws.
    virtual void Callback(int32_t eventType, const std::string& param1,
                          const std::string& param2) = 0;
};

/// The name of the operation on the wire.
namespace TavEmpEventOperation {
constexpr const char* Callback = "Callback";
}  // namespace TavEmpEventOperation

/// Sends events to a remote callback service. Nothing is read, so the caller does not learn whether
/// an event arrived. TavIDL.h says what a client throws and owns, and which threads may use it.
class TAVIDL_EXPORT TavEmpEventClient : virtual public TavEmpEventIf {
public:
    explicit TavEmpEventClient(const TavIDL::ProtocolPointer& protocol)
        : TavEmpEventClient(protocol, protocol) {}

    /// Writes to `output`. `input` is kept but never read.
    TavEmpEventClient(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output)
        : piprot_(std::move(input)),
          poprot_(std::move(output)),
          iprot_(piprot_.get()),
          oprot_(poprot_.get()) {}

    ~TavEmpEventClient() override {}

    TavIDL::ProtocolPointer getInputProtocol() const { return piprot_; }
    TavIDL::ProtocolPointer getOutputProtocol() const { return poprot_; }

    void Callback(int32_t eventType, const std::string& param1, const std::string& param2) override;
    /// The whole of Callback: a one-way call has no second half.
    void send_Callback(int32_t eventType, const std::string& param1, const std::string& param2);

protected:
    TavIDL::ProtocolPointer piprot_;
    TavIDL::ProtocolPointer poprot_;
    TavIDL::TProtocol* iprot_;
    TavIDL::TProtocol* oprot_;
};

/// Serves a callback service. Nothing is written back for an event: a std::exception that the
/// handler throws is dropped. TavIDL.h describes everything else.
class TAVIDL_EXPORT TavEmpEventProcessor : virtual public apache::thrift::TProcessor {
public:
    explicit TavEmpEventProcessor(TavIDL::shared_ptr<TavEmpEventIf> handler)
        : handler_(std::move(handler)) {
        operationMap_[TavEmpEventOperation::Callback] = &TavEmpEventProcessor::process_Callback;
    }

    virtual ~TavEmpEventProcessor() {}

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
    void process_Callback(int32_t seqid, TavIDL::TProtocol* iprot, TavIDL::TProtocol* oprot);

    TavIDL::shared_ptr<TavEmpEventIf> handler_;
    std::map<std::string,
             void (TavEmpEventProcessor::*)(int32_t, TavIDL::TProtocol*, TavIDL::TProtocol*)>
        operationMap_;
};

#endif
