#include <TavIDL/broker/TavBroker.h>
#include <TavIDL/records/envelope.h>

using namespace TavIDL::records;

void TavBrokerClient::OpenEmp(ConnectionInfo& result, const std::string& name,
                              const std::string& version, const std::string& credential) {
    send_OpenEmp(name, version, credential);
    recv_OpenEmp(result);
}

void TavBrokerClient::Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                              const std::string& param1, const std::string& param2,
                              const std::string& param3, const std::string& param4) {
    send_Execute(fromPort, cmd, param1, param2, param3, param4);
    recv_Execute(result);
}

bool TavBrokerClient::CloseEmp(const ConnectionInfo& connectionInfo) {
    send_CloseEmp(connectionInfo);
    return recv_CloseEmp();
}

bool TavBrokerProcessor::process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output) {
    return processMessage(*this, input.get(), output.get());
}

bool TavBrokerProcessor::process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output,
                                 void* /*connectionContext*/) {
    return processMessage(*this, input.get(), output.get());
}

bool TavBrokerProcessor::process_fn(TProtocol* iprot, TProtocol* oprot, std::string& name,
                                    int32_t seqid) {
    return callOperation(*this, operationMap_, iprot, oprot, name, seqid);
}
