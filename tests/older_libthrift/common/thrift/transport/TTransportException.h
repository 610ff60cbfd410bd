#ifndef OLDER_LIBTHRIFT_TTRANSPORTEXCEPTION_H
#define OLDER_LIBTHRIFT_TTRANSPORTEXCEPTION_H

#include <thrift/Thrift.h>

namespace apache {
namespace thrift {
namespace transport {

class TTransportException : public TException {
public:
    enum TTransportExceptionType { UNKNOWN = 0, NOT_OPEN = 1, END_OF_FILE = 4 };

    TTransportException(TTransportExceptionType type, const std::string& message)
        : TException(message), type_(type) {}

    TTransportExceptionType getType() const { return type_; }

private:
    TTransportExceptionType type_;
};

}  // namespace transport
}  // namespace thrift
}  // namespace apache

#endif
