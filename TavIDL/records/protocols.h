#ifndef TAVIDL_RECORDS_PROTOCOLS_H
#define TAVIDL_RECORDS_PROTOCOLS_H

#include <TavIDL/thrift.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <typeinfo>

// The one place that decides how a protocol is called. What carries a message or a record is
// a template over the protocol's static type and stands in the library three times: for
// TProtocol, whose every call is virtual, and for libthrift's binary and compact protocol,
// whose own functions are then called directly. A protocol is taken for one of these two only
// if that is its exact type: what derives from them or wraps them has its overrides called.
// Both ways make the same calls in the same order.
namespace TavIDL::wire {

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TCompactProtocol;
using apache::thrift::protocol::TProtocol;

enum class ProtocolType { other, binary, compact };

// Where the information on each kind of protocol was last seen. A program's information on a
// type need not be this library's own, so types are told apart by name; but only once.
inline std::array<std::atomic<const std::type_info*>, 3> seenTypes{};

ProtocolType recognise(const std::type_info& type);

inline ProtocolType protocolType(const std::type_info& type) {
    for (const auto known : {ProtocolType::binary, ProtocolType::compact, ProtocolType::other}) {
        if (seenTypes[static_cast<std::size_t>(known)].load(std::memory_order_relaxed) == &type) {
            return known;
        }
    }
    return recognise(type);
}

template <typename Carry>
auto withExactType(TProtocol* protocol, Carry carry) {
    const TProtocol& object = *protocol;
    switch (protocolType(typeid(object))) {
        case ProtocolType::binary:
            return carry(static_cast<TBinaryProtocol*>(protocol));
        case ProtocolType::compact:
            return carry(static_cast<TCompactProtocol*>(protocol));
        default:
            return carry(protocol);
    }
}

}  // namespace TavIDL::wire

#endif
