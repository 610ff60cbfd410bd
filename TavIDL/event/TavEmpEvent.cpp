#include <TavIDL/event/TavEmpEvent.h>
#include <TavIDL/records/envelope.h>

using namespace TavIDL::records;

void TavEmpEventClient::Callback(int32_t eventType, const std::string& param1,
                                 const std::string& param2) {
    send_Callback(eventType, param1, param2);
}

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
