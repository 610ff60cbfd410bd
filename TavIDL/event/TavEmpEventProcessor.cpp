#include <TavIDL/event/TavEmpEventProcessor.h>
#include <TavIDL/event/TavEmpEventTables.h>
#include <TavIDL/records/envelope.h>

#include <type_traits>

using apache::thrift::protocol::TProtocol;
using TavIDL::wire::callOperation;
using TavIDL::wire::pointee;
using TavIDL::wire::processMessage;
using TavIDL::wire::readArguments;

static_assert(!std::is_abstract<TavEmpEventProcessor>::value,
              "the installed libthrift declares TProcessor::process in a third form");

bool TavEmpEventProcessor::process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output) {
    return processMessage(*this, input.get(), output.get());
}

bool TavEmpEventProcessor::process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output,
                                   void* /*connectionContext*/) {
    return processMessage(*this, input.get(), output.get());
}

bool TavEmpEventProcessor::process_fn(TProtocol* iprot, TProtocol* oprot, std::string& name,
                                      int32_t seqid) {
    return callOperation(*this, operationMap_, iprot, oprot, name, seqid);
}

// One-way: whatever the handler does, nothing is written back.
void TavEmpEventProcessor::process_Callback(int32_t /*seqid*/, TProtocol* iprot,
                                            TProtocol* /*oprot*/) {
    TavEmpEvent_Callback_args args;
    readArguments(iprot, args);
    try {
        pointee(handler_).Callback(args.eventType, args.param1, args.param2);
    } catch (const std::exception&) {
    }
}
