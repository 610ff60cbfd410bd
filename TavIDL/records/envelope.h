#ifndef TAVIDL_RECORDS_ENVELOPE_H
#define TAVIDL_RECORDS_ENVELOPE_H

#include <TavIDL/thrift.h>

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <type_traits>

// A call, for all services: a request consists of a header, one record and an end, and so does its
// reply. This file has the order of the protocol and transport calls around them, and the failures
// that each side reports. Peers depend on all of it, including these oddities:
//
// - Requests carry seqid 0, and a reply's seqid is ignored: replies are matched by order alone.
// - Requests are T_CALL, even for the one-way operation, and a T_ONEWAY request for a two-way
//   operation is answered.
// - The transport is flushed before its write is ended.
namespace TavIDL::records {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::T_CALL;
using apache::thrift::protocol::T_REPLY;
using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TProtocol;

// --- Both sides

[[gnu::cold, noreturn]] void endProcessForNullPointer();

// The object that a transport's or handler's pointer points to. A null pointer ends the process.
template <typename Pointer>
auto& pointee(const Pointer& pointer) {
    if (pointer.get() == nullptr) {
        endProcessForNullPointer();
    }
    return *pointer;
}

void finishWrite(TProtocol* oprot);
void finishRead(TProtocol* iprot);

template <typename Record>
void writeMessage(TProtocol* oprot, std::string_view name, TMessageType type, int32_t seqid,
                  const Record& record) {
    oprot->writeMessageBegin(std::string(name), type, seqid);
    record.write(oprot);
    finishWrite(oprot);
}

template <typename Record>
void readBody(TProtocol* iprot, Record& record) {
    record.read(iprot);
    finishRead(iprot);
}

// --- Calling side

template <typename Pargs>
void sendCall(TProtocol* oprot, std::string_view operation, const Pargs& arguments) {
    writeMessage(oprot, operation, T_CALL, 0, arguments);
}

// Reads a reply's header. If the reply has no result, consumes the whole reply and throws the
// peer's exception, INVALID_MESSAGE_TYPE or WRONG_METHOD_NAME.
void acceptReply(TProtocol* iprot, std::string_view operation);

[[gnu::cold, noreturn]] void throwMissingResult(std::string_view operation);

template <typename Presult, typename Value>
void receiveReply(TProtocol* iprot, std::string_view operation, Value& result) {
    acceptReply(iprot, operation);
    Presult reply;
    reply.success = &result;
    readBody(iprot, reply);
    if (!reply.__isset.success) {
        throwMissingResult(operation);
    }
}

// --- Serving side

// Reads a request's header. Returns false for a message that is not a call, after answering it.
bool acceptCall(TProtocol* iprot, TProtocol* oprot, std::string& name, int32_t& seqid);

[[gnu::cold, gnu::noinline]] void rejectUnknownMethod(TProtocol* iprot, TProtocol* oprot,
                                                      const std::string& name, int32_t seqid);

// process() of every processor.
template <typename Processor>
bool processMessage(Processor& processor, TProtocol* iprot, TProtocol* oprot) {
    static_assert(!std::is_abstract<Processor>::value,
                  "the installed libthrift declares TProcessor::process in a third form");
    std::string name;
    int32_t seqid = 0;
    return !acceptCall(iprot, oprot, name, seqid) ||
           processor.process_fn(iprot, oprot, name, seqid);
}

// process_fn() of every processor. Flattened, because the map's lookup is slow when built for size:
// 1 % of a call. Code that a call rarely needs is cold and not inlined: 5 % of the text.
template <typename Processor, typename OperationMap>
[[gnu::flatten]] bool callOperation(Processor& processor, const OperationMap& operations,
                                    TProtocol* iprot, TProtocol* oprot, const std::string& name,
                                    int32_t seqid) {
    const auto operation = operations.find(name);
    if (operation == operations.end()) {
        rejectUnknownMethod(iprot, oprot, name, seqid);
    } else {
        (processor.*operation->second)(seqid, iprot, oprot);
    }
    return true;
}

[[gnu::cold]] void answerFailure(TProtocol* oprot, std::string_view operation, int32_t seqid,
                                 const std::exception& failure);

// Reads the arguments, calls the handler with `callHandler`, and answers. Exceptions are caught
// only from the handler: the server must see a failure to write the answer. An exception that is
// not a std::exception passes through, with nothing answered. Inlined, so that the compiler knows
// the operation's name: 1 % of a call.
template <typename Args, typename Result, typename HandlerCall>
[[gnu::always_inline]] inline void serve(int32_t seqid, TProtocol* iprot, TProtocol* oprot,
                                         std::string_view operation, HandlerCall callHandler) {
    Args arguments;
    readBody(iprot, arguments);

    Result result;
    try {
        callHandler(arguments, result.success);
    } catch (const std::exception& failure) {
        answerFailure(oprot, operation, seqid, failure);
        return;
    }
    result.__isset.success = true;
    writeMessage(oprot, operation, T_REPLY, seqid, result);
}

// One-way: nothing is written back, even if the handler throws.
template <typename Args, typename HandlerCall>
void serveOneWay(TProtocol* iprot, HandlerCall callHandler) {
    Args arguments;
    readBody(iprot, arguments);
    try {
        callHandler(arguments);
    } catch (const std::exception&) {
    }
}

}  // namespace TavIDL::records

#endif
