#ifndef TESTS_HOST_SUBSTITUTES_H
#define TESTS_HOST_SUBSTITUTES_H

#include <chrono>

// Replacements for functions of the system's libraries.
namespace substitutes {

// Moves the steady clock forward, also for the library. (Waits that have begun do not end earlier.)
void passTime(std::chrono::milliseconds time);

// A host name with the addresses ::1 and then 127.0.0.1, like "localhost" on many machines.
constexpr const char* kBothLoopbacks = "both-loopbacks.test";

// The number of objects that were created by `new` and not deleted.
long liveObjects();

}  // namespace substitutes

#endif
