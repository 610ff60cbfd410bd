#ifndef TAVCTL_DECODER_H
#define TAVCTL_DECODER_H

#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "source.h"
#include "values.h"

namespace tavctl {

// Decodes one message, and overwrites credentials in the source's copy of its bytes. What it has
// read stays when it throws.
class Decoder {
public:
    Decoder(std::shared_ptr<Source> source, const Settings& settings);

    // Throws what libthrift does.
    void decode(Json& message);

    // The offset of the first byte that is wrong or missing, and why.
    Json broken(const apache::thrift::TException& failure) const;

private:
    using TProtocol = apache::thrift::protocol::TProtocol;
    using TType = apache::thrift::protocol::TType;

    void item(std::string what);
    void readFrameLength();
    void readFields(Json& fields, const std::vector<Field>& known, int depth);
    void readSecret(Json& value, TType type, int depth);
    void readValue(Json& value, Json& shape, TType type, const Record* record, int depth);
    void readContainer(Json& value, Json& shape, TType container, int depth);
    template <typename T>
    void readPlain(Json& value, uint32_t (TProtocol::*read)(T&));

    const std::shared_ptr<Source> source_;
    const Settings& settings_;
    const TavIDL::ProtocolPointer protocol_;
    std::string item_;
    uint64_t begin_ = 0;  // of the item
    int values_ = 0;
    bool secret_ = false;  // is being read
};

}  // namespace tavctl

#endif
