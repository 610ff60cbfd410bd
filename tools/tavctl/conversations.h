#ifndef TAVCTL_CONVERSATIONS_H
#define TAVCTL_CONVERSATIONS_H

#include <functional>

#include "connection.h"
#include "lookahead.h"
#include "values.h"

namespace tavctl {

// Gets a message, what stands before it with --json, and why it may be broken; see MessageReader.
using TakeMessage =
    std::function<void(const Json& head, const Json& message, const std::string& mismatch)>;

// Decodes the TCP connections of a file that tcpdump wrote, messages in the order in which they
// were complete.
void decodePcap(Lookahead& input, const Settings& settings, const TakeMessage& take);

}  // namespace tavctl

#endif
