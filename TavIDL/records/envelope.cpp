#include <TavIDL/records/envelope.h>

#include <cstdio>
#include <cstdlib>

namespace TavIDL::records {

using apache::thrift::protocol::T_EXCEPTION;
using apache::thrift::protocol::T_ONEWAY;
using apache::thrift::protocol::T_STRUCT;

namespace {

[[gnu::cold]] void discardBody(TProtocol* iprot) {
    iprot->skip(T_STRUCT);
    finishRead(iprot);
}

[[gnu::cold]] void writeException(TProtocol* oprot, std::string_view name, int32_t seqid,
                                  const TApplicationException& exception) {
    writeMessage(oprot, name, T_EXCEPTION, seqid, exception);
}

// Consumes a reply that has no result, and throws.
[[gnu::cold, noreturn]] void refuseReply(TProtocol* iprot, TMessageType type) {
    if (type == T_EXCEPTION) {
        TApplicationException exception;
        exception.read(iprot);
        finishRead(iprot);
        throw exception;
    }
    discardBody(iprot);
    throw TApplicationException(type != T_REPLY ? TApplicationException::INVALID_MESSAGE_TYPE
                                                : TApplicationException::WRONG_METHOD_NAME);
}

}  // namespace

void endProcessForNullPointer() {
    static_cast<void>(
        std::fputs("libTavIDL: the handler or the transport is a null pointer\n", stderr));
    std::abort();
}

void finishWrite(TProtocol* oprot) {
    oprot->writeMessageEnd();
    const auto pointer = oprot->getTransport();
    auto& transport = pointee(pointer);
    transport.flush();
    transport.writeEnd();
}

void finishRead(TProtocol* iprot) {
    iprot->readMessageEnd();
    const auto pointer = iprot->getTransport();
    pointee(pointer).readEnd();
}

void acceptReply(TProtocol* iprot, std::string_view operation) {
    std::string name;
    TMessageType type = T_CALL;
    int32_t seqid = 0;
    iprot->readMessageBegin(name, type, seqid);
    if (type != T_REPLY || name != operation) {
        refuseReply(iprot, type);
    }
}

void throwMissingResult(std::string_view operation) {
    throw TApplicationException(TApplicationException::MISSING_RESULT,
                                std::string(operation) + " failed: unknown result");
}

bool acceptCall(TProtocol* iprot, TProtocol* oprot, std::string& name, int32_t& seqid) {
    TMessageType type = T_CALL;
    iprot->readMessageBegin(name, type, seqid);
    if (type == T_CALL || type == T_ONEWAY) {
        return true;
    }
    discardBody(iprot);
    writeException(oprot, name, seqid,
                   TApplicationException(TApplicationException::INVALID_MESSAGE_TYPE));
    return false;
}

void rejectUnknownMethod(TProtocol* iprot, TProtocol* oprot, const std::string& name,
                         int32_t seqid) {
    discardBody(iprot);
    writeException(oprot, name, seqid,
                   TApplicationException(TApplicationException::UNKNOWN_METHOD,
                                         "Invalid method name: '" + name + "'"));
}

void answerFailure(TProtocol* oprot, std::string_view operation, int32_t seqid,
                   const std::exception& failure) {
    writeException(oprot, operation, seqid,
                   TApplicationException(TApplicationException::UNKNOWN, failure.what()));
}

}  // namespace TavIDL::records
