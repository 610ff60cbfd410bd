#ifndef OLDER_LIBTHRIFT_TPROCESSOR_H
#define OLDER_LIBTHRIFT_TPROCESSOR_H

#include <thrift/protocol/TProtocol.h>

namespace apache {
namespace thrift {

class TProcessor {
public:
    virtual ~TProcessor() = default;

    virtual bool process(shared_ptr<protocol::TProtocol> in, shared_ptr<protocol::TProtocol> out,
                         void* connectionContext) = 0;

    bool process(shared_ptr<protocol::TProtocol> io, void* connectionContext) {
        return process(io, io, connectionContext);
    }

protected:
    TProcessor() = default;
};

}  // namespace thrift
}  // namespace apache

#endif
