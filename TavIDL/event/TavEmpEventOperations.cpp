#include <TavIDL/event/TavEmpEvent.h>
#include <TavIDL/records/codec.h>
#include <TavIDL/records/envelope.h>

// The operation: its records, the client's call, and the processor's part.

using namespace TavIDL::records;
namespace Operation = TavEmpEventOperation;

// --- Callback

static constexpr Field kCallback[] = {
    TAVIDL_ARGUMENT(TavEmpEvent_Callback, eventType),
    TAVIDL_ARGUMENT(TavEmpEvent_Callback, param1),
    TAVIDL_ARGUMENT(TavEmpEvent_Callback, param2),
};

uint32_t TavEmpEvent_Callback_args::write(TProtocol* oprot) const {
    return writeValues<kCallback>(oprot, "TavEmpEvent_Callback_args", *this);
}
uint32_t TavEmpEvent_Callback_args::read(TProtocol* iprot) {
    return readValues<kCallback>(iprot, *this);
}
uint32_t TavEmpEvent_Callback_pargs::write(TProtocol* oprot) const {
    return writePointers<kCallback>(oprot, "TavEmpEvent_Callback_pargs", *this);
}

void TavEmpEventClient::send_Callback(int32_t eventType, const std::string& param1,
                                      const std::string& param2) {
    TavEmpEvent_Callback_pargs args;
    args.eventType = &eventType;
    args.param1 = &param1;
    args.param2 = &param2;
    sendCall(oprot_, Operation::Callback, args);
}

void TavEmpEventProcessor::process_Callback(int32_t /*seqid*/, TProtocol* iprot,
                                            TProtocol* /*oprot*/) {
    serveOneWay<TavEmpEvent_Callback_args>(iprot, [&](const auto& args) {
        pointee(handler_).Callback(args.eventType, args.param1, args.param2);
    });
}
