#ifndef TAVIDL_RECORDS_CODEC_H
#define TAVIDL_RECORDS_CODEC_H

#include <TavIDL/thrift.h>

#include <cstddef>
#include <cstdint>
#include <string>

// How a record meets the wire: its table says which fields it has and where
// they lie, and two loops carry any record by its table. The tables stand beside
// the records (tables.h, <Service>Tables.h); the loops stand here, once.
namespace TavIDL::wire {

using apache::thrift::protocol::TProtocol;
using apache::thrift::protocol::TType;

struct Record;

// The table of the record class T.
template <typename T>
extern const Record table;

// What a C++ type is on the wire: a record, unless it is one of the three.
template <typename T>
inline constexpr TType wireType = apache::thrift::protocol::T_STRUCT;
template <>
inline constexpr TType wireType<bool> = apache::thrift::protocol::T_BOOL;
template <>
inline constexpr TType wireType<int32_t> = apache::thrift::protocol::T_I32;
template <>
inline constexpr TType wireType<std::string> = apache::thrift::protocol::T_STRING;

// A name, held in the table itself: a pointer would have to be relocated each
// time the library is loaded.
template <std::size_t Capacity>
struct Name {
    template <std::size_t N>
    constexpr Name(const char (&name)[N]) {
        static_assert(N <= Capacity, "make room for the longer name");
        for (std::size_t i = 0; i < N; ++i) {
            text[i] = name[i];
        }
    }

    char text[Capacity] = {};
};

// One field of a record. The wire type is not written in a table: it follows
// from the member's C++ type, so the two cannot disagree.
struct Field {
    template <typename Class, typename Member>
    constexpr Field(Name<20> fieldName, Member Class::*, std::size_t place)
        : name(fieldName), type(wireType<Member>), offset(static_cast<uint16_t>(place)) {
        if constexpr (wireType<Member> == apache::thrift::protocol::T_STRUCT) {
            record = &table<Member>;
        }
    }

    Name<20> name;
    uint8_t type;
    uint16_t offset;                 // of the member, where the record holds its values
    const Record* record = nullptr;  // what a T_STRUCT field holds
};

// One record class. The four kinds of call record share their field tables: an
// operation's _args and _pargs cannot drift apart, nor its _result and _presult.
struct Record {
    Name<36> name;
    const Field* fields;  // in id order, without gaps
    uint32_t count;       // whole words where a loop looks once a field
    int32_t firstId;
    bool holdsPointers;  // to the caller's values, and not the values
    bool writesOnlyWhenSet;
    uint32_t flags;  // offset of __isset; 0 in a record that has none
};

// Arguments are numbered from 1 on; a result is field 0.
constexpr int32_t kFirstArgument = 1;
constexpr int32_t kResult = 0;

// ConnectionInfo, ParamList and every _args: all fields are always written.
template <typename T, std::size_t N>
constexpr Record valueTable(Name<36> name, const Field (&fields)[N]) {
    return {name, fields, N, kFirstArgument, false, false, offsetof(T, __isset)};
}

// _pargs: pointers to the caller's arguments, nothing else.
template <typename T, std::size_t N>
constexpr Record pointerTable(Name<36> name, const Field (&fields)[N]) {
    static_assert(sizeof(T) == (1 + N) * sizeof(void*), "one pointer a field");
    return {name, fields, N, kFirstArgument, true, false, 0};
}

// _result: written empty as long as `success` is not set.
template <typename T>
constexpr Record resultTable(Name<36> name, const Field (&success)[1]) {
    return {name, success, 1, kResult, false, true, offsetof(T, __isset)};
}

// _presult: a pointer to the caller's result. Never written, so it has no name.
template <typename T>
constexpr Record resultPointerTable(const Field (&success)[1]) {
    static_assert(offsetof(T, success) == sizeof(void*), "the pointer comes first");
    return {"", success, 1, kResult, true, false, offsetof(T, __isset)};
}

// Both return the sum of what the protocol's calls return. Their loops stand in the library
// three times: for any TProtocol, whose every call is virtual, and for libthrift's binary and
// compact protocol, whose own functions are then called directly. A protocol is taken for one
// of these two only if that is its exact type: what derives from them or wraps them has its
// overrides called. All three make the same calls in the same order.
uint32_t write(TProtocol* oprot, const Record& shape, const void* record);
uint32_t read(TProtocol* iprot, const Record& shape, void* record);

template <typename T>
uint32_t write(TProtocol* oprot, const T& record) {
    return write(oprot, table<T>, &record);
}

template <typename T>
uint32_t read(TProtocol* iprot, T& record) {
    return read(iprot, table<T>, &record);
}

}  // namespace TavIDL::wire

#endif
