#ifndef TAVIDL_EMP_TAVEMPRECORDS_H
#define TAVIDL_EMP_TAVEMPRECORDS_H

#include <TavIDL/export.h>
#include <TavIDL/records/ParamList.h>
#include <TavIDL/thrift.h>

#include <cstdint>
#include <string>

/// \file
/// The records by which TavEmp's client and processor pass arguments and results to a protocol.
/// TavIDL.h says what the four kinds are for, and what write() and read() do.

class TAVIDL_EXPORT TavEmp_Open_args {
public:
    virtual ~TavEmp_Open_args() = default;
    int32_t clientID = 0;
    std::string name;
    std::string version;
    std::string credential;
    struct Flags {
        bool clientID = false;
        bool name = false;
        bool version = false;
        bool credential = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Open_pargs {
public:
    virtual ~TavEmp_Open_pargs() = default;
    const int32_t* clientID = nullptr;
    const std::string* name = nullptr;
    const std::string* version = nullptr;
    const std::string* credential = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavEmp_Open_result {
public:
    virtual ~TavEmp_Open_result() = default;
    bool success = false;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Open_presult {
public:
    virtual ~TavEmp_Open_presult() = default;
    bool* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Close_args {
public:
    virtual ~TavEmp_Close_args() = default;
    int32_t clientID = 0;
    struct Flags {
        bool clientID = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Close_pargs {
public:
    virtual ~TavEmp_Close_pargs() = default;
    const int32_t* clientID = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavEmp_Close_result {
public:
    virtual ~TavEmp_Close_result() = default;
    int32_t success = 0;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Close_presult {
public:
    virtual ~TavEmp_Close_presult() = default;
    int32_t* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Execute_args {
public:
    virtual ~TavEmp_Execute_args() = default;
    int32_t clientID = 0;
    std::string cmd;
    std::string param1;
    std::string param2;
    std::string param3;
    std::string param4;
    struct Flags {
        bool clientID = false;
        bool cmd = false;
        bool param1 = false;
        bool param2 = false;
        bool param3 = false;
        bool param4 = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Execute_pargs {
public:
    virtual ~TavEmp_Execute_pargs() = default;
    const int32_t* clientID = nullptr;
    const std::string* cmd = nullptr;
    const std::string* param1 = nullptr;
    const std::string* param2 = nullptr;
    const std::string* param3 = nullptr;
    const std::string* param4 = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavEmp_Execute_result {
public:
    virtual ~TavEmp_Execute_result() = default;
    std::string success;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_Execute_presult {
public:
    virtual ~TavEmp_Execute_presult() = default;
    std::string* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_ExecuteWithParamList_args {
public:
    virtual ~TavEmp_ExecuteWithParamList_args() = default;
    int32_t clientID = 0;
    std::string cmd;
    ParamList paramList;
    struct Flags {
        bool clientID = false;
        bool cmd = false;
        bool paramList = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_ExecuteWithParamList_pargs {
public:
    virtual ~TavEmp_ExecuteWithParamList_pargs() = default;
    const int32_t* clientID = nullptr;
    const std::string* cmd = nullptr;
    const ParamList* paramList = nullptr;
    uint32_t write(TavIDL::TProtocol* oprot) const;
};

class TAVIDL_EXPORT TavEmp_ExecuteWithParamList_result {
public:
    virtual ~TavEmp_ExecuteWithParamList_result() = default;
    std::string success;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t write(TavIDL::TProtocol* oprot) const;
    uint32_t read(TavIDL::TProtocol* iprot);
};

class TAVIDL_EXPORT TavEmp_ExecuteWithParamList_presult {
public:
    virtual ~TavEmp_ExecuteWithParamList_presult() = default;
    std::string* success = nullptr;
    struct Flags {
        bool success = false;
    } __isset;
    uint32_t read(TavIDL::TProtocol* iprot);
};

#endif
