#ifndef OLDER_LIBTHRIFT_TPROCESSOR_H
#define OLDER_LIBTHRIFT_TPROCESSOR_H

#include <protocol/TProtocol.h>

namespace apache {
namespace thrift {

class TProcessor {
public:
    virtual ~TProcessor() = default;

    virtual bool process(shared_ptr<protocol::TProtocol> in,
                         shared_ptr<protocol::TProtocol> out) = 0;

    bool process(shared_ptr<protocol::TProtocol> io) { return process(io, io); }

protected:
    TProcessor() = default;
};

}  // namespace thrift
}  // namespace apache

#endif
