#include <TavIDL/emp/TavEmpProcessor.h>
#include <TavIDL/emp/TavEmpTables.h>
#include <TavIDL/records/envelope.h>

#include <type_traits>

using namespace std::string_view_literals;
using apache::thrift::protocol::TProtocol;
using TavIDL::wire::answer;
using TavIDL::wire::callOperation;
using TavIDL::wire::pointee;
using TavIDL::wire::processMessage;
using TavIDL::wire::readArguments;

static_assert(!std::is_abstract<TavEmpProcessor>::value,
              "the installed libthrift declares TProcessor::process in a third form");

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

void TavEmpProcessor::process_Open(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    TavEmp_Open_args args;
    readArguments(iprot, args);

    TavEmp_Open_result result;
    answer(oprot, "Open"sv, seqid, result, [&] {
        result.success =
            pointee(handler_).Open(args.clientID, args.name, args.version, args.credential);
    });
}

void TavEmpProcessor::process_Close(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    TavEmp_Close_args args;
    readArguments(iprot, args);

    TavEmp_Close_result result;
    answer(oprot, "Close"sv, seqid, result,
           [&] { result.success = pointee(handler_).Close(args.clientID); });
}

void TavEmpProcessor::process_Execute(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    TavEmp_Execute_args args;
    readArguments(iprot, args);

    TavEmp_Execute_result result;
    answer(oprot, "Execute"sv, seqid, result, [&] {
        pointee(handler_).Execute(result.success, args.clientID, args.cmd, args.param1, args.param2,
                                  args.param3, args.param4);
    });
}

void TavEmpProcessor::process_ExecuteWithParamList(int32_t seqid, TProtocol* iprot,
                                                   TProtocol* oprot) {
    TavEmp_ExecuteWithParamList_args args;
    readArguments(iprot, args);

    TavEmp_ExecuteWithParamList_result result;
    answer(oprot, "ExecuteWithParamList"sv, seqid, result, [&] {
        pointee(handler_).ExecuteWithParamList(result.success, args.clientID, args.cmd,
                                               args.paramList);
    });
}
