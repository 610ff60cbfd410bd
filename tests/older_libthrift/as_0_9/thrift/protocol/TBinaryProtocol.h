#ifndef OLDER_LIBTHRIFT_TBINARYPROTOCOL_H
#define OLDER_LIBTHRIFT_TBINARYPROTOCOL_H

#include <protocol/TVirtualProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// A type to compare with. No test creates one.
template <typename Transport_>
class TBinaryProtocolT : public TVirtualProtocol<TBinaryProtocolT<Transport_>> {
    // Up to 0.9.0 none of its includes declares htonl: the program must do so.
    static uint32_t toWire(uint32_t value) { return htonl(value); }
};

using TBinaryProtocol = TBinaryProtocolT<transport::TTransport>;

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
