#ifndef TAVIDL_EVENT_TAVEMPEVENTRECORDS_H
#define TAVIDL_EVENT_TAVEMPEVENTRECORDS_H

#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// The call records of TavEmpEvent, each named after its operation. Clients and processors
/// use them; other programs need them only to read or write single messages.
///
/// - `_args`: the arguments, read by the processor.
/// - `_pargs`: pointers to the caller's arguments, written by the client.
///
/// `write` and `read` return the sum of what the protocol's calls return and throw
/// what the protocol and the transport throw. `write` writes all arguments, set or
/// not. `read` takes a field only if id and type match, sets its flag, and skips any
/// other; what the input lacks keeps its value. Pointers must be set before `write`
/// and `read`: they are followed untested. A record belongs to one thread at a time.

class TAVIDL_EXPORT TavEmpEvent_Callback_args {
public:
    virtual ~TavEmpEvent_Callback_args() = default;

    int32_t eventType = 0;
    std::string param1;
    std::string param2;
    struct Flags {
        bool eventType = false;
        bool param1 = false;
        bool param2 = false;
    } __isset;

    uint32_t write(apache::thrift::protocol::TProtocol* oprot) const;
    uint32_t read(apache::thrift::protocol::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmpEvent_Callback_pargs {
public:
    virtual ~TavEmpEvent_Callback_pargs() = default;

    const int32_t* eventType = nullptr;
    const std::string* param1 = nullptr;
    const std::string* param2 = nullptr;

    uint32_t write(apache::thrift::protocol::TProtocol* oprot) const;
};

#endif
