#ifndef BENCH_LOOPBACK_H
#define BENCH_LOOPBACK_H

#include "contestant.h"

#include <functional>

// Round trips of one call over TCP on this machine: by the contestants, and by bare sockets
// that pass the same bytes, which is the minimum for any of them.
namespace bench {

enum class Framing { buffered, framed };
constexpr Framing kFramings[] = {Framing::buffered, Framing::framed};
const char* nameOf(Framing framing);

// Makes one round trip over its own connection, which is open as long as this object exists.
using RoundTrip = std::function<void()>;

// Opens a connection to a libthrift server with a thread for each connection. The server runs
// until the last copy of this is destroyed; all connections must be closed before.
using Connect = std::function<RoundTrip()>;

Connect serve(const Contestant& contestant, Framing framing);
Connect serveBareSockets(Framing framing);

}  // namespace bench

#endif
