#ifndef TESTS_HOST_SUBSTITUTES_H
#define TESTS_HOST_SUBSTITUTES_H

#include <chrono>

// Replacements for functions of the system's libraries.
namespace substitutes {

// Moves the steady clock forward, also for the library. (Waits that have begun do not end earlier.)
void passTime(std::chrono::milliseconds time);

// A host name with the addresses ::1 and then 127.0.0.1, like "localhost" on many machines.
constexpr const char* kBothLoopbacks = "both-loopbacks.test";

// In its lifetime, connect() returns only when the connection is made.
class ImmediateConnect {
public:
    ImmediateConnect();
    ~ImmediateConnect();
    ImmediateConnect(const ImmediateConnect&) = delete;
    ImmediateConnect& operator=(const ImmediateConnect&) = delete;
};

// The next wait until a connection is made expires: it ends at once, and the clock moves until the
// end of this object's lifetime.
class ExpiringConnect {
public:
    ExpiringConnect();
    ~ExpiringConnect();
    ExpiringConnect(const ExpiringConnect&) = delete;
    ExpiringConnect& operator=(const ExpiringConnect&) = delete;
};

// In its lifetime, the process has no descriptor for another socket. (A sanitizer needs descriptors
// of its own, so the system's limit must not be lowered.)
class NoSockets {
public:
    NoSockets();
    ~NoSockets();
    NoSockets(const NoSockets&) = delete;
    NoSockets& operator=(const NoSockets&) = delete;
};

// The number of objects that were created by `new` and not deleted.
long liveObjects();

}  // namespace substitutes

#endif
