#ifndef OLDER_LIBTHRIFT_FORM_H
#define OLDER_LIBTHRIFT_FORM_H

#include <boost/shared_ptr.hpp>

#include <cstdint>

#define OLDER_LIBTHRIFT_GETTYPE_CONST
#define OLDER_LIBTHRIFT_SKIP virtual uint32_t skip(TType type) = 0

namespace apache {
namespace thrift {

using boost::shared_ptr;
using EndResult = uint32_t;  // of a transport's readEnd and writeEnd

}  // namespace thrift
}  // namespace apache

#endif
