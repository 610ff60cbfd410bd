#ifndef OLDER_LIBTHRIFT_TBINARYPROTOCOL_H
#define OLDER_LIBTHRIFT_TBINARYPROTOCOL_H

#include <protocol/TProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// A type to compare with. No test creates one.
class TBinaryProtocol : public TProtocol {};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
