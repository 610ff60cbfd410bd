#include <TavIDL/emp/TavEmp.h>
#include <TavIDL/records/codec.h>
#include <TavIDL/records/envelope.h>

// Each operation: its records, the two halves of the client's call, and the processor's part.

using namespace TavIDL::records;
namespace Operation = TavEmpOperation;

// --- Open

static constexpr Field kOpen[] = {
    TAVIDL_ARGUMENT(TavEmp_Open, clientID),
    TAVIDL_ARGUMENT(TavEmp_Open, name),
    TAVIDL_ARGUMENT(TavEmp_Open, version),
    TAVIDL_ARGUMENT(TavEmp_Open, credential),
};

uint32_t TavEmp_Open_args::write(TProtocol* oprot) const {
    return writeValues<kOpen>(oprot, "TavEmp_Open_args", *this);
}
uint32_t TavEmp_Open_args::read(TProtocol* iprot) {
    return readValues<kOpen>(iprot, *this);
}
uint32_t TavEmp_Open_pargs::write(TProtocol* oprot) const {
    return writePointers<kOpen>(oprot, "TavEmp_Open_pargs", *this);
}
uint32_t TavEmp_Open_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavEmp_Open_result", success, __isset);
}
uint32_t TavEmp_Open_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavEmp_Open_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
}

void TavEmpClient::send_Open(int32_t clientID, const std::string& name, const std::string& version,
                             const std::string& credential) {
    TavEmp_Open_pargs args;
    args.clientID = &clientID;
    args.name = &name;
    args.version = &version;
    args.credential = &credential;
    sendCall(oprot_, Operation::Open, args);
}

bool TavEmpClient::recv_Open() {
    bool result = false;
    receiveReply<TavEmp_Open_presult>(iprot_, Operation::Open, result);
    return result;
}

void TavEmpProcessor::process_Open(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    serve<TavEmp_Open_args, TavEmp_Open_result>(
        seqid, iprot, oprot, Operation::Open, [&](const auto& args, auto& result) {
            result =
                pointee(handler_).Open(args.clientID, args.name, args.version, args.credential);
        });
}

// --- Close

static constexpr Field kClose[] = {
    TAVIDL_ARGUMENT(TavEmp_Close, clientID),
};

uint32_t TavEmp_Close_args::write(TProtocol* oprot) const {
    return writeValues<kClose>(oprot, "TavEmp_Close_args", *this);
}
uint32_t TavEmp_Close_args::read(TProtocol* iprot) {
    return readValues<kClose>(iprot, *this);
}
uint32_t TavEmp_Close_pargs::write(TProtocol* oprot) const {
    return writePointers<kClose>(oprot, "TavEmp_Close_pargs", *this);
}
uint32_t TavEmp_Close_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavEmp_Close_result", success, __isset);
}
uint32_t TavEmp_Close_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavEmp_Close_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
}

void TavEmpClient::send_Close(int32_t clientID) {
    TavEmp_Close_pargs args;
    args.clientID = &clientID;
    sendCall(oprot_, Operation::Close, args);
}

int32_t TavEmpClient::recv_Close() {
    int32_t result = 0;
    receiveReply<TavEmp_Close_presult>(iprot_, Operation::Close, result);
    return result;
}

void TavEmpProcessor::process_Close(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    serve<TavEmp_Close_args, TavEmp_Close_result>(
        seqid, iprot, oprot, Operation::Close,
        [&](const auto& args, auto& result) { result = pointee(handler_).Close(args.clientID); });
}

// --- Execute

static constexpr Field kExecute[] = {
    TAVIDL_ARGUMENT(TavEmp_Execute, clientID), TAVIDL_ARGUMENT(TavEmp_Execute, cmd),
    TAVIDL_ARGUMENT(TavEmp_Execute, param1),   TAVIDL_ARGUMENT(TavEmp_Execute, param2),
    TAVIDL_ARGUMENT(TavEmp_Execute, param3),   TAVIDL_ARGUMENT(TavEmp_Execute, param4),
};

