#include <TavIDL/broker/TavBrokerProcessor.h>
#include <TavIDL/broker/TavBrokerTables.h>
#include <TavIDL/records/envelope.h>

#include <type_traits>

using namespace std::string_view_literals;
using apache::thrift::protocol::TProtocol;
using TavIDL::wire::answer;
using TavIDL::wire::callOperation;
using TavIDL::wire::pointee;
using TavIDL::wire::processMessage;
using TavIDL::wire::readArguments;

static_assert(!std::is_abstract<TavBrokerProcessor>::value,
              "the installed libthrift declares TProcessor::process in a third form");

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

void TavBrokerProcessor::process_OpenEmp(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    TavBroker_OpenEmp_args args;
    readArguments(iprot, args);

    TavBroker_OpenEmp_result result;
    answer(oprot, "OpenEmp"sv, seqid, result, [&] {
        pointee(handler_).OpenEmp(result.success, args.name, args.version, args.credential);
    });
}

void TavBrokerProcessor::process_Execute(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    TavBroker_Execute_args args;
    readArguments(iprot, args);

    TavBroker_Execute_result result;
    answer(oprot, "Execute"sv, seqid, result, [&] {
        pointee(handler_).Execute(result.success, args.fromPort, args.cmd, args.param1, args.param2,
                                  args.param3, args.param4);
    });
}

void TavBrokerProcessor::process_CloseEmp(int32_t seqid, TProtocol* iprot, TProtocol* oprot) {
    TavBroker_CloseEmp_args args;
    readArguments(iprot, args);

    TavBroker_CloseEmp_result result;
    answer(oprot, "CloseEmp"sv, seqid, result,
           [&] { result.success = pointee(handler_).CloseEmp(args.connectionInfo); });
}
