#ifndef TAVIDL_RECORDS_ENVELOPE_H
#define TAVIDL_RECORDS_ENVELOPE_H

#include <TavIDL/records/codec.h>

#include <exception>
#include <string>

// One call, told once for all services: a request is a header, one record and an
// end; so is its reply. What follows is the order of protocol and transport calls
// around them and the failures that each side reports. Peers depend on all of it,
// the oddities included:
//
// - Requests carry seqid 0 and nobody looks at a reply's: replies are told apart
//   by their order alone.
// - Requests are T_CALL, the one-way call's too, and a T_ONEWAY request that names
//   a two-way operation is answered.
// - The transport is flushed before its write is ended.
namespace TavIDL::wire {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::TMessageType;

// --- Both sides

void writeMessage(TProtocol* oprot, const std::string& name, TMessageType type, int32_t seqid,
                  const Record& shape, const void* record);
void finishRead(TProtocol* iprot);

// --- Calling side

template <typename Arguments>
void sendCall(TProtocol* oprot, const std::string& operation, const Arguments& arguments) {
    writeMessage(oprot, operation, apache::thrift::protocol::T_CALL, 0, table<Arguments>,
                 &arguments);
}

// Reads a reply's header. Throws the peer's exception, INVALID_MESSAGE_TYPE or
// WRONG_METHOD_NAME, each with the whole reply consumed.
void expectReply(TProtocol* iprot, const std::string& operation);

[[noreturn]] void throwMissingResult(const std::string& operation);

template <typename Reply>
void receiveReply(TProtocol* iprot, const std::string& operation, Reply& reply) {
    expectReply(iprot, operation);
    read(iprot, reply);
    finishRead(iprot);
    if (!reply.__isset.success) {
        throwMissingResult(operation);
    }
}

// --- Serving side

// Reads a request's header. Returns false for a message that is not a call: it
// has been answered, and nothing is left to do.
bool acceptCall(TProtocol* iprot, TProtocol* oprot, std::string& name, int32_t& seqid);

void rejectUnknownMethod(TProtocol* iprot, TProtocol* oprot, const std::string& name,
                         int32_t seqid);

// process() of every processor.
template <typename Processor>
bool processMessage(Processor& processor, TProtocol* iprot, TProtocol* oprot) {
    std::string name;
    int32_t seqid = 0;
    return !acceptCall(iprot, oprot, name, seqid) ||
           processor.process_fn(iprot, oprot, name, seqid);
}

// process_fn() of every processor.
template <typename Processor, typename OperationMap>
bool callOperation(Processor& processor, const OperationMap& operations, TProtocol* iprot,
                   TProtocol* oprot, const std::string& name, int32_t seqid) {
    const auto operation = operations.find(name);
    if (operation == operations.end()) {
        rejectUnknownMethod(iprot, oprot, name, seqid);
    } else {
        (processor.*operation->second)(seqid, iprot, oprot);
    }
    return true;
}

template <typename Arguments>
void readArguments(TProtocol* iprot, Arguments& arguments) {
    read(iprot, arguments);
    finishRead(iprot);
}

void answerFailure(TProtocol* oprot, const std::string& operation, int32_t seqid,
                   const std::exception& failure);

// Calls the handler and answers with what came of it. Only the call is guarded: a
// failure to write the answer is the server's to see. An exception that is no
// std::exception passes, with nothing answered.
template <typename Result, typename HandlerCall>
void answer(TProtocol* oprot, const std::string& operation, int32_t seqid, Result& result,
            HandlerCall callHandler) {
    try {
        callHandler();
    } catch (const std::exception& failure) {
        answerFailure(oprot, operation, seqid, failure);
        return;
    }
    result.__isset.success = true;
    writeMessage(oprot, operation, apache::thrift::protocol::T_REPLY, seqid, table<Result>,
                 &result);
}

}  // namespace TavIDL::wire

#endif
