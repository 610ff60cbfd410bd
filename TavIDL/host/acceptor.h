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
// libthrift's TThreadedServer is not used: it prints what fails to standard error, stops for good
// when descriptors run out, and gives each thread the system's stack.

namespace TavIDL::host {

class Acceptor {
public:
    using Serve = std::function<void(const std::shared_ptr<Connection>&)>;

    // Serves with `processor`, or by `raw` if that is null.
    Acceptor(const std::string& address, Settings settings,
             std::shared_ptr<apache::thrift::TProcessor> processor, Serve raw);
    ~Acceptor();

    const std::string& address() const { return addressText_; }

    // As Server::stop() and Server::finish().
    void stop(bool finishFirst);

private:
    // A connection and its thread.
    struct Worker {
        explicit Worker(Descriptor descriptor)
            : socket(std::make_shared<Socket>(std::move(descriptor))) {}

        const std::shared_ptr<Socket> socket;
        CallCount calls{0};
        std::atomic<bool> ended{false};
        std::optional<Thread> thread;  // last: it uses the others
    };

    enum class State { serving, finishing, stopping };

    // In the accepting thread:
    void acceptUntilStopped();
    bool acceptOne();
    void startWorker(Descriptor descriptor);
    void removeEnded();
    void waitForWake(int timeoutMs);
    // In the threads of connections:
    void serve(Worker& worker) noexcept;
    void serveConnection(Worker& worker);

    void waitUntilQuiet();
    bool waitForEnds(milliseconds time);

    void report(const std::string& who, const std::string& what) noexcept;
    // Reports what keeps the server from accepting, but not again and again.
    void reportOnce(const std::string& obstacle) noexcept;

    const Settings settings_;
    const std::shared_ptr<apache::thrift::TProcessor> processor_;
    const Serve raw_;
    const Descriptor wake_;
    std::unique_ptr<const TlsContext> tls_;
    std::optional<Listener> listener_;
    std::string addressText_;
    std::string obstacle_;  // what was reported last, until a connection is accepted
    std::atomic<State> state_{State::serving};
    std::mutex stopping_;  // serializes calls of stop()

    std::list<Worker> workers_;  // the accepting thread's, and stop()'s after it
    std::mutex mutex_;           // for the ends of workers
    std::condition_variable ended_;
    std::optional<Thread> thread_;  // last: it uses the others
};

}  // namespace TavIDL::host

#endif
