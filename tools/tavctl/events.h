#ifndef TAVCTL_EVENTS_H
#define TAVCTL_EVENTS_H

#include "values.h"

namespace tavctl {

// Prints an event, which has the fields of TavEmpEvent.Callback: for people a line, with --json an
// object.
void showEvent(const Json& event);

}  // namespace tavctl

#endif
