#ifndef OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H
#define OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H

#include <thrift/protocol/TVirtualProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// A name to compare types with. No test makes one.
template <typename Transport_>
class TCompactProtocolT : public TVirtualProtocol<TCompactProtocolT<Transport_>> {};

using TCompactProtocol = TCompactProtocolT<transport::TTransport>;

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#include <thrift/protocol/TCompactProtocol.tcc>

#endif
