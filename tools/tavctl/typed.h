#ifndef TAVCTL_TYPED_H
#define TAVCTL_TYPED_H

#include <TavIDL/thrift.h>

#include <functional>
#include <memory>

#include "values.h"

// Where the table meets the library's clients and interface classes, which name each operation.

// Makes one call. `arguments` has all the fields. What the client throws passes.
Json call(const Operation& operation, const TavIDL::ProtocolPointer& protocol,
          const Json& arguments);

// Answers a call: gets the operation and its arguments, returns its result or throws what the
// caller is to get. Must bear concurrent calls.
using Answer = std::function<Json(const Operation& operation, const Json& arguments)>;

// A processor of the service that answers all its operations by `answer`.
std::shared_ptr<apache::thrift::TProcessor> processorOf(const std::string& service, Answer answer);

#endif
