#include <TavIDL/records/envelope.h>

#include <memory>

namespace TavIDL::wire {

using apache::thrift::protocol::T_CALL;
using apache::thrift::protocol::T_EXCEPTION;
using apache::thrift::protocol::T_ONEWAY;
using apache::thrift::protocol::T_REPLY;
using apache::thrift::protocol::T_STRUCT;

namespace {

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

[[gnu::cold]] void discardBody(TProtocol* iprot) {
    iprot->skip(T_STRUCT);
    finishRead(iprot);
}

[[gnu::cold]] void writeException(TProtocol* oprot, const std::string& name, int32_t seqid,
                                  const TApplicationException& exception) {
    oprot->writeMessageBegin(name, T_EXCEPTION, seqid);
    exception.write(oprot);
    finishWrite(oprot);
}

// Consumes a reply that holds no result, and throws.
[[gnu::cold]] [[noreturn]] void refuseReply(TProtocol* iprot, TMessageType type) {
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

[[gnu::cold]] const std::string& keep(std::string_view name,
                                      std::atomic<const std::string*>& place) {
    auto made = std::make_unique<const std::string>(name);
    const std::string* first = nullptr;
    return place.compare_exchange_strong(first, made.get()) ? *made.release() : *first;
}

void writeMessage(TProtocol* oprot, const std::string& name, TMessageType type, int32_t seqid,
                  const Record& shape, const void* record) {
    oprot->writeMessageBegin(name, type, seqid);
    write(oprot, shape, record);
    finishWrite(oprot);
}

void readBody(TProtocol* iprot, const Record& shape, void* record) {
    read(iprot, shape, record);
    finishRead(iprot);
}

void readReply(TProtocol* iprot, std::string_view operation, const Record& shape, void* reply) {
    std::string name;
    TMessageType type = T_CALL;
    int32_t seqid = 0;
    iprot->readMessageBegin(name, type, seqid);
    if (type != T_REPLY || name != operation) {
        refuseReply(iprot, type);
    }
    readBody(iprot, shape, reply);
}

[[gnu::cold]] void throwMissingResult(std::string_view operation) {
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

[[gnu::cold]] void rejectUnknownMethod(TProtocol* iprot, TProtocol* oprot, const std::string& name,
                                       int32_t seqid) {
    discardBody(iprot);
    writeException(oprot, name, seqid,
                   TApplicationException(TApplicationException::UNKNOWN_METHOD,
                                         "Invalid method name: '" + name + "'"));
}

[[gnu::cold]] void answerFailure(TProtocol* oprot, std::string_view operation, int32_t seqid,
                                 const std::exception& failure) {
    writeException(oprot, std::string(operation), seqid,
                   TApplicationException(TApplicationException::UNKNOWN, failure.what()));
}

}  // namespace TavIDL::wire
