#ifndef TAVCTL_TYPED_H
#define TAVCTL_TYPED_H

#include <TavIDL/host/Settings.h>
#include <thrift/TProcessor.h>

#include <functional>
#include <memory>
#include <string>

#include "values.h"

namespace TavIDL {
class Batch;
class Remote;
}  // namespace TavIDL

namespace tavctl {

// Where the table meets the library's interface classes, which name each operation.

// A peer that serves `service`. Throws what Host does.
std::unique_ptr<TavIDL::Remote> remoteOf(const std::string& service, const std::string& address,
                                         const TavIDL::Settings& settings);

// A batch of calls to this peer, which serves `service`.
std::unique_ptr<TavIDL::Batch> batchOf(const std::string& service, TavIDL::Remote& peer);

// The result of a call in a batch that has run; throws what the call failed with.
using Reply = std::function<Json()>;

Reply addTo(TavIDL::Batch& batch, const Operation& operation, const Json& arguments);

// Calls a peer that serves the operation's service. `arguments` has all the fields. Throws a
// Failure.
Json call(const Operation& operation, TavIDL::Remote& peer, const Json& arguments);

// Answers a call: gets the operation and its arguments, returns its result or throws what the
// caller will get. Must be thread-safe.
using Answer = std::function<Json(const Operation& operation, const Json& arguments)>;

// A processor of the service that answers all its operations by `answer`.
std::shared_ptr<apache::thrift::TProcessor> processorOf(const std::string& service, Answer answer);

}  // namespace tavctl

#endif
