#ifndef TAVIDL_EVENT_TAVEMPEVENTRECORDS_H
#define TAVIDL_EVENT_TAVEMPEVENTRECORDS_H

#include <TavIDL/export.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// \file
/// The records by which TavEmpEvent's client and processor pass arguments to a protocol.
/// TavIDL.h says what the two kinds are for, and what write() and read() do.

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
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmpEvent_Callback_pargs {
public:
    virtual ~TavEmpEvent_Callback_pargs() = default;
    const int32_t* eventType = nullptr;
    const std::string* param1 = nullptr;
    const std::string* param2 = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

#endif
