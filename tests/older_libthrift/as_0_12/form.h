#ifndef OLDER_LIBTHRIFT_FORM_H
#define OLDER_LIBTHRIFT_FORM_H

// Newer headers include what they need.
#include <netinet/in.h>
#include <thrift/config.h>

#include <cstdint>
#include <memory>

#define OLDER_LIBTHRIFT_GETTYPE_CONST const
#define OLDER_LIBTHRIFT_SKIP virtual uint32_t skip(TType type) = 0

namespace apache {
namespace thrift {

namespace stdcxx {
using std::shared_ptr;
}
using stdcxx::shared_ptr;
using EndResult = uint32_t;  // of a transport's readEnd and writeEnd

}  // namespace thrift
}  // namespace apache

#endif
