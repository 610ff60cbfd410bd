#ifndef OLDER_LIBTHRIFT_TTRANSPORT_H
#define OLDER_LIBTHRIFT_TTRANSPORT_H

#include <thrift/Thrift.h>

namespace apache {
namespace thrift {
namespace transport {

class TTransport {
public:
    virtual ~TTransport() = default;
    virtual bool isOpen() { return false; }
    virtual bool peek() { return isOpen(); }
    virtual void open() {}
    virtual void close() {}
    virtual EndResult readEnd() { return EndResult(); }
    virtual EndResult writeEnd() { return EndResult(); }
    virtual void flush() {}
};

}  // namespace transport
}  // namespace thrift
}  // namespace apache

#endif
