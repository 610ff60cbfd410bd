#ifndef OLDER_LIBTHRIFT_TBINARYPROTOCOL_H
#define OLDER_LIBTHRIFT_TBINARYPROTOCOL_H

#include <thrift/protocol/TVirtualProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

struct TNetworkBigEndian {
    static uint32_t toWire32(uint32_t value) { return htonl(value); }
};

/// A type to compare with. No test creates one.
template <typename Transport_, typename ByteOrder_ = TNetworkBigEndian>
class TBinaryProtocolT : public TVirtualProtocol<TBinaryProtocolT<Transport_, ByteOrder_>> {};

using TBinaryProtocol = TBinaryProtocolT<transport::TTransport>;

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
