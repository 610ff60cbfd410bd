#ifndef TAVIDL_HOST_ACCEPTOR_H
#define TAVIDL_HOST_ACCEPTOR_H

#include <TavIDL/host/Server.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "serve.h"
#include "socket.h"
#include "thread.h"

// The threads of a server: one that accepts connections, and one for each connection.
//
// Why not libthrift's TThreadedServer: it prints failures to standard error, stops permanently when
// descriptors run out, and gives each thread the system's default stack.

namespace TavIDL::host {

class Acceptor {
public:
    using Serve = std::function<void(const std::shared_ptr<Connection>&)>;

    // Serves with `processor`, or with `raw` if that is null.
    Acceptor(const std::string& address, Settings settings,
             std::shared_ptr<apache::thrift::TProcessor> processor, Serve raw);
    ~Acceptor();

    const std::string& address() const { return addressText_; }

    // Like Server::stop(), or Server::finish().
    void stop(bool finishFirst);

private:
    // A connection and its thread.
    struct Worker {
        explicit Worker(Descriptor descriptor)
            : socket(std::make_shared<Socket>(std::move(descriptor))) {}

        const std::shared_ptr<Socket> socket;
        CallCount calls{0};
        std::atomic<bool> ended{false};
        std::optional<Thread> thread;  // last: it uses the other members
    };

    enum class State { serving, finishing, stopping };

    // Run by the accepting thread:
    void acceptUntilStopped();
    bool acceptOne();
    void startWorker(Descriptor descriptor);
    void removeEnded();
    void waitForWake(int timeoutMs);
    // Run by the connections' threads:
    void serve(Worker& worker) noexcept;
    void serveConnection(Worker& worker);

    void waitUntilQuiet();
    bool waitForEnds(milliseconds time);

    // Both make the text themselves, so that they can be called when memory has run out.
    void report(const Socket& socket, const char* what, const char* reason = "") noexcept;
    // Reports why the server cannot accept connections, but not repeatedly.
    void reportOnce(const char* what, const char* reason = "") noexcept;

    const Settings settings_;
    const std::shared_ptr<apache::thrift::TProcessor> processor_;
    const Serve raw_;
    const Descriptor wake_;
    std::unique_ptr<const TlsContext> tls_;
    std::optional<Listener> listener_;
    std::string addressText_;
    std::string obstacle_;  // reported last; empty once a connection is accepted
    std::atomic<State> state_{State::serving};
    std::mutex stopping_;  // serializes calls of stop()

    std::list<Worker> workers_;  // used by the accepting thread, then by stop()
    std::mutex mutex_;           // for Worker::ended
    std::condition_variable ended_;
    std::optional<Thread> thread_;  // last: it uses the other members
};

}  // namespace TavIDL::host

#endif
