#ifndef TESTS_HOST_SUBSTITUTES_H
#define TESTS_HOST_SUBSTITUTES_H

// Replacements for functions of the system's libraries.
namespace substitutes {

// A host name with the addresses ::1 and then 127.0.0.1, like "localhost" on many machines.
constexpr const char* kBothLoopbacks = "both-loopbacks.test";

enum class Behavior {
    ConnectsImmediately,  // connect() returns only when the connection is made
    // The next connection is never made: the wait for it ends at once, and the clock moves until
    // the substitute's end as if it had expired.
    ConnectExpires,
    InputNeverEnds  // there is always a byte to receive, for those that do not wait
};

// In its lifetime, the system behaves like this.
class Substitute {
public:
    explicit Substitute(Behavior behavior);
    ~Substitute();
    Substitute(const Substitute&) = delete;
    Substitute& operator=(const Substitute&) = delete;

private:
    const Behavior behavior_;
};

// In its lifetime, the function accept4, chmod, eventfd, fcntl, getaddrinfo, getnameinfo, poll,
// setsockopt or socket fails with this error, or `new` throws std::bad_alloc. (The sanitizers need
// descriptors of their own, so the system's limit must not be lowered.)
class Failing {
public:
    explicit Failing(const char* function, int error = 0);
    ~Failing();
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;
};

// How often connect() has been called.
long connectCalls();

// The number of objects that were created by `new` and not deleted.
long liveObjects();

}  // namespace substitutes

#endif
