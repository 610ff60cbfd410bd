#include "acceptor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "channel.h"
#include "serve.h"
#include "signals.h"

namespace TavIDL::host {

using apache::thrift::TProcessor;
using apache::thrift::transport::TTransportException;

Acceptor::Acceptor(const std::string& address, Settings settings,
                   std::shared_ptr<TProcessor> processor, Serve raw)
    : settings_(std::move(settings)),
      processor_(std::move(processor)),
      raw_(std::move(raw)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    check(settings_);
    if (!processor_ && !raw_) {
        throw std::invalid_argument("a server needs a handler, but got a null pointer");
    }
    if (wake_.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    const Address wanted = addressFrom(address, Role::server);
    tls_ = tlsFor(settings_, wanted, Role::server);
    listener_.emplace(wanted, settings_.unixMode);
    addressText_ = listener_->address().text();
    thread_.emplace(settings_.stackSize, [this] { acceptUntilStopped(); });
}

Acceptor::~Acceptor() {
    stop(false);
}

void Acceptor::stop(bool finishFirst) {
    const std::lock_guard<std::mutex> once(stopping_);
    state_ = finishFirst ? State::finishing : State::stopping;
    wake(wake_.get());
    thread_.reset();
    listener_.reset();
    if (finishFirst) {
        waitUntilQuiet();
    }
    for (const Worker& worker : workers_) {
        worker.socket->endInput();
    }
    if (!waitForEnds(settings_.stopTimeout)) {
        state_ = State::stopping;
        for (const Worker& worker : workers_) {
            if (!worker.ended) {
                if (isBusy(worker.calls)) {
                    report(*worker.socket, "disconnected: its call takes longer than stopTimeout");
                }
                worker.socket->close();
            }
        }
    }
    workers_.clear();  // waits for their threads
}

// Returns when the clients have closed their connections or stopped sending. What they have sent
// may still be in the system's buffers and arrive in pieces.
void Acceptor::waitUntilQuiet() {
    constexpr milliseconds kQuiet(50);
    const auto end = Clock::now() + settings_.stopTimeout;
    std::vector<unsigned> before;
    for (bool quiet = false; !quiet && Clock::now() < end;) {
        std::vector<unsigned> calls;
        for (const Worker& worker : workers_) {
            calls.push_back(worker.ended ? 0 : worker.calls.load());
        }
        quiet = calls == before && std::none_of(calls.begin(), calls.end(), isBusy);
        before = std::move(calls);
        if (!quiet) {
            waitForEnds(kQuiet);
        }
    }
}

// Returns whether all connections have ended.
bool Acceptor::waitForEnds(milliseconds time) {
    std::unique_lock<std::mutex> lock(mutex_);
    return ended_.wait_for(lock, time, [this] {
        return std::all_of(workers_.begin(), workers_.end(),
                           [](const Worker& worker) { return worker.ended.load(); });
    });
}

void Acceptor::acceptUntilStopped() {
    // At most this many wait when finish() is called. Without a limit, clients that connect faster
    // than they are accepted would keep it from ending.
    int leftToFinish = SOMAXCONN;
    for (;;) {
        removeEnded();
        const State state = state_;
        if (state == State::stopping) {
            return;
        }
        const bool full = workers_.size() >= settings_.maxClients;
        if (state == State::finishing) {
            if (full || leftToFinish-- == 0 || !acceptOne()) {
                return;
            }
        } else if (full) {
            reportOnce("maxClients connections are open; further ones wait");
            waitForWake(-1);
        } else {
            pollfd waiting[] = {{wake_.get(), POLLIN, 0}, {listener_->get(), POLLIN, 0}};
            poll(waiting, 2, -1);
            rest(wake_.get());
            if (waiting[1].revents != 0) {
                acceptOne();
            }
        }
    }
}

// Returns false if no connection is waiting or can be accepted.
bool Acceptor::acceptOne() {
    constexpr int kRetryMs = 100;
    Descriptor accepted(accept4(listener_->get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (accepted.get() >= 0) {
        startWorker(std::move(accepted));
        return true;
    }
    const int error = errno;
    if (error == EINTR || error == ECONNABORTED) {
        return true;
    }
    if (error != EAGAIN) {
        // Out of descriptors or memory: wait until a connection ends, or retry in case others free
        // some.
        reportOnce("cannot accept connections: ", std::strerror(error));
        waitForWake(kRetryMs);
    }
    return false;
}

void Acceptor::startWorker(Descriptor descriptor) {
    sendAtOnce(descriptor);
    std::list<Worker> started;
    try {
        Worker& worker = started.emplace_back(std::move(descriptor));
        if (raw_) {
            ++worker.calls;  // from here on: finish() may come before the thread begins
        }
        worker.thread.emplace(settings_.stackSize, [this, &worker] { serve(worker); });
    } catch (const std::exception& failure) {
        reportOnce("a connection was closed: ", failure.what());
        return;
    }
    obstacle_.clear();
    workers_.splice(workers_.end(), started);
}

void Acceptor::removeEnded() {
    workers_.remove_if([](const Worker& worker) { return worker.ended.load(); });
}

void Acceptor::waitForWake(int timeoutMs) {
    pollfd waiting = {wake_.get(), POLLIN, 0};
    poll(&waiting, 1, timeoutMs);
    rest(wake_.get());
}

void Acceptor::serve(Worker& worker) noexcept {
    Socket& socket = *worker.socket;
    try {
        serveConnection(worker);
    } catch (const TTransportException& failure) {
        const auto type = failure.getType();
        if (state_ != State::serving) {
            // The server is stopping and has ended its clients' input: not a failure.
        } else if (type == TTransportException::END_OF_FILE) {
            report(socket, "closed by the client in the middle of a call");
        } else if (type == TTransportException::TIMED_OUT) {
            report(socket, "closed: sends a request or reads a reply too slowly");
        } else {
            report(socket, "closed: ", failure.what());
        }
    } catch (const std::exception& failure) {
        report(socket, "closed: ", failure.what());
    } catch (...) {
        report(socket, "closed: the handler threw something that is not a std::exception");
    }
    socket.closeGently();
    socket.close();
    const std::lock_guard<std::mutex> lock(mutex_);
    worker.ended = true;
    ended_.notify_all();
    wake(wake_.get());
}

void Acceptor::serveConnection(Worker& worker) {
    const std::shared_ptr<Socket>& socket = worker.socket;
    if (tls_) {
        const auto end = Clock::now() + settings_.receiveTimeout;
        socket->readLimit().until(end);
        socket->writeLimit().until(end);
        try {
            socket->startTls(*tls_, "");
        } catch (const TTransportException& failure) {
            switch (failure.getType()) {
                case TTransportException::END_OF_FILE:
                    throw TTransportException("the client ended the TLS handshake");
                case TTransportException::TIMED_OUT:
                    throw TTransportException("no TLS handshake in time");
                default:
                    throw;
            }
        }
    }
    if (processor_) {
        serveCalls(
            socket, *processor_, settings_, [this] { return state_ == State::stopping; },
            worker.calls);
    } else {
        socket->limitEach(settings_.idleTimeout, settings_.sendTimeout);
        raw_(socket);
    }
}

void Acceptor::report(const Socket& socket, const char* what, const char* reason) noexcept {
    try {
        if (settings_.onFailure) {
            settings_.onFailure(socket.peer() + ": " + what + reason);
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): as Settings::onFailure says, or no memory
    }
}

void Acceptor::reportOnce(const char* what, const char* reason) noexcept {
    try {
        std::string obstacle = addressText_ + ": " + what + reason;
        if (obstacle_ != obstacle) {
            obstacle_ = std::move(obstacle);
            if (settings_.onFailure) {
                settings_.onFailure(obstacle_);
            }
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): the same
    }
}

}  // namespace TavIDL::host
