#ifndef TAVCTL_ENCODER_H
#define TAVCTL_ENCODER_H

#include <string>

#include "connection.h"
#include "values.h"

namespace tavctl {

// The bytes of a message that has the form MessageReader gives it; see message.h. Throws a Failure,
// which begins with `where`.
std::string encoded(const Json& message, const Settings& settings, const std::string& where);

}  // namespace tavctl

#endif
