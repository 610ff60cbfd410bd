#ifndef OLDER_LIBTHRIFT_TAPPLICATIONEXCEPTION_H
#define OLDER_LIBTHRIFT_TAPPLICATIONEXCEPTION_H

#include <parts/TException.h>

namespace apache {
namespace thrift {

namespace protocol {
class TProtocol;
}

class TApplicationException : public TException {
public:
    enum TApplicationExceptionType {
        UNKNOWN = 0,
        UNKNOWN_METHOD = 1,
        INVALID_MESSAGE_TYPE = 2,
        WRONG_METHOD_NAME = 3,
        BAD_SEQUENCE_ID = 4,
        MISSING_RESULT = 5
    };

    TApplicationException() = default;
    explicit TApplicationException(TApplicationExceptionType type) : type_(type) {}
    explicit TApplicationException(const std::string& message) : TException(message) {}
    TApplicationException(TApplicationExceptionType type, const std::string& message)
        : TException(message), type_(type) {}
    ~TApplicationException() noexcept override = default;

    TApplicationExceptionType getType() OLDER_LIBTHRIFT_GETTYPE_CONST { return type_; }
    const char* what() const noexcept override;

    uint32_t read(protocol::TProtocol* iprot);
    uint32_t write(protocol::TProtocol* oprot) const;

protected:
    TApplicationExceptionType type_ = UNKNOWN;
};

}  // namespace thrift
}  // namespace apache

#endif
