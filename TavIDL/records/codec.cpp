#include <TavIDL/records/codec.h>

// Not hidden: thrift.h says why.
#pragma GCC visibility push(default)
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#pragma GCC visibility pop

#include <cstring>
#include <typeinfo>

namespace TavIDL::records {

using apache::thrift::protocol::T_BOOL;
using apache::thrift::protocol::T_I32;
using apache::thrift::protocol::T_STOP;
using apache::thrift::protocol::T_STRING;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TCompactProtocol;
using apache::thrift::transport::TBufferBase;
using apache::thrift::transport::TTransport;

namespace {

template <typename Protocol>
uint32_t writeValue(Protocol& oprot, const WireType& wire, const void* value) {
    switch (wire.type) {
        case T_STRING:
            return oprot.writeString(*static_cast<const std::string*>(value));
        case T_I32:
            return oprot.writeI32(*static_cast<const int32_t*>(value));
        case T_BOOL:
            return oprot.writeBool(*static_cast<const bool*>(value));
        default:
            return wire.record->write(&oprot, value);
    }
}

template <typename Protocol>
uint32_t readValue(Protocol& iprot, const WireType& wire, void* value) {
    switch (wire.type) {
        case T_STRING:
            return iprot.readString(*static_cast<std::string*>(value));
        case T_I32:
            return iprot.readI32(*static_cast<int32_t*>(value));
        case T_BOOL:
            return iprot.readBool(*static_cast<bool*>(value));
        default:
            return wire.record->read(&iprot, value);
    }
}

// The two loops. Not inlined, so that they do not compete for registers: 2 % of a call.
template <typename Protocol>
[[gnu::noinline]] uint32_t writeLoop(Protocol& oprot, const char* name, const Table& table,
                                     const char* record, Holds holds) {
    uint32_t bytes = oprot.writeStructBegin(name);
    int id = table.firstId;
    const Field* const end = table.rows + table.count;
    for (const Field* field = table.rows; field != end; ++field, ++id) {
        const void* value = record + field->value;
        if (holds == Holds::pointers) {
            std::memcpy(&value, record + field->pointer, sizeof(value));
        }
        bytes += oprot.writeFieldBegin(field->name, field->wire.type, static_cast<int16_t>(id));
        bytes += writeValue(oprot, field->wire, value);
        bytes += oprot.writeFieldEnd();
    }
    bytes += oprot.writeFieldStop();
    bytes += oprot.writeStructEnd();
    return bytes;
}

template <typename Protocol>
[[gnu::noinline]] uint32_t readLoop(Protocol& iprot, const Table& table, char* record,
                                    bool* isset) {
    std::string name;  // of the record, then of each field: ignored, since ids and types decide
    TType type = T_STOP;
    int16_t id = 0;

    uint32_t bytes = iprot.readStructBegin(name);
    for (;;) {
        bytes += iprot.readFieldBegin(name, type, id);
        if (type == T_STOP) {
            break;
        }
        const auto index = static_cast<unsigned>(id - table.firstId);  // huge if id is smaller
        if (index < table.count && table.rows[index].wire.type == type) {
            const Field& field = table.rows[index];
            bytes += readValue(iprot, field.wire, record + field.value);
            isset[index] = true;
        } else {
            // Always a virtual call: libthrift's skip is large and rarely needed.
            bytes += static_cast<TProtocol&>(iprot).skip(type);
        }
        bytes += iprot.readFieldEnd();
    }
    bytes += iprot.readStructEnd();
    return bytes;
}

// The type of the same protocol over TBufferBase, given libthrift's protocol over any transport. Up
// to 0.5 these are not templates, and both are the same type.
template <typename Protocol>
struct OverBuffer {
    using Type = Protocol;
};
template <template <typename...> class Template, typename... Others>
struct OverBuffer<Template<TTransport, Others...>> {
    using Type = Template<TBufferBase, Others...>;
};
using BufferedBinary = OverBuffer<TBinaryProtocol>::Type;
using BufferedCompact = OverBuffer<TCompactProtocol>::Type;

// Calls `carry` with the protocol as one of the four types if that is its exact type: a derived
// class may override what these do. Types are compared by the address of their type information;
// comparing names would be slower. A module that is compiled with hidden visibility, or linked with
// -Bsymbolic, may have type information of its own. Its protocols are not recognized: virtual calls
// are slower, but correct. Do not cache addresses between calls: after a module is unloaded,
// another type may have the same address.
template <typename Carry>
uint32_t byExactType(TProtocol& protocol, Carry carry) {
    const std::type_info* const type = &typeid(protocol);
    if (type == &typeid(BufferedBinary)) {
        return carry(static_cast<BufferedBinary&>(protocol));
    }
    if (type == &typeid(BufferedCompact)) {
        return carry(static_cast<BufferedCompact&>(protocol));
    }
    if (type == &typeid(TBinaryProtocol)) {
        return carry(static_cast<TBinaryProtocol&>(protocol));
    }
    if (type == &typeid(TCompactProtocol)) {
        return carry(static_cast<TCompactProtocol&>(protocol));
    }
    return carry(protocol);
}

}  // namespace

uint32_t writeFields(TProtocol* oprot, const char* name, const Table& table, const void* record,
                     Holds holds) {
    return byExactType(*oprot, [&](auto& exact) {
        return writeLoop(exact, name, table, static_cast<const char*>(record), holds);
    });
}

uint32_t readFields(TProtocol* iprot, const Table& table, void* record, void* isset) {
    return byExactType(*iprot, [&](auto& exact) {
        return readLoop(exact, table, static_cast<char*>(record), static_cast<bool*>(isset));
    });
}

}  // namespace TavIDL::records
