#include "Substitutes.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>

namespace {

std::atomic<std::chrono::nanoseconds::rep> passed{0};
std::atomic<long> live{0};
std::atomic<bool> active[3];
std::atomic<std::chrono::milliseconds> expired{std::chrono::milliseconds(0)};

std::atomic<bool>& isActive(substitutes::Behavior behavior) {
    return active[static_cast<int>(behavior)];
}

}  // namespace

namespace substitutes {

void passTime(std::chrono::milliseconds time) {
    passed += std::chrono::nanoseconds(time).count();
}

Substitute::Substitute(Behavior behavior) : behavior_(behavior) {
    isActive(behavior_) = true;
}

Substitute::~Substitute() {
    isActive(behavior_) = false;
    passTime(-expired.exchange(std::chrono::milliseconds(0)));
}

long liveObjects() {
    return live;
}

}  // namespace substitutes

using substitutes::Behavior;

// The linker prefers these to the functions of the shared libraries.

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return time_point(std::chrono::seconds(now.tv_sec) +
                      std::chrono::nanoseconds(now.tv_nsec + passed));
}

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** found) {
    static const auto real =
        reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name == nullptr || std::string(name) != substitutes::kBothLoopbacks) {
        return real(name, service, hints, found);
    }
    const int error = real("::1", service, hints, found);
    return error != 0 ? error : real("127.0.0.1", service, hints, &(*found)->ai_next);
}

extern "C" int socket(int family, int type, int protocol) noexcept {
    static const auto real = reinterpret_cast<decltype(&socket)>(dlsym(RTLD_NEXT, "socket"));
    if (!isActive(Behavior::NoSockets)) {
        return real(family, type, protocol);
    }
    errno = EMFILE;
    return -1;
}

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t size) {
    static const auto real = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
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
    static const auto real = reinterpret_cast<decltype(&poll)>(dlsym(RTLD_NEXT, "poll"));
    if (count == 1 && descriptors->events == POLLOUT &&
        isActive(Behavior::ConnectExpires).exchange(false)) {
        expired = std::chrono::milliseconds(timeout);
        substitutes::passTime(expired);
        return 0;
    }
    return real(descriptors, count, timeout);
}

void* operator new(std::size_t size) {
    void* const made = std::malloc(size == 0 ? 1 : size);
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
