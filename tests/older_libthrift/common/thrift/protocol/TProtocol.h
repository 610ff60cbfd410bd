#ifndef OLDER_LIBTHRIFT_TPROTOCOL_H
#define OLDER_LIBTHRIFT_TPROTOCOL_H

#include <thrift/transport/TTransport.h>

namespace apache {
namespace thrift {
namespace protocol {

enum TType {
    T_STOP = 0,
    T_VOID = 1,
    T_BOOL = 2,
    T_BYTE = 3,
    T_DOUBLE = 4,
    T_I16 = 6,
    T_I32 = 8,
    T_I64 = 10,
    T_STRING = 11,
    T_STRUCT = 12,
    T_MAP = 13,
    T_SET = 14,
    T_LIST = 15
};

enum TMessageType { T_CALL = 1, T_REPLY = 2, T_EXCEPTION = 3, T_ONEWAY = 4 };

/// Only the calls that the library and its tests make. All are virtual, as in the oldest
/// releases.
class TProtocol {
public:
    virtual ~TProtocol() = default;

    virtual uint32_t writeMessageBegin(const std::string& name, TMessageType type,
                                       int32_t seqid) = 0;
    virtual uint32_t writeMessageEnd() = 0;
    virtual uint32_t writeStructBegin(const char* name) = 0;
    virtual uint32_t writeStructEnd() = 0;
    virtual uint32_t writeFieldBegin(const char* name, TType type, int16_t id) = 0;
    virtual uint32_t writeFieldEnd() = 0;
    virtual uint32_t writeFieldStop() = 0;
    virtual uint32_t writeBool(bool value) = 0;
    virtual uint32_t writeI32(int32_t value) = 0;
    virtual uint32_t writeString(const std::string& value) = 0;

    virtual uint32_t readMessageBegin(std::string& name, TMessageType& type, int32_t& seqid) = 0;
    virtual uint32_t readMessageEnd() = 0;
    virtual uint32_t readStructBegin(std::string& name) = 0;
    virtual uint32_t readStructEnd() = 0;
    virtual uint32_t readFieldBegin(std::string& name, TType& type, int16_t& id) = 0;
    virtual uint32_t readFieldEnd() = 0;
    virtual uint32_t readBool(bool& value) = 0;
    virtual uint32_t readI32(int32_t& value) = 0;
    virtual uint32_t readString(std::string& value) = 0;
    OLDER_LIBTHRIFT_SKIP;

    shared_ptr<transport::TTransport> getTransport() { return ptrans_; }

protected:
    explicit TProtocol(shared_ptr<transport::TTransport> transport) : ptrans_(transport) {}

    shared_ptr<transport::TTransport> ptrans_;
};

}  // namespace protocol
}  // namespace thrift
}  // namespace apache

#endif
