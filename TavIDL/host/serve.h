#ifndef TAVIDL_HOST_SERVE_H
#define TAVIDL_HOST_SERVE_H

#include <TavIDL/host/Settings.h>
#include <thrift/TProcessor.h>

#include <atomic>
#include <functional>
#include <memory>

#include "socket.h"

// What a server does with a connection, in the connection's thread.

namespace TavIDL::host {

// Tells other threads about a connection's calls: increases when a call begins, and when it ends.
using CallCount = std::atomic<unsigned>;
inline bool isBusy(unsigned calls) {
    return calls % 2 != 0;
}

// Lets `processor` answer calls until the client closes the connection, or until `stopped` returns
// true between two calls. Counts them in `calls`. Throws what process() throws, and also if the
// client is idle for too long.
void serveCalls(const std::shared_ptr<Socket>& socket, apache::thrift::TProcessor& processor,
                const Settings& settings, const std::function<bool()>& stopped, CallCount& calls);

}  // namespace TavIDL::host

#endif