uint32_t TavEmp_Execute_args::write(TProtocol* oprot) const {
    return writeValues<kExecute>(oprot, "TavEmp_Execute_args", *this);
}
uint32_t TavEmp_Execute_args::read(TProtocol* iprot) {
    return readValues<kExecute>(iprot, *this);
}
uint32_t TavEmp_Execute_pargs::write(TProtocol* oprot) const {
    return writePointers<kExecute>(oprot, "TavEmp_Execute_pargs", *this);
}
uint32_t TavEmp_Execute_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavEmp_Execute_result", success, __isset);
}
uint32_t TavEmp_Execute_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavEmp_Execute_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
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
    sendCall(oprot_, Operation::Execute, args);
}

void TavEmpClient::recv_Execute(std::string& result) {
    receiveReply<TavEmp_Execute_presult>(iprot_, Operation::Execute, result);
}

void TavEmpProcessor::process_Execute(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    serve<TavEmp_Execute_args, TavEmp_Execute_result>(
        seqid, iprot, oprot, Operation::Execute, [&](const auto& args, auto& result) {
            pointee(handler_).Execute(result, args.clientID, args.cmd, args.param1, args.param2,
                                      args.param3, args.param4);
        });
}

// --- ExecuteWithParamList

static constexpr Field kExecuteWithParamList[] = {
    TAVIDL_ARGUMENT(TavEmp_ExecuteWithParamList, clientID),
    TAVIDL_ARGUMENT(TavEmp_ExecuteWithParamList, cmd),
    TAVIDL_ARGUMENT(TavEmp_ExecuteWithParamList, paramList),
};

uint32_t TavEmp_ExecuteWithParamList_args::write(TProtocol* oprot) const {
    return writeValues<kExecuteWithParamList>(oprot, "TavEmp_ExecuteWithParamList_args", *this);
}
uint32_t TavEmp_ExecuteWithParamList_args::read(TProtocol* iprot) {
    return readValues<kExecuteWithParamList>(iprot, *this);
}
uint32_t TavEmp_ExecuteWithParamList_pargs::write(TProtocol* oprot) const {
    return writePointers<kExecuteWithParamList>(oprot, "TavEmp_ExecuteWithParamList_pargs", *this);
}
uint32_t TavEmp_ExecuteWithParamList_result::write(TProtocol* oprot) const {
    return writeResult(oprot, "TavEmp_ExecuteWithParamList_result", success, __isset);
}
uint32_t TavEmp_ExecuteWithParamList_result::read(TProtocol* iprot) {
    return readResult(iprot, success, __isset);
}
uint32_t TavEmp_ExecuteWithParamList_presult::read(TProtocol* iprot) {
    return readResult(iprot, *success, __isset);
}

void TavEmpClient::send_ExecuteWithParamList(int32_t clientID, const std::string& cmd,
                                             const ParamList& paramList) {
    TavEmp_ExecuteWithParamList_pargs args;
    args.clientID = &clientID;
    args.cmd = &cmd;
    args.paramList = &paramList;
    sendCall(oprot_, Operation::ExecuteWithParamList, args);
}

void TavEmpClient::recv_ExecuteWithParamList(std::string& result) {
    receiveReply<TavEmp_ExecuteWithParamList_presult>(iprot_, Operation::ExecuteWithParamList,
                                                      result);
}

void TavEmpProcessor::process_ExecuteWithParamList(int32_t seqid, TProtocol* iprot,
                                                   TProtocol* oprot) {
    serve<TavEmp_ExecuteWithParamList_args, TavEmp_ExecuteWithParamList_result>(
        seqid, iprot, oprot, Operation::ExecuteWithParamList, [&](const auto& args, auto& result) {
            pointee(handler_).ExecuteWithParamList(result, args.clientID, args.cmd, args.paramList);
        });
}
