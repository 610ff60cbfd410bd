#ifndef BENCH_LOOPBACK_H
#define BENCH_LOOPBACK_H

#include "contestant.h"

#include <functional>

// Round trips of one call over TCP on this machine: by the contestants, and by bare sockets
// that pass the same bytes, which is the least that any of them can take.
namespace bench {

enum class Framing { buffered, framed };
constexpr Framing kFramings[] = {Framing::buffered, Framing::framed};
const char* nameOf(Framing framing);

// Makes one round trip over a connection of its own, which is open as long as this lives.
using RoundTrip = std::function<void()>;

// Opens a connection to a libthrift server that has a thread for each. The server runs until
// the last copy of this is gone; by then all connections must be.
using Connect = std::function<RoundTrip()>;

Connect serve(const Contestant& contestant, Framing framing);
Connect serveBareSockets(Framing framing);

}  // namespace bench

#endif
