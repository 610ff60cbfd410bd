#include <TavIDL/records/protocols.h>

namespace TavIDL::wire {

[[gnu::cold]] ProtocolType recognise(const std::type_info& type) {
    const ProtocolType found = type == typeid(TBinaryProtocol)    ? ProtocolType::binary
                               : type == typeid(TCompactProtocol) ? ProtocolType::compact
                                                                  : ProtocolType::other;
    seenTypes[static_cast<std::size_t>(found)].store(&type, std::memory_order_relaxed);
    return found;
}

}  // namespace TavIDL::wire
