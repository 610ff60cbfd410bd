#ifndef TAVCTL_ENCODER_H
#define TAVCTL_ENCODER_H

#include <string>

#include "connection.h"
#include "values.h"

namespace tavctl {

// The bytes of a message in the form that MessageReader returns. Throws a Failure
// whose text begins with `where`.
std::string encoded(const Json& message, const Settings& settings, const std::string& where);

}  // namespace tavctl

#endif
