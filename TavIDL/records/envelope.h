#ifndef TAVIDL_RECORDS_ENVELOPE_H
#define TAVIDL_RECORDS_ENVELOPE_H

#include <TavIDL/records/codec.h>

#include <atomic>
#include <cassert>
#include <exception>
#include <string>
#include <string_view>

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

// What a handler's or a transport's pointer points at. An empty one is a programming error,
// which ends the process in release builds too; not all shared pointers see to that.
template <typename Pointer>
auto& pointee(const Pointer& pointer) {
    assert(pointer.get() != nullptr);
    return *pointer;
}

// An operation's name as protocols take it. Made at the first call and kept as long as the
// process lives: the longest would otherwise be allocated in each call. Two threads may both
// make it; the first to put it in `place` wins.
const std::string& keep(std::string_view name, std::atomic<const std::string*>& place);

template <typename CallRecord>
const std::string& kept(std::string_view name) {
    static std::atomic<const std::string*> place{nullptr};
    const std::string* made = place.load(std::memory_order_acquire);
    return made != nullptr ? *made : keep(name, place);
}

void writeMessage(TProtocol* oprot, const std::string& name, TMessageType type, int32_t seqid,
                  const Record& shape, const void* record);

// Reads a message's record and ends the message.
void readBody(TProtocol* iprot, const Record& shape, void* record);

// --- Calling side

template <typename Arguments>
void sendCall(TProtocol* oprot, std::string_view operation, const Arguments& arguments) {
    writeMessage(oprot, kept<Arguments>(operation), apache::thrift::protocol::T_CALL, 0,
                 table<Arguments>, &arguments);
}

// Reads a whole reply. Throws the peer's exception, INVALID_MESSAGE_TYPE or
// WRONG_METHOD_NAME, each with the whole reply consumed.
void readReply(TProtocol* iprot, std::string_view operation, const Record& shape, void* reply);

[[noreturn]] void throwMissingResult(std::string_view operation);

template <typename Reply>
void receiveReply(TProtocol* iprot, std::string_view operation, Reply& reply) {
    readReply(iprot, operation, table<Reply>, &reply);
    if (!reply.__isset.success) {
        throwMissingResult(operation);
    }
}

// --- Serving side

// Reads a request's header. Returns false for a message that is not a call: it
// has been answered, and nothing is left to do.
bool acceptCall(TProtocol* iprot, TProtocol* oprot, std::string& name, int32_t& seqid);

[[gnu::noinline]] void rejectUnknownMethod(TProtocol* iprot, TProtocol* oprot,
                                           const std::string& name, int32_t seqid);

// process() of every processor.
template <typename Processor>
bool processMessage(Processor& processor, TProtocol* iprot, TProtocol* oprot) {
    std::string name;
    int32_t seqid = 0;
    return !acceptCall(iprot, oprot, name, seqid) ||
           processor.process_fn(iprot, oprot, name, seqid);
}

// process_fn() of every processor. Flattened, for the lookup is dear where the compiler builds
// for size.
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

template <typename Arguments>
void readArguments(TProtocol* iprot, Arguments& arguments) {
    readBody(iprot, table<Arguments>, &arguments);
}

void answerFailure(TProtocol* oprot, std::string_view operation, int32_t seqid,
                   const std::exception& failure);

// Calls the handler and answers with what came of it. Only the call is guarded: a
// failure to write the answer is the server's to see. An exception that is no
// std::exception passes, with nothing answered.
template <typename Result, typename HandlerCall>
void answer(TProtocol* oprot, std::string_view operation, int32_t seqid, Result& result,
            HandlerCall callHandler) {
    try {
        callHandler();
    } catch (const std::exception& failure) {
        answerFailure(oprot, operation, seqid, failure);
        return;
    }
    result.__isset.success = true;
    writeMessage(oprot, kept<Result>(operation), apache::thrift::protocol::T_REPLY, seqid,
                 table<Result>, &result);
}

}  // namespace TavIDL::wire

#endif
