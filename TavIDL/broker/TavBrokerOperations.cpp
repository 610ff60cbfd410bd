#include <TavIDL/broker/TavBroker.h>
#include <TavIDL/records/codec.h>
#include <TavIDL/records/envelope.h>

// Each operation: its records, the two halves of the client's call, and the processor's part.

using namespace TavIDL::records;
namespace Operation = TavBrokerOperation;

// --- OpenEmp

static constexpr Field kOpenEmp[] = {
    TAVIDL_ARGUMENT(TavBroker_OpenEmp, name),
    TAVIDL_ARGUMENT(TavBroker_OpenEmp, version),
    TAVIDL_ARGUMENT(TavBroker_OpenEmp, credential),
};

uint32_t TavBroker_OpenEmp_args::write(TProtocol* oprot) const {
    return writeValues<kOpenEmp>(oprot, "TavBroker_OpenEmp_args", *this);
}
uint32_t TavBroker_OpenEmp_args::read(TProtocol* iprot) {
    return readValues<kOpenEmp>(iprot, *this);
}
uint32_t TavBroker_OpenEmp_pargs::write(TProtocol* oprot) const {
    return writePointers<kOpenEmp>(oprot, "TavBroker_OpenEmp_pargs", *this);
}
uint32_t TavBroker_OpenEmp_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavBroker_OpenEmp_result", success, __isset);
}
uint32_t TavBroker_OpenEmp_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavBroker_OpenEmp_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
}

void TavBrokerClient::send_OpenEmp(const std::string& name, const std::string& version,
                                   const std::string& credential) {
    TavBroker_OpenEmp_pargs args;
    args.name = &name;
    args.version = &version;
    args.credential = &credential;
    sendCall(oprot_, Operation::OpenEmp, args);
}

void TavBrokerClient::recv_OpenEmp(ConnectionInfo& result) {
    receiveReply<TavBroker_OpenEmp_presult>(iprot_, Operation::OpenEmp, result);
}

void TavBrokerProcessor::process_OpenEmp(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    serve<TavBroker_OpenEmp_args, TavBroker_OpenEmp_result>(
        seqid, iprot, oprot, Operation::OpenEmp, [&](const auto& args, auto& result) {
            pointee(handler_).OpenEmp(result, args.name, args.version, args.credential);
        });
}

// --- Execute

static constexpr Field kExecute[] = {
    TAVIDL_ARGUMENT(TavBroker_Execute, fromPort), TAVIDL_ARGUMENT(TavBroker_Execute, cmd),
    TAVIDL_ARGUMENT(TavBroker_Execute, param1),   TAVIDL_ARGUMENT(TavBroker_Execute, param2),
    TAVIDL_ARGUMENT(TavBroker_Execute, param3),   TAVIDL_ARGUMENT(TavBroker_Execute, param4),
};

uint32_t TavBroker_Execute_args::write(TProtocol* oprot) const {
    return writeValues<kExecute>(oprot, "TavBroker_Execute_args", *this);
}
uint32_t TavBroker_Execute_args::read(TProtocol* iprot) {
    return readValues<kExecute>(iprot, *this);
}
uint32_t TavBroker_Execute_pargs::write(TProtocol* oprot) const {
    return writePointers<kExecute>(oprot, "TavBroker_Execute_pargs", *this);
}
uint32_t TavBroker_Execute_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavBroker_Execute_result", success, __isset);
}
uint32_t TavBroker_Execute_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavBroker_Execute_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
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
    sendCall(oprot_, Operation::Execute, args);
}

void TavBrokerClient::recv_Execute(std::string& result) {
    receiveReply<TavBroker_Execute_presult>(iprot_, Operation::Execute, result);
}

void TavBrokerProcessor::process_Execute(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    serve<TavBroker_Execute_args, TavBroker_Execute_result>(
        seqid, iprot, oprot, Operation::Execute, [&](const auto& args, auto& result) {
            pointee(handler_).Execute(result, args.fromPort, args.cmd, args.param1, args.param2,
                                      args.param3, args.param4);
        });
}

// --- CloseEmp

static constexpr Field kCloseEmp[] = {
    TAVIDL_ARGUMENT(TavBroker_CloseEmp, connectionInfo),
};

uint32_t TavBroker_CloseEmp_args::write(TProtocol* oprot) const {
    return writeValues<kCloseEmp>(oprot, "TavBroker_CloseEmp_args", *this);
}
uint32_t TavBroker_CloseEmp_args::read(TProtocol* iprot) {
    return readValues<kCloseEmp>(iprot, *this);
}
uint32_t TavBroker_CloseEmp_pargs::write(TProtocol* oprot) const {
    return writePointers<kCloseEmp>(oprot, "TavBroker_CloseEmp_pargs", *this);
}
uint32_t TavBroker_CloseEmp_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavBroker_CloseEmp_result", success, __isset);
}
uint32_t TavBroker_CloseEmp_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavBroker_CloseEmp_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
}

void TavBrokerClient::send_CloseEmp(const ConnectionInfo& connectionInfo) {
    TavBroker_CloseEmp_pargs args;
    args.connectionInfo = &connectionInfo;
    sendCall(oprot_, Operation::CloseEmp, args);
}

bool TavBrokerClient::recv_CloseEmp() {
    bool result = false;
    receiveReply<TavBroker_CloseEmp_presult>(iprot_, Operation::CloseEmp, result);
    return result;
}

void TavBrokerProcessor::process_CloseEmp(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    serve<TavBroker_CloseEmp_args, TavBroker_CloseEmp_result>(
        seqid, iprot, oprot, Operation::CloseEmp, [&](const auto& args, auto& result) {
            result = pointee(handler_).CloseEmp(args.connectionInfo);
        });
}
