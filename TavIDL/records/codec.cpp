#include <TavIDL/records/codec.h>

#include <cstring>

namespace TavIDL::wire {

using apache::thrift::protocol::T_BOOL;
using apache::thrift::protocol::T_I32;
using apache::thrift::protocol::T_STOP;
using apache::thrift::protocol::T_STRING;

namespace {

// Where the value of a record's field lies. A record of pointers has them in a
// row behind its table of virtual functions, each to a value of the field's type.
const void* valueOf(const Record& shape, std::size_t index, const void* record) {
    const char* start = static_cast<const char*>(record);
    if (!shape.holdsPointers) {
        return start + shape.fields[index].offset;
    }
    const void* value;
    std::memcpy(&value, start + (1 + index) * sizeof(value), sizeof(value));
    return value;
}

void* valueOf(const Record& shape, std::size_t index, void* record) {
    return const_cast<void*>(valueOf(shape, index, static_cast<const void*>(record)));
}

template <typename Protocol>
uint32_t writeValue(Protocol* oprot, const Field& field, const void* value) {
    switch (field.type) {
        case T_BOOL:
            return oprot->writeBool(*static_cast<const bool*>(value));
        case T_I32:
            return oprot->writeI32(*static_cast<const int32_t*>(value));
        case T_STRING:
            return oprot->writeString(*static_cast<const std::string*>(value));
        default:
            return writeRecord(oprot, *field.record, value);
    }
}

template <typename Protocol>
uint32_t readValue(Protocol* iprot, const Field& field, void* value) {
    switch (field.type) {
        case T_BOOL:
            return iprot->readBool(*static_cast<bool*>(value));
        case T_I32:
            return iprot->readI32(*static_cast<int32_t*>(value));
        case T_STRING:
            return iprot->readString(*static_cast<std::string*>(value));
        default:
            return readRecord(iprot, *field.record, value);
    }
}

// The __isset group: one flag a field, in the order of the fields.
const bool* flagsOf(const Record& shape, const void* record) {
    return reinterpret_cast<const bool*>(static_cast<const char*>(record) + shape.flags);
}

bool* flagsOf(const Record& shape, void* record) {
    return const_cast<bool*>(flagsOf(shape, static_cast<const void*>(record)));
}

}  // namespace

template <typename Protocol>
uint32_t writeRecord(Protocol* oprot, const Record& shape, const void* record) {
    uint32_t bytes = oprot->writeStructBegin(shape.name.text);
    const bool empty = shape.writesOnlyWhenSet && !*flagsOf(shape, record);
    const std::size_t count = empty ? 0 : shape.count;
    for (std::size_t i = 0; i < count; ++i) {
        const Field& field = shape.fields[i];
        bytes += oprot->writeFieldBegin(field.name.text, static_cast<TType>(field.type),
                                        static_cast<int16_t>(i + shape.firstId));
        bytes += writeValue(oprot, field, valueOf(shape, i, record));
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
        const auto index = static_cast<std::size_t>(id - shape.firstId);  // huge if id is less
        if (index < shape.count && shape.fields[index].type == type) {
            bytes += readValue(iprot, shape.fields[index], valueOf(shape, index, record));
            flagsOf(shape, record)[index] = true;
        } else {
            bytes += iprot->skip(type);
        }
        bytes += iprot->readFieldEnd();
    }
    bytes += iprot->readStructEnd();
    return bytes;
}

template uint32_t writeRecord(TProtocol*, const Record&, const void*);
template uint32_t readRecord(TProtocol*, const Record&, void*);

}  // namespace TavIDL::wire
