#ifndef OLDER_LIBTHRIFT_TEXCEPTION_H
#define OLDER_LIBTHRIFT_TEXCEPTION_H

#include <form.h>

#include <cstdint>
#include <exception>
#include <string>

namespace apache {
namespace thrift {

class TException : public std::exception {
public:
    TException() = default;
    explicit TException(const std::string& message) : message_(message) {}
    ~TException() noexcept override = default;
    const char* what() const noexcept override {
        return message_.empty() ? "Default TException." : message_.c_str();
    }

protected:
    std::string message_;
};

}  // namespace thrift
}  // namespace apache

#endif
