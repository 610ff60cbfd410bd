#ifndef TAVIDL_HOST_ADDRESS_H
#define TAVIDL_HOST_ADDRESS_H

#include <chrono>
#include <functional>
#include <string>

// Addresses, and sockets for them.

namespace TavIDL::host {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct Address {
    std::string host;
    int port = 0;
    std::string path;  // of a unix socket, if not empty

    bool isUnix() const { return !path.empty(); }
    std::string text() const;
};

enum class Role { client, server };

// Throws std::invalid_argument. Port 0 is valid only for servers.
Address addressFrom(const std::string& text, Role role);

// Owns a descriptor.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number_; }
    int release();

private:
    int number_;
};

// Disables Nagle's algorithm, which delays small messages over TCP.
void sendAtOnce(const Descriptor& socket);

// The address of a connected socket's peer.
std::string peerOf(int descriptor);

// A connected socket's local address. For a unix socket, the loopback address.
std::string localHostOf(int descriptor);

// Gets each socket before it connects, and -1 before the socket is closed or returned, so that
// another thread can end the attempt with shutdown(). May throw to end it.
using Attempt = std::function<void(int)>;

// Returns a connected socket, in blocking mode. Tries all addresses of the host name until `end`.
// Throws std::runtime_error with the reason of the last failure, and what `attempt` throws.
Descriptor connectTo(const Address& address, Clock::time_point end, const Attempt& attempt);

// A listening socket, in non-blocking mode, with its file if it is a unix socket.
class Listener {
public:
    // Throws std::system_error.
    Listener(const Address& address, unsigned unixMode);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int get() const { return descriptor_.get(); }
    // Has the port that the system chose.
    const Address& address() const { return address_; }

private:
    Address address_;
    Descriptor descriptor_;
};

}  // namespace TavIDL::host

#endif
