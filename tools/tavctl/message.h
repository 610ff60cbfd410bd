#ifndef TAVCTL_MESSAGE_H
#define TAVCTL_MESSAGE_H

#include <string>

#include "values.h"

namespace tavctl {

// A message in lines for people, each indented by `indent`.
std::string described(const Json& message, const std::string& indent);

// Fields in lines, of a message or of the interface: those have no values.
std::string describedFields(const Json& fields, const std::string& indent);

// What the first bytes of a stream look like: "compact over framed", "TLS", or "" if unknown.
std::string guess(const std::string& bytes);

}  // namespace tavctl

#endif
