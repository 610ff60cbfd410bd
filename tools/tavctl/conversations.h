#ifndef TAVCTL_CONVERSATIONS_H
#define TAVCTL_CONVERSATIONS_H

#include <functional>
#include <string>

#include "connection.h"
#include "lookahead.h"
#include "values.h"

namespace tavctl {

// Gets a message, the members that --json puts before it, and why it may be broken; see
// MessageReader.
using TakeMessage =
    std::function<void(const Json& head, const Json& message, const std::string& mismatch)>;

// Decodes the TCP connections in a file that tcpdump wrote. Messages come in the order in which
// they were completed.
void decodePcap(Lookahead& input, const Settings& settings, const TakeMessage& take);

}  // namespace tavctl

#endif
