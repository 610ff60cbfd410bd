#ifndef TAVCTL_WIRENAMES_H
#define TAVCTL_WIRENAMES_H

#include <TavIDL/thrift.h>

#include <string>

namespace tavctl {

// What decode calls the types of values and messages, and encode knows them by. A message of a type
// without a name is of "type 7".

// Both throw if there is no such type.
std::string nameOf(apache::thrift::protocol::TType type);
apache::thrift::protocol::TType typeNamed(const std::string& name);

std::string nameOf(apache::thrift::protocol::TMessageType type);
// Throws if it is not a name that nameOf() gives.
apache::thrift::protocol::TMessageType messageTypeNamed(const std::string& name);

}  // namespace tavctl

#endif
