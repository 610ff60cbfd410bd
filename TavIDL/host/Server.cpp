#include <TavIDL/host/Server.h>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thrift/TApplicationException.h>
#include <thrift/protocol/TProtocolDecorator.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "channel.h"

namespace TavIDL {

using apache::thrift::TProcessor;
using apache::thrift::protocol::TMessageType;
using apache::thrift::transport::TBufferedTransport;
using apache::thrift::transport::TTransportException;
using host::Buffer;
using host::Clock;
using host::Descriptor;
using host::Socket;

namespace {

// The buffers of a server's connection. It knows when a request begins and when it would wait.
class ServerBuffer : public Buffer {
public:
    ServerBuffer(std::shared_ptr<Socket> socket, const Settings& settings)
        : Buffer(std::move(socket), settings), settings_(settings) {}

    // Waits for the next request. Returns false if the client has closed the connection instead.
    bool peek() override {
        if (!hasInput()) {
            send();
            socket_->readLimit().set(settings_.idleTimeout);
            if (!waitForInput()) {
                return false;
            }
        }
        socket_->readLimit().set(settings_.receiveTimeout);
        return true;
    }

    // Called after each reply. While there is another request, its reply can go along.
    void flush() override {
        if (!settings_.deferReplies || !hasInput()) {
            send();
        }
    }

    void send() {
        if (hasOutput()) {
            socket_->writeLimit().set(settings_.sendTimeout);
            Buffer::flush();
        }
    }

protected:
    uint32_t readSlow(uint8_t* bytes, uint32_t count) override {
        if (!hasInput()) {
            send();  // nobody may wait for a reply while this side waits for a request
        }
        return Buffer::readSlow(bytes, count);
    }

    void writeSlow(const uint8_t* bytes, uint32_t count) override {
        socket_->writeLimit().set(settings_.sendTimeout);
        try {
            Buffer::writeSlow(bytes, count);
        } catch (...) {
            wBase_ = wBuf_.get();  // nobody may send the rest, after a gap
            throw;
        }
    }

private:
    bool waitForInput() {
        try {
            return Buffer::peek();
        } catch (const TTransportException& failure) {
            switch (failure.getType()) {
                case TTransportException::END_OF_FILE:
                    return false;  // a reset: between two calls it fails nothing
                case TTransportException::TIMED_OUT:
                    throw TTransportException("closed: the client was idle for too long");
                default:
                    throw;
            }
        }
    }

    const Settings& settings_;
};

// Notes what a call was and how it was answered, for the observer.
class ObservedProtocol : public apache::thrift::protocol::TProtocolDecorator {
public:
    using TProtocolDecorator::TProtocolDecorator;

    uint32_t readMessageBegin_virt(std::string& name, TMessageType& type, int32_t& seqid) override {
        const uint32_t bytes = TProtocolDecorator::readMessageBegin_virt(name, type, seqid);
        call.operation = name;
        return bytes;
    }

    uint32_t writeMessageBegin_virt(const std::string& name, const TMessageType type,
                                    const int32_t seqid) override {
        if (type == apache::thrift::protocol::T_EXCEPTION) {
            call.outcome = ServedCall::Refused;
        }
        return TProtocolDecorator::writeMessageBegin_virt(name, type, seqid);
    }

    ServedCall call;
};

// What runUntilSignal() waits for. The handler may only use what lives as long as the process.
int signalPipe() {
    static const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return descriptor;
}

void wake(int descriptor) {
    const uint64_t one = 1;
    // It can only fail if it is awake already.
    (void)!write(descriptor, &one, sizeof one);
}

void rest(int descriptor) {
    uint64_t ignored = 0;
    (void)!read(descriptor, &ignored, sizeof ignored);
}

void onSignal(int) {
    const int error = errno;
    wake(signalPipe());
    errno = error;
}

// std::thread cannot set the size of a stack. Returns an errno.
int startThread(pthread_t& thread, std::size_t stackSize, void* (*run)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(
        &attributes, std::max<std::size_t>(stackSize, static_cast<std::size_t>(PTHREAD_STACK_MIN)));
    const int error = pthread_create(&thread, &attributes, run, argument);
    pthread_attr_destroy(&attributes);
    return error;
}

using Raw = std::function<void(const std::shared_ptr<Connection>&)>;

template <typename Processor, typename Handler>
std::shared_ptr<TProcessor> processorOf(std::shared_ptr<Handler> handler) {
    if (!handler) {
        throw std::invalid_argument("a server needs a handler, and this is a null pointer");
    }
    return std::make_shared<Processor>(std::move(handler));
}

}  // namespace

// The threads of a server. (Not libthrift's TThreadedServer: it would print what fails, stop for
// good when descriptors run out, and give each thread the system's stack.)
class Server::Acceptor {
public:
    Acceptor(const std::string& address, const Settings& settings,
             std::shared_ptr<TProcessor> processor, Raw raw);
    ~Acceptor() { stop(false); }

