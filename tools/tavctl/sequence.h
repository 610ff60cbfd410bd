#ifndef TAVCTL_SEQUENCE_H
#define TAVCTL_SEQUENCE_H

#include <map>
#include <string>

#include "values.h"

namespace tavctl {

// Prints messages as a Mermaid sequence diagram.
class Sequence {
public:
    // `head` has the members of a capture's line; see capture.h.
    void add(const Json& head, const Json& message);

private:
    std::string participant(const std::string& name);

    std::map<std::string, std::string> participants_;  // by name
};

}  // namespace tavctl

#endif
