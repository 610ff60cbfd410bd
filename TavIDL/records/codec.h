#ifndef TAVIDL_RECORDS_CODEC_H
#define TAVIDL_RECORDS_CODEC_H

#include <TavIDL/thrift.h>

#include <cstddef>
#include <cstdint>
#include <string>

// How records are written and read. Each record has a table, with a row for each field; _args and
// _pargs share one. A record's write and read, next to its table, say what kind of record it is.
// The two loops in codec.cpp write and read any record from its table.
namespace TavIDL::records {

using apache::thrift::protocol::TProtocol;
using apache::thrift::protocol::TType;

// A record that is a field of another record has its own write and read.
struct NestedRecord {
    uint32_t (*write)(TProtocol* oprot, const void* record);
    uint32_t (*read)(TProtocol* iprot, void* record);
};
template <typename Record>
inline constexpr NestedRecord nestedRecord = {
    [](TProtocol* oprot, const void* record) {
        return static_cast<const Record*>(record)->write(oprot);
    },
    [](TProtocol* iprot, void* record) { return static_cast<Record*>(record)->read(iprot); },
};

// What a C++ type is on the wire: one of these three, or a record.
struct WireType {
    TType type;
    const NestedRecord* record;
};
template <typename T>
inline constexpr WireType wireType = {apache::thrift::protocol::T_STRUCT, &nestedRecord<T>};
template <>
inline constexpr WireType wireType<bool> = {apache::thrift::protocol::T_BOOL, nullptr};
template <>
inline constexpr WireType wireType<int32_t> = {apache::thrift::protocol::T_I32, nullptr};
template <>
inline constexpr WireType wireType<std::string> = {apache::thrift::protocol::T_STRING, nullptr};

// A row of a table. The wire type follows from the member's C++ type, so they cannot disagree.
struct Field {
    const char* name;
    WireType wire;
    std::size_t value;        // offset of the value in a record that holds values
    std::size_t pointer = 0;  // offset of the pointer to it in a record that holds pointers
};

template <typename Record, typename Value>
constexpr Field field(const char* name, Value Record::*, std::size_t value) {
    return {name, wireType<Value>, value};
}

// An argument, which _args holds as a value and _pargs as a pointer.
template <typename Args, typename Pargs, typename Value>
constexpr Field argument(const char* name, Value Args::*, std::size_t value, const Value* Pargs::*,
                         std::size_t pointer) {
    return {name, wireType<Value>, value, pointer};
}

// Macros, so that a row names its member only once.
#define TAVIDL_FIELD(Record, member) \
    TavIDL::records::field(#member, &Record::member, offsetof(Record, member))
#define TAVIDL_ARGUMENT(Operation, member)                                                    \
    TavIDL::records::argument(#member, &Operation##_args::member,                             \
                              offsetof(Operation##_args, member), &Operation##_pargs::member, \
                              offsetof(Operation##_pargs, member))

// The ids of the rows are consecutive.
struct Table {
    const Field* rows;
    unsigned count;
    int firstId = 1;
};
template <const auto& rows>
inline constexpr Table table = {rows, sizeof(rows) / sizeof(Field)};

enum class Holds { values, pointers };

// Both return the sum of what the protocol's calls return. They make the same calls in the same
// order for every protocol. The calls are virtual, except for objects whose exact type is one of
// libthrift's binary and compact protocols over any transport or over TBufferBase. Not inlined: 7 %
// of the text.
[[gnu::noinline]] uint32_t writeFields(TProtocol* oprot, const char* name, const Table& table,
                                       const void* record, Holds holds);
// `isset` is a record's group of flags: one bool for each row, in the same order.
[[gnu::noinline]] uint32_t readFields(TProtocol* iprot, const Table& table, void* record,
                                      void* isset);

// ConnectionInfo, ParamList and each _args: all fields are written, set or not.
template <const auto& rows, typename Record>
uint32_t writeValues(TProtocol* oprot, const char* name, const Record& record) {
    static_assert(sizeof(record.__isset) == table<rows>.count, "one row for each flag");
    return writeFields(oprot, name, table<rows>, &record, Holds::values);
}
template <const auto& rows, typename Record>
uint32_t readValues(TProtocol* iprot, Record& record) {
    static_assert(sizeof(record.__isset) == table<rows>.count, "one row for each flag");
    return readFields(iprot, table<rows>, &record, &record.__isset);
}

// Each _pargs: pointers to the caller's arguments.
template <const auto& rows, typename Record>
uint32_t writePointers(TProtocol* oprot, const char* name, const Record& record) {
    static_assert(sizeof(record) == (1 + table<rows>.count) * sizeof(void*),
                  "one row for each pointer");
    return writeFields(oprot, name, table<rows>, &record, Holds::pointers);
}

// Each _result and _presult: field 0, "success", which is omitted unless it is set.
template <typename Value>
inline constexpr Field kSuccess = {"success", wireType<Value>, 0};
template <typename Value>
inline constexpr Table kResult = {&kSuccess<Value>, 1, 0};
template <typename Value>
inline constexpr Table kNoResult = {&kSuccess<Value>, 0};

template <typename Value, typename Flags>
uint32_t writeResult(TProtocol* oprot, const char* name, const Value& success, const Flags& isset) {
    static_assert(sizeof(isset) == 1, "a result has one flag");
    return writeFields(oprot, name, isset.success ? kResult<Value> : kNoResult<Value>, &success,
                       Holds::values);
}
template <typename Value, typename Flags>
uint32_t readResult(TProtocol* iprot, Value& success, Flags& isset) {
    static_assert(sizeof(isset) == 1, "a result has one flag");
    return readFields(iprot, kResult<Value>, &success, &isset);
}

}  // namespace TavIDL::records

#endif
