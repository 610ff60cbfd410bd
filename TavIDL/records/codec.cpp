#include <TavIDL/records/codec.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>

#include <array>
#include <atomic>
#include <cstring>
#include <typeinfo>

namespace TavIDL::wire {

using apache::thrift::protocol::T_BOOL;
using apache::thrift::protocol::T_I32;
using apache::thrift::protocol::T_STOP;
using apache::thrift::protocol::T_STRING;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TCompactProtocol;

namespace {

// The two loops. libthrift's functions are inlined into them, but they themselves nowhere: a
// record within a record would double them.
template <typename Protocol>
[[gnu::noinline]] uint32_t writeRecord(Protocol* oprot, const Record& shape, const void* record);
template <typename Protocol>
[[gnu::noinline]] uint32_t readRecord(Protocol* iprot, const Record& shape, void* record);

// Where a record holds the value of a field: in itself, or, if it holds pointers,
// behind the one at `slot`.
const void* valueOf(const Record& shape, const Field& field, const void* record, const char* slot) {
    if (!shape.holdsPointers) {
        return static_cast<const char*>(record) + field.offset;
    }
    const void* value = nullptr;
    std::memcpy(&value, slot, sizeof(value));
    return value;
}

// A record of pointers has them in a row behind its table of virtual functions.
const char* slotOf(const void* record, std::size_t index) {
    return static_cast<const char*>(record) + (1 + index) * sizeof(void*);
}

// The __isset group: one flag a field, in the order of the fields.
const bool* flagsOf(const Record& shape, const void* record) {
    return reinterpret_cast<const bool*>(static_cast<const char*>(record) + shape.flags);
}

template <typename Protocol>
uint32_t writeValue(Protocol* oprot, const Field& field, const void* value) {
    if (field.type == T_STRING) {  // first, for most are
        return oprot->writeString(*static_cast<const std::string*>(value));
    }
    switch (field.type) {
        case T_BOOL:
            return oprot->writeBool(*static_cast<const bool*>(value));
        case T_I32:
            return oprot->writeI32(*static_cast<const int32_t*>(value));
        default:
            return writeRecord(oprot, *field.record, value);
    }
}

template <typename Protocol>
uint32_t readValue(Protocol* iprot, const Field& field, void* value) {
    if (field.type == T_STRING) {  // first, for most are
        return iprot->readString(*static_cast<std::string*>(value));
    }
    switch (field.type) {
        case T_BOOL:
            return iprot->readBool(*static_cast<bool*>(value));
        case T_I32:
            return iprot->readI32(*static_cast<int32_t*>(value));
        default:
            return readRecord(iprot, *field.record, value);
    }
}

template <typename Protocol>
uint32_t writeRecord(Protocol* oprot, const Record& shape, const void* record) {
    uint32_t bytes = oprot->writeStructBegin(shape.name.text);
    const bool empty = shape.writesOnlyWhenSet && !*flagsOf(shape, record);
    const Field* field = shape.fields;
    const Field* const end = field + (empty ? 0 : shape.count);
    const char* slot = slotOf(record, 0);
    for (auto id = static_cast<int16_t>(shape.firstId); field != end;
         ++field, slot += sizeof(void*), ++id) {
        bytes += oprot->writeFieldBegin(field->name.text, static_cast<TType>(field->type), id);
        bytes += writeValue(oprot, *field, valueOf(shape, *field, record, slot));
        bytes += oprot->writeFieldEnd();
    }
    bytes += oprot->writeFieldStop();
    bytes += oprot->writeStructEnd();
    return bytes;
}

template <typename Protocol>
uint32_t readRecord(Protocol* iprot, const Record& shape, void* record) {
    std::string name;  // of the record, then of each field; peers are told apart by neither
    TType type = T_STOP;
    int16_t id = 0;

    uint32_t bytes = iprot->readStructBegin(name);
    for (;;) {
        bytes += iprot->readFieldBegin(name, type, id);
        if (type == T_STOP) {
            break;
        }
        const auto index = static_cast<unsigned>(id - shape.firstId);  // huge if id is less
        if (index < shape.count && shape.fields[index].type == type) {
            const Field& field = shape.fields[index];
            bytes +=
                readValue(iprot, field,
                          const_cast<void*>(valueOf(shape, field, record, slotOf(record, index))));
            const_cast<bool*>(flagsOf(shape, record))[index] = true;
        } else {
            // By a virtual call always: libthrift's skip is large, and seldom needed.
            bytes += static_cast<TProtocol*>(iprot)->skip(type);
        }
        bytes += iprot->readFieldEnd();
    }
    bytes += iprot->readStructEnd();
    return bytes;
}

enum ProtocolType { kBinary, kCompact, kOther, kProtocolTypes };

// Where the information on each kind of protocol was last seen: it tells them apart within a
// few instructions. A program's information on a type need not be this library's own, so what
// was not just seen is told apart by name. A module that was unloaded may leave an address
// behind; its place would have to be taken by another one's protocol to mislead.
std::array<std::atomic<const std::type_info*>, kProtocolTypes> seenTypes{};

[[gnu::cold]] ProtocolType recognise(const std::type_info& type) {
    const ProtocolType found = type == typeid(TBinaryProtocol)    ? kBinary
                               : type == typeid(TCompactProtocol) ? kCompact
                                                                  : kOther;
    seenTypes[found].store(&type, std::memory_order_relaxed);
    return found;
}

ProtocolType typeOf(const TProtocol& protocol) {
    const std::type_info& type = typeid(protocol);
    const auto wasSeen = [&type](ProtocolType known) {
        return seenTypes[known].load(std::memory_order_relaxed) == &type;
    };
    return wasSeen(kBinary)    ? kBinary
           : wasSeen(kCompact) ? kCompact
           : wasSeen(kOther)   ? kOther
                               : recognise(type);
}

template <typename Carry>
uint32_t byExactType(TProtocol* protocol, Carry carry) {
    switch (typeOf(*protocol)) {
        case kBinary:
            return carry(static_cast<TBinaryProtocol*>(protocol));
        case kCompact:
            return carry(static_cast<TCompactProtocol*>(protocol));
        default:
            return carry(protocol);
    }
}

}  // namespace

uint32_t write(TProtocol* oprot, const Record& shape, const void* record) {
    return byExactType(oprot, [&](auto* exact) { return writeRecord(exact, shape, record); });
}

uint32_t read(TProtocol* iprot, const Record& shape, void* record) {
    return byExactType(iprot, [&](auto* exact) { return readRecord(exact, shape, record); });
}

}  // namespace TavIDL::wire
