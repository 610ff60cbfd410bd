#ifndef TAVCTL_DECODER_H
#define TAVCTL_DECODER_H

#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "json.h"
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

    // The offset of the first byte that is wrong or missing, and why. Overwrites what comes after
    // it: it may hold a credential.
    Json broken(const apache::thrift::TException& failure);

private:
    using TProtocol = apache::thrift::protocol::TProtocol;
    using TType = apache::thrift::protocol::TType;

    std::size_t position() const;
    uint64_t offset() const { return source_->begin + position(); }
    void hide(std::size_t begin, std::size_t end);
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
    const std::shared_ptr<CheckedJson> json_;  // null for other protocols
    std::string item_;
    uint64_t begin_ = 0;  // of the item
    int values_ = 0;
    bool secret_ = false;  // is being read
};

}  // namespace tavctl

#endif
