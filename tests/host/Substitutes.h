#ifndef TESTS_HOST_SUBSTITUTES_H
#define TESTS_HOST_SUBSTITUTES_H

#include <chrono>

// What this program replaces in the system's libraries.
namespace substitutes {

// Moves the steady clock on, for the library too. (Waits that have begun do not end earlier.)
void passTime(std::chrono::milliseconds time);

// A name that stands for ::1 and then for 127.0.0.1, as "localhost" does on many machines.
constexpr const char* kBothLoopbacks = "both-loopbacks.test";

// The objects that `new` has made and nobody has deleted.
long liveObjects();

}  // namespace substitutes

#endif
