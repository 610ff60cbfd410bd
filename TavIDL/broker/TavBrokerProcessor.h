#ifndef TAVIDL_BROKER_TAVBROKERPROCESSOR_H
#define TAVIDL_BROKER_TAVBROKERPROCESSOR_H

#include <TavIDL/broker/TavBrokerIf.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

/// Serves a broker: reads a request, calls the handler and answers. Hand it to any
/// server of libthrift.
///
/// - A handler's std::exception is answered as a TApplicationException of kind
///   UNKNOWN with its `what()` text. Anything else that a handler throws passes out
///   of process(), with nothing answered; some of libthrift's servers do not survive
///   it, so a handler should let none escape.
/// - A message that is no call is answered with INVALID_MESSAGE_TYPE, an unknown name
///   with UNKNOWN_METHOD; process() then returns true.
/// - Exceptions of the protocol and the transport pass out of process() to the server.
///
/// The processor shares ownership of its handler, which must not be null. After
/// construction it only reads its members, so connections may be served at once if
/// the handler bears it. libthrift's setEventHandler() has no effect here.
class TAVIDL_EXPORT TavBrokerProcessor : virtual public apache::thrift::TProcessor {
public:
    explicit TavBrokerProcessor(TavIDL::shared_ptr<TavBrokerIf> handler)
        : handler_(std::move(handler)) {
        operationMap_["OpenEmp"] = &TavBrokerProcessor::process_OpenEmp;
        operationMap_["Execute"] = &TavBrokerProcessor::process_Execute;
        operationMap_["CloseEmp"] = &TavBrokerProcessor::process_CloseEmp;
    }

    virtual ~TavBrokerProcessor() {}

#pragma GCC diagnostic push
// The keyword that it asks for would be an error on the other form.
#pragma GCC diagnostic ignored "-Wsuggest-override"
    /// Handles one message and returns true. `connectionContext` is not used. Of the
    /// two forms, the one that libthrift declares is its override.
    bool process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output,
                 void* connectionContext);
    bool process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output);
#pragma GCC diagnostic pop

    /// Handles what follows a header that has been read: `name` and `seqid` are the
    /// header's. Returns true.
    virtual bool process_fn(apache::thrift::protocol::TProtocol* iprot,
                            apache::thrift::protocol::TProtocol* oprot, std::string& name,
                            int32_t seqid);

protected:
    void process_OpenEmp(int32_t seqid, apache::thrift::protocol::TProtocol* iprot,
                         apache::thrift::protocol::TProtocol* oprot);
    void process_Execute(int32_t seqid, apache::thrift::protocol::TProtocol* iprot,
                         apache::thrift::protocol::TProtocol* oprot);
    void process_CloseEmp(int32_t seqid, apache::thrift::protocol::TProtocol* iprot,
                          apache::thrift::protocol::TProtocol* oprot);

    TavIDL::shared_ptr<TavBrokerIf> handler_;
    std::map<std::string,
             void (TavBrokerProcessor::*)(int32_t, apache::thrift::protocol::TProtocol*,
                                          apache::thrift::protocol::TProtocol*)>
        operationMap_;
};

#endif
