#include <parts/TApplicationException.h>
#include <thrift/protocol/TProtocol.h>

namespace apache {
namespace thrift {

using protocol::T_I32;
using protocol::T_STOP;
using protocol::T_STRING;
using protocol::TType;

const char* TApplicationException::what() const noexcept {
    if (!message_.empty()) {
        return message_.c_str();
    }
    switch (type_) {
        case UNKNOWN_METHOD:
            return "TApplicationException: Unknown method";
        case INVALID_MESSAGE_TYPE:
            return "TApplicationException: Invalid message type";
        case WRONG_METHOD_NAME:
            return "TApplicationException: Wrong method name";
        case MISSING_RESULT:
            return "TApplicationException: Missing result";
        default:
            return "TApplicationException: Unknown application exception";
    }
}

uint32_t TApplicationException::read(protocol::TProtocol* iprot) {
    std::string name;
    TType type = T_STOP;
    int16_t id = 0;
    uint32_t bytes = iprot->readStructBegin(name);
    for (bytes += iprot->readFieldBegin(name, type, id); type != T_STOP;
         bytes += iprot->readFieldBegin(name, type, id)) {
        if (id == 1 && type == T_STRING) {
            bytes += iprot->readString(message_);
        } else if (id == 2 && type == T_I32) {
            int32_t kind = 0;
            bytes += iprot->readI32(kind);
            type_ = static_cast<TApplicationExceptionType>(kind);
        } else {
            bytes += iprot->skip(type);
        }
        bytes += iprot->readFieldEnd();
    }
    return bytes + iprot->readStructEnd();
}

uint32_t TApplicationException::write(protocol::TProtocol* oprot) const {
    uint32_t bytes = oprot->writeStructBegin("TApplicationException");
    bytes += oprot->writeFieldBegin("message", T_STRING, 1);
    bytes += oprot->writeString(message_);
    bytes += oprot->writeFieldEnd();
    bytes += oprot->writeFieldBegin("type", T_I32, 2);
    bytes += oprot->writeI32(type_);
    bytes += oprot->writeFieldEnd();
    bytes += oprot->writeFieldStop();
    return bytes + oprot->writeStructEnd();
}

}  // namespace thrift
}  // namespace apache
