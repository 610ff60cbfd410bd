#include <TavIDL/broker/TavBrokerClient.h>
#include <TavIDL/broker/TavBrokerTables.h>
#include <TavIDL/records/envelope.h>

using namespace std::string_view_literals;
using TavIDL::wire::receiveReply;
using TavIDL::wire::sendCall;

void TavBrokerClient::OpenEmp(ConnectionInfo& result, const std::string& name,
                              const std::string& version, const std::string& credential) {
    send_OpenEmp(name, version, credential);
    recv_OpenEmp(result);
}

void TavBrokerClient::send_OpenEmp(const std::string& name, const std::string& version,
                                   const std::string& credential) {
    TavBroker_OpenEmp_pargs args;
    args.name = &name;
    args.version = &version;
    args.credential = &credential;
    sendCall(oprot_, "OpenEmp"sv, args);
}

void TavBrokerClient::recv_OpenEmp(ConnectionInfo& result) {
    TavBroker_OpenEmp_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "OpenEmp"sv, reply);
}

void TavBrokerClient::Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                              const std::string& param1, const std::string& param2,
                              const std::string& param3, const std::string& param4) {
    send_Execute(fromPort, cmd, param1, param2, param3, param4);
    recv_Execute(result);
}

void TavBrokerClient::send_Execute(int32_t fromPort, const std::string& cmd,
                                   const std::string& param1, const std::string& param2,
                                   const std::string& param3, const std::string& param4) {
    TavBroker_Execute_pargs args;
    args.fromPort = &fromPort;
    args.cmd = &cmd;
    args.param1 = &param1;
    args.param2 = &param2;
    args.param3 = &param3;
    args.param4 = &param4;
    sendCall(oprot_, "Execute"sv, args);
}

void TavBrokerClient::recv_Execute(std::string& result) {
    TavBroker_Execute_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "Execute"sv, reply);
}

bool TavBrokerClient::CloseEmp(const ConnectionInfo& connectionInfo) {
    send_CloseEmp(connectionInfo);
    return recv_CloseEmp();
}

void TavBrokerClient::send_CloseEmp(const ConnectionInfo& connectionInfo) {
    TavBroker_CloseEmp_pargs args;
    args.connectionInfo = &connectionInfo;
    sendCall(oprot_, "CloseEmp"sv, args);
}

bool TavBrokerClient::recv_CloseEmp() {
    bool result = false;
    TavBroker_CloseEmp_presult reply;
    reply.success = &result;
    receiveReply(iprot_, "CloseEmp"sv, reply);
    return result;
}
