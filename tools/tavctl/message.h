#ifndef TAVCTL_MESSAGE_H
#define TAVCTL_MESSAGE_H

#include <memory>
#include <string>

#include "connection.h"
#include "values.h"

namespace tavctl {

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
    MessageReader(std::shared_ptr<TTransport> stream, Settings settings);

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
    const std::shared_ptr<Source> source_;
    const Settings settings_;
    std::string guess_;  // at a message that is broken
};

// A message in lines for people, each indented by `indent`.
std::string described(const Json& message, const std::string& indent);

// What the first bytes of a stream look like: "compact over framed", "TLS", or "" if unknown.
std::string guess(const std::string& bytes);

}  // namespace tavctl

#endif
