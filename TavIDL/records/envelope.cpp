#include <TavIDL/records/envelope.h>

namespace TavIDL::wire {

using apache::thrift::protocol::T_CALL;
using apache::thrift::protocol::T_EXCEPTION;
using apache::thrift::protocol::T_ONEWAY;
using apache::thrift::protocol::T_REPLY;
using apache::thrift::protocol::T_STRUCT;

namespace {

// A transport is reached through `*pointer`, never `pointer->`: that is where the
// smart pointer's own assertion ends the process if a protocol has no transport.

void finishWrite(TProtocol* oprot) {
    oprot->writeMessageEnd();
    const auto pointer = oprot->getTransport();
    auto& transport = *pointer;
    transport.flush();
    transport.writeEnd();
}

void discardBody(TProtocol* iprot) {
    iprot->skip(T_STRUCT);
    finishRead(iprot);
}

void writeException(TProtocol* oprot, const std::string& name, int32_t seqid,
                    const TApplicationException& exception) {
    oprot->writeMessageBegin(name, T_EXCEPTION, seqid);
    exception.write(oprot);
    finishWrite(oprot);
}

}  // namespace

void writeMessage(TProtocol* oprot, const std::string& name, TMessageType type, int32_t seqid,
                  const Record& shape, const void* record) {
    oprot->writeMessageBegin(name, type, seqid);
    writeRecord(oprot, shape, record);
    finishWrite(oprot);
}

void finishRead(TProtocol* iprot) {
    iprot->readMessageEnd();
    const auto pointer = iprot->getTransport();
    (*pointer).readEnd();
}

void expectReply(TProtocol* iprot, const std::string& operation) {
    std::string name;
    TMessageType type = T_CALL;
    int32_t seqid = 0;
    iprot->readMessageBegin(name, type, seqid);
    if (type == T_EXCEPTION) {
        TApplicationException exception;
        exception.read(iprot);
        finishRead(iprot);
        throw exception;
    }
    if (type != T_REPLY) {
        discardBody(iprot);
        throw TApplicationException(TApplicationException::INVALID_MESSAGE_TYPE);
    }
    if (name != operation) {
        discardBody(iprot);
        throw TApplicationException(TApplicationException::WRONG_METHOD_NAME);
    }
}

void throwMissingResult(const std::string& operation) {
    throw TApplicationException(TApplicationException::MISSING_RESULT,
                                operation + " failed: unknown result");
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

void answerFailure(TProtocol* oprot, const std::string& operation, int32_t seqid,
                   const std::exception& failure) {
    writeException(oprot, operation, seqid,
                   TApplicationException(TApplicationException::UNKNOWN, failure.what()));
}

}  // namespace TavIDL::wire
