#include "Faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace proof::faults {

namespace {

std::atomic<bool> armed{false};
std::atomic<bool> hasFired{false};
Fault current;
std::array<std::array<std::atomic<std::size_t>, 2>, kFunctions> counts;

std::atomic<std::size_t>& countOf(Function function, Side side) {
    return counts[function][side == Side::main ? 0 : 1];
}

// Counts a call. Returns whether it must fail.
bool mustFail(Function function) {
    if (!armed) {
        return false;
    }
    const std::size_t number = ++countOf(function, isOn(Side::main) ? Side::main : Side::others);
    const bool fails = function == current.function && isOn(current.side) &&
                       number >= current.number && number - current.number < current.calls;
    if (fails) {
        hasFired = true;
    }
    return fails;
}

// The library function that would have been called without this file.
template <auto Own, typename... Arguments>
auto real(Function function, Arguments... arguments) {
    static const auto next =
        reinterpret_cast<decltype(Own)>(dlsym(RTLD_NEXT, manuals()[function].name));
    return next(arguments...);
}

int failed() {
    errno = current.error;
    return -1;
}

template <auto Own, typename... Arguments>
auto pass(Function function, Arguments... arguments) {
    if (mustFail(function)) {
        return static_cast<decltype(real<Own>(function, arguments...))>(failed());
    }
    return real<Own>(function, arguments...);
}

// For calls that have their effect even if they report an error.
template <auto Own, typename... Arguments>
auto passAfterEffect(Function function, Arguments... arguments) {
    const bool fails = mustFail(function);
    const auto result = real<Own>(function, arguments...);
    return fails ? static_cast<decltype(result)>(failed()) : result;
}

// For functions that return their error.
template <auto Own, typename... Arguments>
int passReturned(Function function, Arguments... arguments) {
    if (mustFail(function)) {
        errno = ENOMEM;  // for EAI_SYSTEM
        return current.error;
    }
    return real<Own>(function, arguments...);
}

template <auto Own, typename Bytes, typename... Flags>
ssize_t transfer(Function function, int descriptor, Bytes bytes, std::size_t count,
                 Flags... flags) {
    const bool fails = mustFail(function);
    if (fails && current.error != kShort) {
        return failed();
    }
    return real<Own>(function, descriptor, bytes, fails && count > 0 ? 1 : count, flags...);
}

}  // namespace

const std::array<Manual, kFunctions>& manuals() {
    // Without those of files and flags that Host does not use. `write` only wakes a thread, through
    // an eventfd: its other errors need a wrong argument, and leave no way to continue.
    static const std::array<Manual, kFunctions> all = {{
        {"socket",
         {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT}},
        {"connect",
         {EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY, EBADF,
          ECONNREFUSED, EFAULT, EINPROGRESS, EINTR, EISCONN, ENETUNREACH, ENOTSOCK, EPROTOTYPE,
          ETIMEDOUT, EHOSTUNREACH, ENOENT}},
        {"bind",
         {EACCES, EADDRINUSE, EBADF, EINVAL, ENOTSOCK, EADDRNOTAVAIL, EFAULT, ELOOP, ENAMETOOLONG,
          ENOENT, ENOMEM, ENOTDIR, EROFS}},
        {"listen", {EADDRINUSE, EBADF, ENOTSOCK, EOPNOTSUPP}},
        {"accept4",
         {EAGAIN,   EBADF,       ECONNABORTED, EFAULT,   EINTR,        EINVAL,     EMFILE,
          ENFILE,   ENOBUFS,     ENOMEM,       ENOTSOCK, EOPNOTSUPP,   EPERM,      EPROTO,
          ENETDOWN, ENOPROTOOPT, EHOSTDOWN,    ENONET,   EHOSTUNREACH, ENETUNREACH}},
        {"getsockname", {EBADF, EFAULT, EINVAL, ENOBUFS, ENOTSOCK}},
        {"getpeername", {EBADF, EFAULT, EINVAL, ENOBUFS, ENOTCONN, ENOTSOCK}},
        {"getsockopt", {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK}},
        {"setsockopt", {EBADF, EFAULT, EINVAL, ENOPROTOOPT, ENOTSOCK, EDOM, ENOMEM}},
        {"poll", {EFAULT, EINTR, EINVAL, ENOMEM}},
        {"eventfd", {EINVAL, EMFILE, ENFILE, ENODEV, ENOMEM}},
        {"read", {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO}},
        {"write", {EAGAIN, EINTR}},
        {"recv",
         {kShort, EAGAIN, EBADF, ECONNREFUSED, ECONNRESET, EFAULT, EINTR, EINVAL, ENOMEM, ENOTCONN,
          ENOTSOCK, ETIMEDOUT}},
        {"send",
         {kShort, EACCES, EAGAIN, EALREADY, EBADF, ECONNRESET, EDESTADDRREQ, EFAULT, EINTR, EINVAL,
          EISCONN, EMSGSIZE, ENOBUFS, ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, EPIPE}},
        {"shutdown", {EBADF, EINVAL, ENOTCONN, ENOTSOCK}},
        {"close", {EBADF, EINTR, EIO, ENOSPC, EDQUOT}},
        {"fcntl", {EACCES, EAGAIN, EBADF, EINTR, EINVAL, EPERM}},
        {"open",
         {EACCES, EINTR, EINVAL, EIO, ELOOP, EMFILE, ENAMETOOLONG, ENFILE, ENODEV, ENOENT, ENOMEM,
          ENOSPC, ENOTDIR, EPERM, EROFS}},
        {"flock", {EBADF, EINTR, EINVAL, ENOLCK, EWOULDBLOCK}},
        {"lstat", {EACCES, EBADF, EFAULT, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EOVERFLOW}},
        {"unlink",
         {EACCES, EBUSY, EFAULT, EIO, EISDIR, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EPERM,
          EROFS}},
        {"chmod",
         {EACCES, EFAULT, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EPERM, EROFS}},
        {"getaddrinfo",
         {EAI_ADDRFAMILY, EAI_AGAIN, EAI_BADFLAGS, EAI_FAIL, EAI_FAMILY, EAI_MEMORY, EAI_NODATA,
          EAI_NONAME, EAI_SERVICE, EAI_SOCKTYPE, EAI_SYSTEM}},
        {"getnameinfo",
         {EAI_AGAIN, EAI_BADFLAGS, EAI_FAIL, EAI_FAMILY, EAI_MEMORY, EAI_NONAME, EAI_OVERFLOW,
          EAI_SYSTEM}},
        {"pthread_create", {EAGAIN, EINVAL, EPERM}},
    }};
    return all;
}

