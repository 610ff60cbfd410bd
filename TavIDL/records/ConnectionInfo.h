#ifndef TAVIDL_RECORDS_CONNECTIONINFO_H
#define TAVIDL_RECORDS_CONNECTIONINFO_H

#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// Where an opened EMP and its caller's callback service listen.
///
/// A value: copied and moved member by member. One thread at a time may write
/// to it or read into it.
class TAVIDL_EXPORT ConnectionInfo {
public:
    ConnectionInfo() = default;
    ConnectionInfo(const ConnectionInfo&) = default;
    ConnectionInfo(ConnectionInfo&&) noexcept = default;
    ConnectionInfo& operator=(const ConnectionInfo&) = default;
    ConnectionInfo& operator=(ConnectionInfo&&) noexcept = default;
    virtual ~ConnectionInfo() = default;

    /// Port on which the caller is to run its callback service.
    int32_t callbackServicePort = 0;
    /// Port on which the opened EMP serves TavEmp.
    int32_t empServicePort = 0;
    /// The broker's name for the opened EMP. Any bytes.
    std::string empID;

    /// Which fields read() has taken. write() does not look at them.
    struct Flags {
        bool callbackServicePort = false;
        bool empServicePort = false;
        bool empID = false;
    } __isset;

    /// MD5 of the layout "{1:i32;2:i32;3:string;}": 32 upper-case hexadecimal
    /// digits, and the same digest as bytes.
    static const char* const ascii_fingerprint;
    static const uint8_t binary_fingerprint[16];

    /// Writes all fields, set or not. Returns the sum of what the protocol's
    /// calls return. Exceptions of the protocol and the transport pass through.
    uint32_t write(apache::thrift::protocol::TProtocol* oprot) const;

    /// Reads one record. Fields that the input lacks, or holds with another
    /// type, keep their value and flag; unknown fields are skipped. Returns and
    /// throws as write() does; after a throw the fields read so far are set.
    uint32_t read(apache::thrift::protocol::TProtocol* iprot);

    /// Compares the fields alone: where a value came from (`__isset`) does not
    /// make it another value.
    bool operator==(const ConnectionInfo& other) const;
    bool operator!=(const ConnectionInfo& other) const { return !(*this == other); }

    /// Exchanges fields and flags.
    void swap(ConnectionInfo& other) noexcept;
};

inline void swap(ConnectionInfo& a, ConnectionInfo& b) noexcept {
    a.swap(b);
}

#endif