    const std::string& address() const { return addressText_; }
    void stop(bool finishFirst);

private:
    // A connection and its thread.
    struct Worker {
        Worker(Acceptor& itsAcceptor, Descriptor descriptor)
            : acceptor(itsAcceptor), socket(std::make_shared<Socket>(std::move(descriptor))) {}

        Acceptor& acceptor;
        const std::shared_ptr<Socket> socket;
        pthread_t thread{};
        std::atomic<bool> busy{false};  // with a call
        bool ended = false;             // by mutex_
    };

    enum class State { serving, finishing, stopping };

    void acceptUntilStopped();
    bool acceptOne();
    void startWorker(Descriptor descriptor);
    void joinEnded();
    void waitForWake(int timeoutMs);
    void serve(Worker& worker) noexcept;
    void serveConnection(Worker& worker);
    void serveCalls(Worker& worker);
    void serveObserved(ObservedProtocol& observed, const ProtocolPointer& protocol,
                       const std::string& peer);
    void report(const std::string& failure) noexcept;
    void report(const Socket& socket, const char* failure) noexcept;
    // Reports what keeps the server from accepting, but not again and again.
    void reportOnce(const char* obstacle) noexcept;

    const Settings settings_;
    const std::shared_ptr<TProcessor> processor_;
    const Raw raw_;
    host::Address address_;
    std::unique_ptr<const host::TlsContext> tls_;
    const Descriptor wake_;
    Descriptor listener_;
    std::string addressText_;
    const char* obstacle_ = nullptr;  // what was reported last, until a connection is accepted
    std::atomic<State> state_{State::serving};
    std::mutex mutex_;  // of workers_
    std::condition_variable changed_;
    std::list<Worker> workers_;
    std::mutex stopping_;  // serializes calls of stop()
    pthread_t thread_{};
    bool running_ = false;  // by stopping_, once constructed
};

Server::Acceptor::Acceptor(const std::string& address, const Settings& settings,
                           std::shared_ptr<TProcessor> processor, Raw raw)
    : settings_(settings),
      processor_(std::move(processor)),
      raw_(std::move(raw)),
      address_(host::addressFrom(address, host::Role::server)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    host::check(settings_);
    if (!processor_ && !raw_) {
        throw std::invalid_argument("a server needs a handler, and this is a null pointer");
    }
    if (wake_.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    tls_ = host::tlsFor(settings_, address_, host::Role::server);
    listener_ = host::listenOn(address_, settings_.unixMode);
    addressText_ = address_.text();
    const int error = startThread(
        thread_, settings_.stackSize,
        [](void* argument) -> void* {
            static_cast<Acceptor*>(argument)->acceptUntilStopped();
            return nullptr;
        },
        this);
    if (error != 0) {
        listener_ = Descriptor();
        host::removeSocketFile(address_);
        throw std::system_error(error, std::generic_category(), "cannot start a thread");
    }
    running_ = true;
}

void Server::Acceptor::stop(bool finishFirst) {
    const std::lock_guard<std::mutex> once(stopping_);
    if (!running_) {
        return;
    }
    running_ = false;
    state_ = finishFirst ? State::finishing : State::stopping;
    wake(wake_.get());
    pthread_join(thread_, nullptr);
    listener_ = Descriptor();
    host::removeSocketFile(address_);

    std::unique_lock<std::mutex> lock(mutex_);
    for (const Worker& worker : workers_) {
        worker.socket->endInput();
    }
    const auto allEnded = [this] {
        return std::all_of(workers_.begin(), workers_.end(),
                           [](const Worker& worker) { return worker.ended; });
    };
    if (!changed_.wait_for(lock, settings_.stopTimeout, allEnded)) {
        state_ = State::stopping;
        for (const Worker& worker : workers_) {
            if (!worker.ended) {
                if (worker.busy) {
                    report(*worker.socket, "disconnected: its call takes longer than stopTimeout");
                }
                worker.socket->close();
            }
        }
        changed_.wait(lock, allEnded);
    }
    lock.unlock();
    joinEnded();
}

void Server::Acceptor::acceptUntilStopped() {
    for (;;) {
        joinEnded();
        const State state = state_;
        if (state == State::stopping) {
            return;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        const bool full = workers_.size() >= settings_.maxClients;
        lock.unlock();
        if (state == State::finishing) {
            if (full || !acceptOne()) {
                return;  // nobody waits any more
            }
        } else if (full) {
            reportOnce("as many connections are open as maxClients allows; others wait");
            waitForWake(-1);
        } else {
            pollfd waiting[] = {{wake_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
            poll(waiting, 2, -1);
            rest(wake_.get());
            if (waiting[1].revents != 0) {
                acceptOne();
            }
        }
    }
}

// Returns false if nobody waits.
bool Server::Acceptor::acceptOne() {
    constexpr int kRetryMs = 100;
    Descriptor accepted(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (accepted.get() >= 0) {
        startWorker(std::move(accepted));
        return true;
    }
    switch (errno) {
        case EAGAIN:
            return false;
        case EINTR:
        case ECONNABORTED:
            return true;
        default:
            // No descriptors or no memory: until a connection ends, or someone else frees some.
            reportOnce(std::strerror(errno));
            waitForWake(kRetryMs);
            return state_ == State::serving;
    }
}

void Server::Acceptor::startWorker(Descriptor descriptor) {
    try {
        host::sendAtOnce(descriptor);
        std::list<Worker> started;
        Worker& worker = started.emplace_back(*this, std::move(descriptor));
        // The thread must find itself in the list when it ends.
        const std::lock_guard<std::mutex> lock(mutex_);
        const int error = startThread(
            worker.thread, settings_.stackSize,
            [](void* argument) -> void* {
                auto& own = *static_cast<Worker*>(argument);
                own.acceptor.serve(own);
                return nullptr;
            },
            &worker);
        if (error != 0) {
            report(*worker.socket, "closed: no thread could be started for it");
            return;
        }
        workers_.splice(workers_.end(), started);
        obstacle_ = nullptr;
    } catch (const std::bad_alloc&) {
        reportOnce("a connection was closed: out of memory");
    }
}

void Server::Acceptor::joinEnded() {
    std::list<Worker> ended;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (auto worker = workers_.begin(); worker != workers_.end();) {
            const auto next = std::next(worker);
            if (worker->ended) {
                ended.splice(ended.end(), workers_, worker);
            }
            worker = next;
        }
    }
    for (const Worker& worker : ended) {
        pthread_join(worker.thread, nullptr);
    }
}

void Server::Acceptor::waitForWake(int timeoutMs) {
    pollfd waiting = {wake_.get(), POLLIN, 0};
    poll(&waiting, 1, timeoutMs);
    rest(wake_.get());
}

void Server::Acceptor::serve(Worker& worker) noexcept {
    Socket& socket = *worker.socket;
    try {
        serveConnection(worker);
    } catch (const TTransportException& failure) {
        // A server that stops ends what its clients were about to send.
        const bool expected = state_ != State::serving;
        const auto type = failure.getType();
        if (!expected) {
            report(socket,
                   type == TTransportException::END_OF_FILE
                       ? "closed by the client in the middle of a call"
                   : type == TTransportException::TIMED_OUT
                       ? "closed: the client sends its request or takes its reply too slowly"
                       : failure.what());
        }
    } catch (const std::exception& failure) {
        report(socket, failure.what());
    } catch (...) {
        report(socket, "closed: the handler threw something that is not a std::exception");
    }
    socket.closeGently();
    socket.close();
    const std::lock_guard<std::mutex> lock(mutex_);
    worker.ended = true;
    changed_.notify_all();
    wake(wake_.get());
}

void Server::Acceptor::serveConnection(Worker& worker) {
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
                    throw TTransportException("closed by the client in the TLS handshake");
                case TTransportException::TIMED_OUT:
                    throw TTransportException("closed: no TLS handshake in time");
                default:
                    throw;
            }
        }
    }
    if (raw_) {
        socket->limitEach(settings_.idleTimeout, settings_.sendTimeout);
        worker.busy = true;
        raw_(socket);
    } else {
        serveCalls(worker);
    }
}

void Server::Acceptor::serveCalls(Worker& worker) {
    const std::shared_ptr<Socket>& socket = worker.socket;
    const auto buffer = std::make_shared<ServerBuffer>(socket, settings_);
    const auto transport = host::framesOver(buffer, settings_);
    auto protocol = host::protocolOver(transport, settings_);
    std::shared_ptr<ObservedProtocol> observed;
    std::string peer;
    if (settings_.onCall) {
        protocol = observed = std::make_shared<ObservedProtocol>(protocol);
        peer = socket->peer();
    }
    const auto another = [&] {
        worker.busy.store(false, std::memory_order_relaxed);
        const bool found =
            state_ != State::stopping && transport->peek() && state_ != State::stopping;
        worker.busy.store(found, std::memory_order_relaxed);
        return found;
    };
    try {
        while (another()) {
            if (observed) {
                serveObserved(*observed, protocol, peer);
            } else {
                processor_->process(protocol, protocol, nullptr);
            }
        }
    } catch (...) {
        buffer->send();  // the replies to the calls before
        throw;
    }
    buffer->send();
}

void Server::Acceptor::serveObserved(ObservedProtocol& observed, const ProtocolPointer& protocol,
                                     const std::string& peer) {
    const auto begin = Clock::now();
    ServedCall& call = observed.call;
    call = ServedCall();
    call.peer = peer;
    const auto tell = [&] {
        call.duration = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
        try {
            settings_.onCall(call);
        } catch (...) {  // NOLINT(bugprone-empty-catch): as Settings::onCall says
        }
    };
    try {
        processor_->process(protocol, protocol, nullptr);
    } catch (...) {
        call.outcome = ServedCall::Failed;
        tell();
        throw;
    }
    tell();
}

void Server::Acceptor::report(const std::string& failure) noexcept {
    try {
        if (settings_.onFailure) {
            settings_.onFailure(failure);
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): as Settings::onFailure says
    }
}

void Server::Acceptor::report(const Socket& socket, const char* failure) noexcept {
    try {
        report(socket.peer() + ": " + failure);
    } catch (const std::bad_alloc&) {
        // There is no memory for a report.
    }
}

void Server::Acceptor::reportOnce(const char* obstacle) noexcept {
    if (obstacle_ == nullptr || std::strcmp(obstacle_, obstacle) != 0) {
        obstacle_ = obstacle;
        try {
            report(addressText_ + ": " + obstacle);
        } catch (const std::bad_alloc&) {
            // There is no memory for a report.
        }
    }
}

Server::Server(const std::string& address, std::shared_ptr<TavBrokerIf> handler,
               const Settings& settings)
    : Server(address, processorOf<TavBrokerProcessor>(std::move(handler)), settings) {
}

Server::Server(const std::string& address, std::shared_ptr<TavEmpIf> handler,
               const Settings& settings)
    : Server(address, processorOf<TavEmpProcessor>(std::move(handler)), settings) {
}

Server::Server(const std::string& address, std::shared_ptr<TavEmpEventIf> handler,
               const Settings& settings)
    : Server(address, processorOf<TavEmpEventProcessor>(std::move(handler)), settings) {
}

Server::Server(const std::string& address, std::shared_ptr<TProcessor> processor,
               const Settings& settings)
    : acceptor_(new Acceptor(address, settings, std::move(processor), nullptr)) {
}

Server::Server(const std::string& address, Raw serve, const Settings& settings)
    : acceptor_(new Acceptor(address, settings, nullptr, std::move(serve))) {
}

Server::~Server() = default;

const std::string& Server::address() const {
    return acceptor_->address();
}

void Server::runUntilSignal() {
    const int pipe = signalPipe();
    rest(pipe);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    struct sigaction before[2] = {};
    sigaction(SIGINT, &action, &before[0]);
    sigaction(SIGTERM, &action, &before[1]);
    pollfd waiting = {pipe, POLLIN, 0};
    while (poll(&waiting, 1, -1) <= 0) {
    }
    sigaction(SIGINT, &before[0], nullptr);
    sigaction(SIGTERM, &before[1], nullptr);
    stop();
}

void Server::stop() {
    acceptor_->stop(false);
}

void Server::finish() {
    acceptor_->stop(true);
}

}  // namespace TavIDL
