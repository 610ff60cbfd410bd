#include "address.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace TavIDL::host {

namespace {

constexpr std::size_t kLongestPath = sizeof(sockaddr_un::sun_path) - 1;

[[noreturn]] void failed(const std::string& what, int error = errno) {
    throw std::system_error(error, std::generic_category(), what);
}

using AddressList = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

AddressList lookUp(const Address& address) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error =
        getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
    if (error != 0) {
        throw std::runtime_error(
            "cannot find the host '" + address.host +
            "': " + (error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error)));
    }
    return {found, freeaddrinfo};
}

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, kLongestPath);
    return address;
}

template <typename T>
const sockaddr* generic(const T& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

template <typename T>
sockaddr* generic(T& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

// Empty if the system fails.
std::string numericHost(const sockaddr_storage& address, socklen_t size) {
    char host[NI_MAXHOST] = "";
    const int error =
        getnameinfo(generic(address), size, host, sizeof host, nullptr, 0, NI_NUMERICHOST);
    return error == 0 ? host : "";
}

int portOf(const sockaddr_storage& address) {
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

std::string bracketed(const std::string& host) {
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

void setBlocking(int descriptor) {
    if (fcntl(descriptor, F_SETFL, 0) != 0) {  // the sockets here have no other flag
        failed("fcntl");
    }
}

void enable(int descriptor, int level, int option) {
    const int on = 1;
    setsockopt(descriptor, level, option, &on, sizeof on);
}

int millisecondsLeft(Clock::time_point end) {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::clamp<milliseconds::rep>(left, 0, INT_MAX));
}

// Waits until a connect() has finished. Returns an errno.
int finishConnecting(int descriptor, Clock::time_point end) {
    pollfd waiting = {descriptor, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&waiting, 1, millisecondsLeft(end));
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) {
        return ready == 0 ? ETIMEDOUT : errno;
    }
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// A unix socket connects immediately unless its server's queue is full. Then the system does not
// say when there is room again, so this retries.
int connectUnix(int descriptor, const std::string& path, Clock::time_point end,
                const Attempt& attempt) {
    constexpr milliseconds kRetry(5);
    const sockaddr_un name = unixAddress(path);
    for (;;) {
        if (connect(descriptor, generic(name), sizeof name) == 0) {
            return 0;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return errno;
        }
        if (millisecondsLeft(end) == 0) {
            return ETIMEDOUT;
        }
        std::this_thread::sleep_for(kRetry);
        attempt(descriptor);  // throws if the call was cancelled meanwhile
    }
}

Descriptor newSocket(int family, int flags) {
    const int number = socket(family, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
    if (number < 0) {
        failed("cannot make a socket");
    }
    return Descriptor(number);
}

// Serializes the servers that start in the same directory: no other server may interfere between
// checking a file and replacing it.
class DirectoryLock {
public:
    explicit DirectoryLock(const std::string& path)
        : directory_(open(path.find('/') == std::string::npos
                              ? "."
                              : path.substr(0, path.rfind('/') + 1).c_str(),
                          O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        // If it cannot be opened, bind() will report why. A process that never releases the lock
        // must not prevent servers from starting.
        for (int tries = 100;
             tries > 0 && flock(directory_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
             --tries) {
            std::this_thread::sleep_for(milliseconds(10));
        }
    }

private:
    Descriptor directory_;
};

// Whether the file belongs to a server that no longer runs.
bool isAbandoned(const std::string& path) {
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) {
        return false;
    }
    const Descriptor probe = newSocket(AF_UNIX, SOCK_NONBLOCK);
    const sockaddr_un name = unixAddress(path);
    return connect(probe.get(), generic(name), sizeof name) != 0 && errno == ECONNREFUSED;
}

Descriptor listenOnPath(const std::string& path, unsigned mode) {
    Descriptor listener = newSocket(AF_UNIX, SOCK_NONBLOCK);
    const DirectoryLock lock(path);
    if (isAbandoned(path)) {
        unlink(path.c_str());
    }
    const sockaddr_un name = unixAddress(path);
    // Clients cannot connect before listen(), so not before the permissions are set.
    if (bind(listener.get(), generic(name), sizeof name) != 0) {
        failed("cannot listen on unix:" + path);
    }
    if (chmod(path.c_str(), mode) != 0 || listen(listener.get(), SOMAXCONN) != 0) {
        const int error = errno;
        unlink(path.c_str());
        failed("cannot listen on unix:" + path, error);
    }
    return listener;
}

Descriptor listenOnPort(Address& address) {
    AddressList found(nullptr, freeaddrinfo);
    try {
        found = lookUp(address);
    } catch (const std::runtime_error& failure) {
        throw std::system_error(EADDRNOTAVAIL, std::generic_category(), failure.what());
    }
    Descriptor listener = newSocket(found->ai_family, SOCK_NONBLOCK);
    // Lets a server start while connections of its last run are in TIME_WAIT.
    enable(listener.get(), SOL_SOCKET, SO_REUSEADDR);
    sockaddr_storage bound = {};
    socklen_t size = sizeof bound;
    if (bind(listener.get(), found->ai_addr, found->ai_addrlen) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0 ||
        getsockname(listener.get(), generic(bound), &size) != 0) {
        failed("cannot listen on " + address.text());
    }
    address.port = portOf(bound);
    return listener;
}

}  // namespace

std::string Address::text() const {
    return isUnix() ? "unix:" + path : bracketed(host) + ":" + std::to_string(port);
}

Address addressFrom(const std::string& text, Role role) {
    Address address;
    if (text.compare(0, 5, "unix:") == 0) {
        address.path = text.substr(5);
        if (address.path.empty() || address.path.size() > kLongestPath ||
            address.path.find('\0') != std::string::npos) {
            throw std::invalid_argument("'" + text + "' is not a valid address: a path has 1 to " +
                                        std::to_string(kLongestPath) + " bytes");
        }
        return address;
    }
    const auto colon = text.rfind(':');
    address.host = text.substr(0, colon);
    const bool inBrackets =
        !address.host.empty() && address.host.front() == '[' && address.host.back() == ']';
    if (inBrackets) {
        address.host = address.host.substr(1, address.host.size() - 2);
    } else if (address.host.empty()) {
        address.host = "127.0.0.1";
    }
    const int lowest = role == Role::server ? 0 : 1;
    const char* const end = text.data() + text.size();
    const char* const begin = colon == std::string::npos ? end : text.data() + colon + 1;
    const auto parsed = std::from_chars(begin, end, address.port);
    constexpr std::string_view kForbidden("[]/\0", 4);
    const bool isIpv6 = address.host.find(':') != std::string::npos;
    if (parsed.ec != std::errc() || parsed.ptr != end || address.port < lowest ||
        address.port > 65535 || inBrackets != isIpv6 ||
        address.host.find_first_of(kForbidden) != std::string::npos) {
        throw std::invalid_argument("'" + text +
                                    "' is not a valid address; write HOST:PORT, [IPV6]:PORT, "
                                    ":PORT (this machine) or unix:PATH, with a port from " +
                                    std::to_string(lowest) + " to 65535");
    }
    return address;
}

void sendAtOnce(const Descriptor& socket) {
    enable(socket.get(), IPPROTO_TCP, TCP_NODELAY);  // has no effect on a unix socket
}

std::string peerOf(int descriptor) {
    sockaddr_storage address = {};  // which has no family if the system fails
    socklen_t size = sizeof address;
    getpeername(descriptor, generic(address), &size);
    if (address.ss_family == AF_UNIX) {
        // Clients of unix sockets have no address, but the system knows their process.
        ucred process = {};
        socklen_t length = sizeof process;
        getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &process, &length);
        return "unix: process " + std::to_string(process.pid);
    }
    const std::string host = numericHost(address, size);
    return host.empty() ? "unknown" : bracketed(host) + ":" + std::to_string(portOf(address));
}

std::string localHostOf(int descriptor) {
    sockaddr_storage local = {};
    socklen_t size = sizeof local;
    // If this fails, there is no family, so numericHost() fails.
    getsockname(descriptor, generic(local), &size);
    if (local.ss_family == AF_UNIX) {
        return "127.0.0.1";
    }
    std::string host = numericHost(local, size);
    if (host.empty()) {
        throw std::runtime_error("cannot get the connection's local address");
    }
    return host;
}

Descriptor::~Descriptor() {
    if (number_ >= 0) {
        ::close(number_);
    }
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

int Descriptor::release() {
    return std::exchange(number_, -1);
}

Descriptor connectTo(const Address& address, Clock::time_point end, const Attempt& attempt) {
    AddressList found(nullptr, freeaddrinfo);
    if (!address.isUnix()) {
        found = lookUp(address);
    }
    int error = 0;
    const addrinfo* target = found.get();
    do {
        Descriptor socket =
            newSocket(address.isUnix() ? AF_UNIX : target->ai_family, SOCK_NONBLOCK);
        attempt(socket.get());
        if (address.isUnix()) {
            error = connectUnix(socket.get(), address.path, end, attempt);
        } else {
            sendAtOnce(socket);
            error = connect(socket.get(), target->ai_addr, target->ai_addrlen) == 0 ? 0 : errno;
            if (error == EINPROGRESS || error == EINTR) {
                // An address that does not answer must leave time for the remaining ones.
                int untried = 1;
                for (const addrinfo* next = target->ai_next; next != nullptr;
                     next = next->ai_next) {
                    ++untried;
                }
                const auto now = Clock::now();
                error = finishConnecting(socket.get(), now + (end - now) / untried);
            }
            target = target->ai_next;
        }
        attempt(-1);
        if (error == 0) {
            setBlocking(socket.get());
            return socket;
        }
    } while (target != nullptr);
    throw std::runtime_error(std::strerror(error));
}

Listener::Listener(const Address& address, unsigned unixMode)
    : address_(address),
      descriptor_(address.isUnix() ? listenOnPath(address.path, unixMode)
                                   : listenOnPort(address_)) {
}

Listener::~Listener() {
    descriptor_ = Descriptor();
    if (!address_.isUnix()) {
        return;
    }
    try {
        const DirectoryLock lock(address_.path);
        if (isAbandoned(address_.path)) {  // not the file of the next server
            unlink(address_.path.c_str());
        }
    } catch (const std::exception&) {
        // Out of memory or descriptors. The next server replaces the file.
    }
}

}  // namespace TavIDL::host
