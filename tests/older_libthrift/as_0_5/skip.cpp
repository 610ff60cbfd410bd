#include <support/Recording.h>

uint32_t apache::thrift::protocol::TProtocol::skip(TType type) {
    return dynamic_cast<recording::RecordingProtocol&>(*this).skip(type);
}
