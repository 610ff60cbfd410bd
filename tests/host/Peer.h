#ifndef TESTS_HOST_PEER_H
#define TESTS_HOST_PEER_H

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

// The other side of a connection, which a test controls byte by byte. Nothing here waits for time
// to pass.
namespace peers {

// A test fails after this time instead of hanging.
constexpr int kPatienceMs = 30000;

[[noreturn]] inline void failed(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Owns a descriptor.
class Handle {
public:
    explicit Handle(int number = -1) : number_(number) {}
    ~Handle() { close(); }
    Handle(Handle&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    int get() const { return number_; }
    void close() {
        if (number_ >= 0) {
            ::close(std::exchange(number_, -1));
        }
    }

private:
    int number_;
};

// A connection.
class Peer {
public:
    explicit Peer(int descriptor) : socket_(descriptor) {
        const int on = 1;
        ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const timeval patience = {kPatienceMs / 1000, 0};
        ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    int descriptor() const { return socket_.get(); }

    // Receives `count` bytes; fewer only if the other side has closed.
    std::string receive(std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t got = 0;
        while (got < count) {
            const ssize_t more = ::recv(socket_.get(), &bytes[got], count - got, 0);
            if (more < 0 && errno == EINTR) {
                continue;
            }
            if (more <= 0) {
                break;
            }
            got += static_cast<std::size_t>(more);
        }
        bytes.resize(got);
        return bytes;
    }

    // Receives everything until the end of the connection. A reset counts as the end.
    std::string receiveRest() {
        std::string all;
        for (std::string some = receive(1); !some.empty(); some = receive(65536)) {
            all += some;
        }
        return all;
    }

    // Returns false if the other side has closed.
    bool send(const std::string& bytes) {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t some =
                ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (some < 0 && errno != EINTR) {
                return false;
            }
            sent += some > 0 ? static_cast<std::size_t>(some) : 0;
        }
        return true;
    }

    // Sends each byte separately. On a unix socket, each is sent after the other side has read the
    // previous one.
    void drip(const std::string& bytes) {
        for (const char byte : bytes) {
            send(std::string(1, byte));
            waitUntilTaken();
        }
    }

    // The number of bytes that have arrived but have not been received.
    std::size_t waiting() const {
        int count = 0;
        ::ioctl(socket_.get(), FIONREAD, &count);
        return static_cast<std::size_t>(count);
    }

    // Ends sending. Receiving is still possible.
    void closeOutput() { ::shutdown(socket_.get(), SHUT_WR); }

    void close() { socket_.close(); }

    // Closes like a crashed machine: the other side gets ECONNRESET.
    void reset() {
        const linger atOnce = {1, 0};
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        socket_.close();
    }

private:
    void waitUntilTaken() {
        int family = 0;
        socklen_t size = sizeof family;
        ::getsockopt(socket_.get(), SOL_SOCKET, SO_DOMAIN, &family, &size);
        int waiting = 1;
        while (family == AF_UNIX && waiting > 0 &&
               ::ioctl(socket_.get(), TIOCOUTQ, &waiting) == 0) {
            ::sched_yield();
        }
    }

    Handle socket_;
};

inline sockaddr_un unixName(const std::string& path) {
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    return name;
}

inline bool hasIpv6() {
    const Handle probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 name = {};
    name.sin6_family = AF_INET6;
    name.sin6_addr = in6addr_loopback;
    return probe.get() >= 0 &&
           ::bind(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

// A socket with this address, which another socket with SO_REUSEADDR can have as well until one of
// the two listens.
template <typename Name>
Handle boundTo(int family, const Name& name) {
    Handle bound(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(bound.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(bound.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
        failed("bind");
    }
    return bound;
}

inline int portOf(const Handle& bound) {
    sockaddr_in6 name = {};  // the port is at the same offset as for IPv4
    socklen_t size = sizeof name;
    ::getsockname(bound.get(), reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin6_port);
}

// A port of 127.0.0.1 on which only a server of this test listens, if any: the system gives it to
// no other process.
class ReservedPort {
public:
    ReservedPort() {
        sockaddr_in name = {};
        name.sin_family = AF_INET;
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bound_ = boundTo(AF_INET, name);
    }

    int number() const { return portOf(bound_); }

private:
    Handle bound_;
};

// Listens on "127.0.0.1:PORT", "[::1]:PORT" or "unix:PATH".
class Listener {
public:
    explicit Listener(const std::string& address = "127.0.0.1:0", int backlog = 64) {
        if (address.compare(0, 5, "unix:") == 0) {
            path_ = address.substr(5);
            const sockaddr_un name = unixName(path_);
            listenAs(AF_UNIX, name, backlog);
            address_ = address;
            return;
        }
        const std::size_t colon = address.rfind(':');
        const auto port = htons(static_cast<uint16_t>(std::stoi(address.substr(colon + 1))));
        if (address[0] == '[') {
            sockaddr_in6 name = {};
            name.sin6_family = AF_INET6;
            name.sin6_addr = in6addr_loopback;
            name.sin6_port = port;
            listenAs(AF_INET6, name, backlog);
        } else {
            sockaddr_in name = {};
            name.sin_family = AF_INET;
            name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            name.sin_port = port;
            listenAs(AF_INET, name, backlog);
        }
        address_ = address.substr(0, colon + 1) + std::to_string(portOf(socket_));
    }
    ~Listener() { close(); }

    const std::string& address() const { return address_; }

    Peer accept() {
        pollfd state = {socket_.get(), POLLIN, 0};
        if (::poll(&state, 1, kPatienceMs) <= 0) {
            throw std::runtime_error("nobody connects");
        }
        const int accepted = ::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0) {
            failed("accept");
        }
        return Peer(accepted);
    }

    // Whether a connection is waiting to be accepted.
    bool hasVisitor() const {
        pollfd state = {socket_.get(), POLLIN, 0};
        return ::poll(&state, 1, 0) > 0;
    }

    void close() {
        socket_.close();
        if (!path_.empty()) {
            ::unlink(path_.c_str());
        }
    }

private:
    template <typename Name>
    void listenAs(int family, const Name& name, int backlog) {
        socket_ = boundTo(family, name);
        if (::listen(socket_.get(), backlog) != 0) {
            failed("listen");
        }
    }

    std::string path_;
    std::string address_;
    Handle socket_;
};

// A directory for sockets, with a short path.
class Directory {
public:
    Directory() {
        const char* const base = std::getenv("TMPDIR");
        path_ = std::string(base != nullptr ? base : "/tmp") + "/host-" + std::string(6, 'X');
        if (::mkdtemp(path_.data()) == nullptr) {
            failed("mkdtemp");
        }
    }
    ~Directory() { ::rmdir(path_.c_str()); }

    std::string socket(const std::string& name = "s") const { return "unix:" + path_ + "/" + name; }

private:
    std::string path_;
};

// The system's id of the calling thread.
inline long thisThread() {
    return ::syscall(SYS_gettid);
}

// Waits until the thread stays asleep in the kernel, because it is waiting for something, or ends.
inline void waitUntilAsleep(long thread) {
    const std::string status = "/proc/self/task/" + std::to_string(thread) + "/status";
    std::string before;
    // Or sleeps repeatedly, like a thread that waits for room in a unix socket's queue. (Not: or is
    // interrupted repeatedly, like a thread that is busy.)
    int naps = 0;
    for (int same = 0; same < 20 && naps < 20;) {
        std::ifstream file(status);
        if (!file) {
            return;
        }
        std::string line;
        std::string state;
        std::string switches;
        while (std::getline(file, line)) {
            if (line.compare(0, 6, "State:") == 0) {
                state = line;
            } else if (line.compare(0, 9, "voluntary") == 0) {
                switches = line;
            }
        }
        same = state.find('S') != std::string::npos &&
                       state.find("(sleeping)") != std::string::npos && switches == before
                   ? same + 1
                   : 0;
        naps += switches != before ? 1 : 0;
        before = switches;
        ::sched_yield();
    }
}

}  // namespace peers

#endif
