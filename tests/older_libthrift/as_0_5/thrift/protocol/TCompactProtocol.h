#ifndef OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H
#define OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H

#include <protocol/TProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// A name to compare types with. No test makes one.
class TCompactProtocol : public TProtocol {};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
