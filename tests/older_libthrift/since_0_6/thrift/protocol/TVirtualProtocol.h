#ifndef OLDER_LIBTHRIFT_TVIRTUALPROTOCOL_H
#define OLDER_LIBTHRIFT_TVIRTUALPROTOCOL_H

#include <thrift/protocol/TProtocol.h>

namespace apache {
namespace thrift {
namespace protocol {

/// Forwards nothing: here TProtocol's calls are virtual.
template <typename Protocol>
class TVirtualProtocol : public TProtocol {
protected:
    using TProtocol::TProtocol;
};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
