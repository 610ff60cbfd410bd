#ifndef OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H
#define OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H

#include <protocol/TProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// A type to compare with. No test creates one.
class TCompactProtocol : public TProtocol {};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
