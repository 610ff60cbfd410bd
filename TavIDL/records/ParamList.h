#ifndef TAVIDL_RECORDS_PARAMLIST_H
#define TAVIDL_RECORDS_PARAMLIST_H

#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// Up to ten string parameters of one command. All ten are always written, those not in use as
/// empty strings. TavIDL.h says what write() and read() do.
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

    /// Which fields read() has found.
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

    /// The MD5 of the layout, "{1:string;2:string; ... 10:string;}", as text and as bytes. The
    /// library does not use it, but programs compiled against the interface expect it.
    static const char* const ascii_fingerprint;
    static const uint8_t binary_fingerprint[16];

    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);

    /// Compares the fields, not their flags.
    bool operator==(const ParamList& other) const;
    bool operator!=(const ParamList& other) const { return !(*this == other); }

    /// Exchanges fields and flags.
    void swap(ParamList& other) noexcept;
};

inline void swap(ParamList& a, ParamList& b) noexcept {
    a.swap(b);
}

#endif
