#include "Substitutes.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "Clock.h"

namespace {

std::atomic<long> live{0};
std::atomic<long> connects{0};
std::atomic<bool> active[3];
std::atomic<std::chrono::milliseconds> expired{std::chrono::milliseconds(0)};

std::atomic<const char*> failingFunction{""};
std::atomic<int> errorOfFunction{0};

std::atomic<bool>& isActive(substitutes::Behavior behavior) {
    return active[static_cast<int>(behavior)];
}

bool fails(const char* function) {
    if (std::strcmp(failingFunction, function) != 0) {
        return false;
    }
    errno = errorOfFunction;
    return true;
}

// The system's function with the name of a function here.
template <typename Function>
Function* next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace substitutes {

Substitute::Substitute(Behavior behavior) : behavior_(behavior) {
    isActive(behavior_) = true;
}

Substitute::~Substitute() {
    isActive(behavior_) = false;
    passTime(-expired.exchange(std::chrono::milliseconds(0)));
}

Failing::Failing(const char* function, int error) {
    errorOfFunction = error;
    failingFunction = function;
}

Failing::~Failing() {
    failingFunction = "";
}

long connectCalls() {
    return connects;
}

long liveObjects() {
    return live;
}

}  // namespace substitutes

using substitutes::Behavior;

// The linker prefers these to the functions of the shared libraries.

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** found) {
    static const auto real = next(getaddrinfo, "getaddrinfo");
    if (fails("getaddrinfo")) {
        return EAI_SYSTEM;
    }
    if (name == nullptr || std::string(name) != substitutes::kBothLoopbacks) {
        return real(name, service, hints, found);
    }
    const int error = real("::1", service, hints, found);
    return error != 0 ? error : real("127.0.0.1", service, hints, &(*found)->ai_next);
}

extern "C" int socket(int family, int type, int protocol) noexcept {
    static const auto real = next(socket, "socket");
    return fails("socket") ? -1 : real(family, type, protocol);
}

extern "C" int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
    static const auto real = next(accept4, "accept4");
    return fails("accept4") ? -1 : real(descriptor, address, size, flags);
}

extern "C" int eventfd(unsigned value, int flags) noexcept {
    static const auto real = next(eventfd, "eventfd");
    return fails("eventfd") ? -1 : real(value, flags);
}

extern "C" int chmod(const char* path, mode_t mode) noexcept {
    static const auto real = next(chmod, "chmod");
    return fails("chmod") ? -1 : real(path, mode);
}

extern "C" ssize_t recv(int descriptor, void* bytes, size_t count, int flags) {
    static const auto real = next(recv, "recv");
    if ((flags & MSG_DONTWAIT) != 0 && isActive(Behavior::InputNeverEnds)) {
        return 1;
    }
    return real(descriptor, bytes, count, flags);
}

extern "C" int setsockopt(int descriptor, int level, int option, const void* value,
                          socklen_t size) noexcept {
    static const auto real = next(setsockopt, "setsockopt");
    return fails("setsockopt") ? -1 : real(descriptor, level, option, value, size);
}

extern "C" int fcntl(int descriptor, int command, ...) {
    static const auto real = next(fcntl, "fcntl");
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);  // as wide as any
    va_end(rest);
    return fails("fcntl") ? -1 : real(descriptor, command, argument);
}

extern "C" int getnameinfo(const sockaddr* address, socklen_t size, char* host, socklen_t hostSize,
                           char* service, socklen_t serviceSize, int flags) {
    static const auto real = next(getnameinfo, "getnameinfo");
    return fails("getnameinfo") ? EAI_MEMORY
                                : real(address, size, host, hostSize, service, serviceSize, flags);
}

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t size) {
    static const auto real = next(connect, "connect");
    ++connects;
    if (isActive(Behavior::ConnectExpires)) {
        errno = EINPROGRESS;
        return -1;
    }
    if (!isActive(Behavior::ConnectsImmediately)) {
        return real(descriptor, address, size);
    }
    const int flags = fcntl(descriptor, F_GETFL);
    fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
    const int result = real(descriptor, address, size);
    fcntl(descriptor, F_SETFL, flags);
    errno = EIO;  // says nothing if there was no error
    return result;
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
    static const auto real = next(poll, "poll");
    if (fails("poll")) {
        return -1;
    }
    if (count == 1 && descriptors->events == POLLOUT &&
        isActive(Behavior::ConnectExpires).exchange(false)) {
        expired = std::chrono::milliseconds(timeout);
        substitutes::passTime(expired);
        return 0;
    }
    return real(descriptors, count, timeout);
}

void* operator new(std::size_t size) {
    void* const made = fails("new") ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    ++live;
    return made;
}

void operator delete(void* object) noexcept {
    if (object != nullptr) {
        --live;
        std::free(object);
    }
}

void operator delete(void* object, std::size_t) noexcept {
    operator delete(object);
}
