#ifndef TAVIDL_RECORDS_PARAMLIST_H
#define TAVIDL_RECORDS_PARAMLIST_H

#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// Up to ten string parameters of one command. All ten always travel, those
/// not in use as empty strings.
///
/// A value: copied and moved member by member. One thread at a time may write
/// to it or read into it.
class TAVIDL_EXPORT ParamList {
public:
    ParamList() = default;
    ParamList(const ParamList&) = default;
    ParamList(ParamList&&) noexcept = default;
    ParamList& operator=(const ParamList&) = default;
    ParamList& operator=(ParamList&&) noexcept = default;
    virtual ~ParamList() = default;

    std::string param1;
    std::string param2;
    std::string param3;
    std::string param4;
    std::string param5;
    std::string param6;
    std::string param7;
    std::string param8;
    std::string param9;
    std::string param10;

    /// Which fields read() has taken. write() does not look at them.
    struct Flags {
        bool param1 = false;
        bool param2 = false;
        bool param3 = false;
        bool param4 = false;
        bool param5 = false;
        bool param6 = false;
        bool param7 = false;
        bool param8 = false;
        bool param9 = false;
        bool param10 = false;
    } __isset;

    /// MD5 of the layout text "{1:string;2:string; ... 10:string;}": 32
    /// upper-case hexadecimal digits, and the same digest as bytes.
    static const char* const ascii_fingerprint;
    static const uint8_t binary_fingerprint[16];

    /// Writes all ten fields, set or not. Returns the sum of what the protocol's
    /// calls return. Exceptions of the protocol and the transport pass through.
    uint32_t write(apache::thrift::protocol::TProtocol* oprot) const;

    /// Reads one record. Fields that the input lacks, or holds with another
    /// type, keep their value and flag; unknown fields are skipped. Returns and
    /// throws as write() does; after a throw the fields read so far are set.
    uint32_t read(apache::thrift::protocol::TProtocol* iprot);

    /// Compares the fields alone: where a value came from (`__isset`) does not
    /// make it another value.
    bool operator==(const ParamList& other) const;
    bool operator!=(const ParamList& other) const { return !(*this == other); }

    /// Exchanges fields and flags.
    void swap(ParamList& other) noexcept;
};

inline void swap(ParamList& a, ParamList& b) noexcept {
    a.swap(b);
}

#endif
