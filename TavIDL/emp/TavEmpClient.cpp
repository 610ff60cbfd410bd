#include <TavIDL/emp/TavEmpClient.h>
#include <TavIDL/emp/TavEmpTables.h>
#include <TavIDL/records/envelope.h>

using namespace std::string_view_literals;
using TavIDL::wire::receiveReply;
using TavIDL::wire::sendCall;

bool TavEmpClient::Open(int32_t clientID, const std::string& name, const std::string& version,
                        const std::string& credential) {
    send_Open(clientID, name, version, credential);
    return recv_Open();
}

void TavEmpClient::send_Open(int32_t clientID, const std::string& name, const std::string& version,
                             const std::string& credential) {
    TavEmp_Open_pargs args;
    args.clientID = &clientID;
    args.name = &name;
    args.version = &version;
    args.credential = &credential;
    sendCall(oprot_, "Open"sv, args);
}

bool TavEmpClient::recv_Open() {
    bool result = false;
    TavEmp_Open_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "Open"sv, reply);
    return result;
}

int32_t TavEmpClient::Close(int32_t clientID) {
    send_Close(clientID);
    return recv_Close();
}

void TavEmpClient::send_Close(int32_t clientID) {
    TavEmp_Close_pargs args;
    args.clientID = &clientID;
    sendCall(oprot_, "Close"sv, args);
}

int32_t TavEmpClient::recv_Close() {
    int32_t result = 0;
    TavEmp_Close_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "Close"sv, reply);
    return result;
}

void TavEmpClient::Execute(std::string& result, int32_t clientID, const std::string& cmd,
                           const std::string& param1, const std::string& param2,
                           const std::string& param3, const std::string& param4) {
    send_Execute(clientID, cmd, param1, param2, param3, param4);
    recv_Execute(result);
}

void TavEmpClient::send_Execute(int32_t clientID, const std::string& cmd, const std::string& param1,
                                const std::string& param2, const std::string& param3,
                                const std::string& param4) {
    TavEmp_Execute_pargs args;
    args.clientID = &clientID;
    args.cmd = &cmd;
    args.param1 = &param1;
    args.param2 = &param2;
    args.param3 = &param3;
    args.param4 = &param4;
    sendCall(oprot_, "Execute"sv, args);
}

void TavEmpClient::recv_Execute(std::string& result) {
    TavEmp_Execute_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "Execute"sv, reply);
}

void TavEmpClient::ExecuteWithParamList(std::string& result, int32_t clientID,
                                        const std::string& cmd, const ParamList& paramList) {
    send_ExecuteWithParamList(clientID, cmd, paramList);
    recv_ExecuteWithParamList(result);
}

void TavEmpClient::send_ExecuteWithParamList(int32_t clientID, const std::string& cmd,
                                             const ParamList& paramList) {
    TavEmp_ExecuteWithParamList_pargs args;
    args.clientID = &clientID;
    args.cmd = &cmd;
    args.paramList = &paramList;
    sendCall(oprot_, "ExecuteWithParamList"sv, args);
}

void TavEmpClient::recv_ExecuteWithParamList(std::string& result) {
    TavEmp_ExecuteWithParamList_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "ExecuteWithParamList"sv, reply);
}
