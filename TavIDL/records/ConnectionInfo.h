#ifndef TAVIDL_RECORDS_CONNECTIONINFO_H
#define TAVIDL_RECORDS_CONNECTIONINFO_H

#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// Where an opened EMP and its caller's callback service listen. TavIDL.h says what write() and
/// read() do.
class TAVIDL_EXPORT ConnectionInfo {
public:
    ConnectionInfo() = default;
    ConnectionInfo(const ConnectionInfo&) = default;
    ConnectionInfo(ConnectionInfo&&) noexcept = default;
    ConnectionInfo& operator=(const ConnectionInfo&) = default;
    ConnectionInfo& operator=(ConnectionInfo&&) noexcept = default;
    virtual ~ConnectionInfo() = default;

    /// Port on which the caller should run its callback service.
    int32_t callbackServicePort = 0;
    /// Port on which the opened EMP serves TavEmp.
    int32_t empServicePort = 0;
    /// The broker's name for the opened EMP. May contain any bytes.
    std::string empID;

    /// Which fields read() has found.
    struct Flags {
        bool callbackServicePort = false;
        bool empServicePort = false;
        bool empID = false;
    } __isset;

    /// The MD5 of the layout, "{1:i32;2:i32;3:string;}", as text and as bytes. The library does not
    /// use it, but programs compiled against the interface expect it.
    static const char* const ascii_fingerprint;
    static const uint8_t binary_fingerprint[16];

    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);

    /// Compares the fields, not their flags.
    bool operator==(const ConnectionInfo& other) const;
    bool operator!=(const ConnectionInfo& other) const { return !(*this == other); }

    /// Exchanges fields and flags.
    void swap(ConnectionInfo& other) noexcept;
};

inline void swap(ConnectionInfo& a, ConnectionInfo& b) noexcept {
    a.swap(b);
}

#endif
