#ifndef OLDER_LIBTHRIFT_TPROTOCOLEXCEPTION_H
#define OLDER_LIBTHRIFT_TPROTOCOLEXCEPTION_H

#include <thrift/Thrift.h>

namespace apache {
namespace thrift {
namespace protocol {

class TProtocolException : public TException {
public:
    enum TProtocolExceptionType { UNKNOWN = 0, INVALID_DATA = 1 };

    TProtocolException(TProtocolExceptionType type, const std::string& message)
        : TException(message), type_(type) {}

    TProtocolExceptionType getType() const { return type_; }

private:
    TProtocolExceptionType type_;
};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
