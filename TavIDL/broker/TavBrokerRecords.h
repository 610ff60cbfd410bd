#ifndef TAVIDL_BROKER_TAVBROKERRECORDS_H
#define TAVIDL_BROKER_TAVBROKERRECORDS_H

#include <TavIDL/export.h>
#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// \file
/// The records by which TavBroker's client and processor pass arguments and results to a protocol.
/// TavIDL.h says what the four kinds are for, and what write() and read() do.

class TAVIDL_EXPORT TavBroker_OpenEmp_args {
public:
    virtual ~TavBroker_OpenEmp_args() = default;
    std::string name;
    std::string version;
    std::string credential;
    struct Flags {
        bool name = false;
        bool version = false;
        bool credential = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_OpenEmp_pargs {
public:
    virtual ~TavBroker_OpenEmp_pargs() = default;
    const std::string* name = nullptr;
    const std::string* version = nullptr;
    const std::string* credential = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavBroker_OpenEmp_result {
public:
    virtual ~TavBroker_OpenEmp_result() = default;
    ConnectionInfo success;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_OpenEmp_presult {
public:
    virtual ~TavBroker_OpenEmp_presult() = default;
    ConnectionInfo* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_Execute_args {
public:
    virtual ~TavBroker_Execute_args() = default;
    int32_t fromPort = 0;
    std::string cmd;
    std::string param1;
    std::string param2;
    std::string param3;
    std::string param4;
    struct Flags {
        bool fromPort = false;
        bool cmd = false;
        bool param1 = false;
        bool param2 = false;
        bool param3 = false;
        bool param4 = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_Execute_pargs {
public:
    virtual ~TavBroker_Execute_pargs() = default;
    const int32_t* fromPort = nullptr;
    const std::string* cmd = nullptr;
    const std::string* param1 = nullptr;
    const std::string* param2 = nullptr;
    const std::string* param3 = nullptr;
    const std::string* param4 = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavBroker_Execute_result {
public:
    virtual ~TavBroker_Execute_result() = default;
    std::string success;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_Execute_presult {
public:
    virtual ~TavBroker_Execute_presult() = default;
    std::string* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_CloseEmp_args {
public:
    virtual ~TavBroker_CloseEmp_args() = default;
    ConnectionInfo connectionInfo;
    struct Flags {
        bool connectionInfo = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_CloseEmp_pargs {
public:
    virtual ~TavBroker_CloseEmp_pargs() = default;
    const ConnectionInfo* connectionInfo = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavBroker_CloseEmp_result {
public:
    virtual ~TavBroker_CloseEmp_result() = default;
    bool success = false;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavBroker_CloseEmp_presult {
public:
    virtual ~TavBroker_CloseEmp_presult() = default;
    bool* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

#endif
