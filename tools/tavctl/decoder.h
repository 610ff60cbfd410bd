#ifndef TAVCTL_DECODER_H
#define TAVCTL_DECODER_H

#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "values.h"

namespace tavctl {

class CheckedJson;
class Source;

// Decodes messages from a stream of bytes, by libthrift's own protocols, as far as they go.
//
// A message is
//
//     {"offset": 0, "size": 44, "operation": "Open", "type": "call", "seqid": 0,
//      "fields": [{"id": 1, "name": "clientID", "type": "i32", "value": 7}, ...]}
//
// The value of a structure is a list of fields, that of a list or set a list of values, that of a
// map a list of pairs. Fields that the interface does not know have no name. Credentials are
// masked. A broken message ends where it breaks, and has
//
//      "broken": {"offset": 24, "reason": "..."}
//
// The offsets count from the start of the stream; that of a break is the first byte that is wrong
// or missing.
class MessageReader {
public:
    // `stream` is read as bytes come; its read() returns 0 at the end.
    MessageReader(std::shared_ptr<TTransport> stream, const Settings& settings);

    // Decodes the next message. Returns false at the end of the stream. After a broken message
    // the stream cannot be decoded any further.
    bool next(Json& message);

    // The bytes of the last message, with credentials overwritten by '*'.
    const std::string& bytes() const;

    // "it looks like compact over framed, not binary over buffered" if the last message is broken
    // and this seems to be the reason; otherwise empty.
    std::string mismatch() const;

    // After a broken message: reads on without decoding. Returns how many bytes, 0 at the end.
    std::size_t skipRest();

private:
    using TProtocol = apache::thrift::protocol::TProtocol;
    using TType = apache::thrift::protocol::TType;

    void decode(Json& message);
    Json broken(const apache::thrift::TException& failure);
    void item(const std::string& what);
    std::size_t position() const;
    void hide(std::size_t begin, std::size_t end);
    void readFrameLength();
    void readFields(Json& fields, const std::vector<Field>& known, int depth);
    void readSecret(Json& value, TType type, int depth);
    void readValue(Json& value, Json& shape, TType type, const Record* record, int depth);
    void readContainer(Json& value, Json& shape, TType container, int depth);
    template <typename T>
    void readPlain(Json& value, uint32_t (TProtocol::*read)(T&));

    const std::shared_ptr<Source> source_;
    const std::string wire_;  // protocol and transport
    const bool framed_;
    const TavIDL::ProtocolPointer protocol_;
    const std::shared_ptr<CheckedJson> json_;  // null for other protocols
    std::string guess_;                        // at a message that is broken
    std::string item_;                         // that is read
    uint64_t begin_ = 0;                       // of the item
    int values_ = 0;                           // of the message, so far
    bool secret_ = false;                      // is being read
};

}  // namespace tavctl

#endif
