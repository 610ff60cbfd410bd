#ifndef OLDER_LIBTHRIFT_TBUFFERTRANSPORTS_H
#define OLDER_LIBTHRIFT_TBUFFERTRANSPORTS_H

#include <thrift/transport/TTransport.h>

namespace apache {
namespace thrift {
namespace transport {

/// A type for a protocol's static transport. No test creates one.
class TBufferBase : public TTransport {};

}  // namespace transport
}  // namespace thrift
}  // namespace apache

#endif
