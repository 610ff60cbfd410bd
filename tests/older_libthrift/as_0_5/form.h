#ifndef OLDER_LIBTHRIFT_FORM_H
#define OLDER_LIBTHRIFT_FORM_H

#include <boost/shared_ptr.hpp>

#define OLDER_LIBTHRIFT_GETTYPE_CONST
// In real releases it reads the value with several calls. The tests define it as one call
// (skip.cpp), so that logs are the same for all releases.
#define OLDER_LIBTHRIFT_SKIP uint32_t skip(TType type)

namespace apache {
namespace thrift {

using boost::shared_ptr;
using EndResult = void;  // of a transport's readEnd and writeEnd

}  // namespace thrift
}  // namespace apache

#endif
