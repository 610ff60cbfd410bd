#include <TavIDL/emp/TavEmp.h>
#include <TavIDL/records/envelope.h>

using namespace TavIDL::records;

bool TavEmpClient::Open(int32_t clientID, const std::string& name, const std::string& version,
                        const std::string& credential) {
    send_Open(clientID, name, version, credential);
    return recv_Open();
}

int32_t TavEmpClient::Close(int32_t clientID) {
    send_Close(clientID);
    return recv_Close();
}

void TavEmpClient::Execute(std::string& result, int32_t clientID, const std::string& cmd,
                           const std::string& param1, const std::string& param2,
                           const std::string& param3, const std::string& param4) {
    send_Execute(clientID, cmd, param1, param2, param3, param4);
    recv_Execute(result);
}

void TavEmpClient::ExecuteWithParamList(std::string& result, int32_t clientID,
                                        const std::string& cmd, const ParamList& paramList) {
    send_ExecuteWithParamList(clientID, cmd, paramList);
    recv_ExecuteWithParamList(result);
}

bool TavEmpProcessor::process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output) {
    return processMessage(*this, input.get(), output.get());
}

bool TavEmpProcessor::process(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output,
                              void* /*connectionContext*/) {
    return processMessage(*this, input.get(), output.get());
}

bool TavEmpProcessor::process_fn(TProtocol* iprot, TProtocol* oprot, std::string& name,
                                 int32_t seqid) {
    return callOperation(*this, operationMap_, iprot, oprot, name, seqid);
}
