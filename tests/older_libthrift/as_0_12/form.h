#ifndef OLDER_LIBTHRIFT_FORM_H
#define OLDER_LIBTHRIFT_FORM_H

#include <cstdint>
#include <memory>

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