std::string nameOf(Function function, int error) {
    if (function == kGetaddrinfo || function == kGetnameinfo) {
        return gai_strerror(error);
    }
    return error == kShort ? "One byte" : std::strerror(error);
}

void arm(const Fault& fault) {
    current = fault;
    for (auto& sides : counts) {
        for (auto& side : sides) {
            side = 0;
        }
    }
    hasFired = false;
    armed = true;
}

void disarm() {
    armed = false;
}

bool fired() {
    return hasFired;
}

std::size_t count(Function function, Side side) {
    return countOf(function, side);
}

}  // namespace proof::faults

using namespace proof::faults;

extern "C" {
// The C library's parameter names are reserved, and its types cannot be changed.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name, readability-non-const-parameter)

int socket(int domain, int type, int protocol) noexcept {
    return pass<&socket>(kSocket, domain, type, protocol);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
    const bool goesOn = current.error == EINPROGRESS || current.error == EINTR;
    return goesOn && address->sa_family != AF_UNIX
               ? passAfterEffect<&connect>(kConnect, descriptor, address, size)
               : pass<&connect>(kConnect, descriptor, address, size);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
    return pass<&bind>(kBind, descriptor, address, size);
}

int listen(int descriptor, int backlog) noexcept {
    return pass<&listen>(kListen, descriptor, backlog);
}

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
    return pass<&accept4>(kAccept, descriptor, address, size, flags);
}

int getsockname(int descriptor, sockaddr* address, socklen_t* size) noexcept {
    return pass<&getsockname>(kGetsockname, descriptor, address, size);
}

int getpeername(int descriptor, sockaddr* address, socklen_t* size) noexcept {
    return pass<&getpeername>(kGetpeername, descriptor, address, size);
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* size) noexcept {
    return pass<&getsockopt>(kGetsockopt, descriptor, level, option, value, size);
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) noexcept {
    return pass<&setsockopt>(kSetsockopt, descriptor, level, option, value, size);
}

int poll(pollfd* descriptors, nfds_t count, int timeout) {
    return pass<&poll>(kPoll, descriptors, count, timeout);
}

int eventfd(unsigned count, int flags) noexcept {
    return pass<&eventfd>(kEventfd, count, flags);
}

ssize_t read(int descriptor, void* bytes, size_t count) {
    return pass<&read>(kRead, descriptor, bytes, count);
}

// EAGAIN: the eventfd's count is at its limit, which wakes a thread, too.
ssize_t write(int descriptor, const void* bytes, size_t count) {
    return current.error == EAGAIN ? passAfterEffect<&write>(kWrite, descriptor, bytes, count)
                                   : pass<&write>(kWrite, descriptor, bytes, count);
}

ssize_t recv(int descriptor, void* bytes, size_t count, int flags) {
    return transfer<&recv>(kRecv, descriptor, bytes, count, flags);
}

ssize_t send(int descriptor, const void* bytes, size_t count, int flags) {
    return transfer<&send>(kSend, descriptor, bytes, count, flags);
}

int shutdown(int descriptor, int how) noexcept {
    return pass<&shutdown>(kShutdown, descriptor, how);
}

int close(int descriptor) {
    return passAfterEffect<&close>(kClose, descriptor);
}

int fcntl(int descriptor, int command, ...) {
    va_list rest;
    va_start(rest, command);
    const long argument = va_arg(rest, long);
    va_end(rest);
    return pass<&fcntl>(kFcntl, descriptor, command, argument);
}

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    return pass<&open>(kOpen, path, flags, mode);
}

int flock(int descriptor, int operation) noexcept {
    return pass<&flock>(kFlock, descriptor, operation);
}

int lstat(const char* path, struct stat* file) noexcept {
    return pass<&lstat>(kLstat, path, file);
}

int unlink(const char* path) noexcept {
    return pass<&unlink>(kUnlink, path);
}

int chmod(const char* path, mode_t mode) noexcept {
    return pass<&chmod>(kChmod, path, mode);
}

int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found) {
    return passReturned<&getaddrinfo>(kGetaddrinfo, name, service, hints, found);
}

int getnameinfo(const sockaddr* address, socklen_t size, char* host, socklen_t hostSize,
                char* service, socklen_t serviceSize, int flags) {
    return passReturned<&getnameinfo>(kGetnameinfo, address, size, host, hostSize, service,
                                      serviceSize, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    return passReturned<&pthread_create>(kPthreadCreate, thread, attributes, body, argument);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name, readability-non-const-parameter)
}  // extern "C"
