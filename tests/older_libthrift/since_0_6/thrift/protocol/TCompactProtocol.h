#ifndef OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H
#define OLDER_LIBTHRIFT_TCOMPACTPROTOCOL_H

#include <thrift/protocol/TVirtualProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// A type to compare with. No test creates one.
template <typename Transport_>
class TCompactProtocolT : public TVirtualProtocol<TCompactProtocolT<Transport_>> {};

using TCompactProtocol = TCompactProtocolT<transport::TTransport>;

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#include <thrift/protocol/TCompactProtocol.tcc>

#endif
