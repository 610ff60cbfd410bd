#ifndef OLDER_LIBTHRIFT_TVIRTUALPROTOCOL_H
#define OLDER_LIBTHRIFT_TVIRTUALPROTOCOL_H

#include <thrift/protocol/TProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// Nothing to pass on where TProtocol's calls are virtual themselves. It is here so
/// that the tests' protocols are the same for all releases.
template <typename Protocol>
class TVirtualProtocol : public TProtocol {
protected:
    using TProtocol::TProtocol;
};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
