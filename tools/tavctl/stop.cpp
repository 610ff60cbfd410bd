#include "stop.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "print.h"

namespace tavctl::stop {

namespace {

std::mutex mutex;
// Never destroyed: the threads that watch may outlive main().
std::condition_variable& changed = *new std::condition_variable;
std::atomic<int> signalNumber{0};
std::atomic<bool> stopRequested{false};
std::atomic<bool> watched{false};
bool cleaned = false;

// Returns false if a stop was requested before.
bool firstRequest(int number) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (stopRequested) {
        return false;
    }
    signalNumber = number;
    stopRequested = true;
    changed.notify_all();
    return true;
}

// Waits for signals, and for the reader of standard output to go away.
void watchFor(int signals) {
    pollfd sources[] = {{signals, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    while (poll(sources, 2, -1) > 0 || errno == EINTR) {
        if (sources[1].revents != 0) {
            sources[1].fd = -1;
            output.lost = true;
            firstRequest(0);
        }
        signalfd_siginfo info{};
        if (sources[0].revents != 0 && read(signals, &info, sizeof info) == sizeof info &&
            !firstRequest(static_cast<int>(info.ssi_signo))) {
            _exit(128 + static_cast<int>(info.ssi_signo));
        }
    }
}

}  // namespace

void watch(std::function<void()> clean) {
    watched = true;
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {  // nohup has SIGHUP ignored
            sigaddset(&signals, number);
        }
    }
    // All threads from here on: libthrift's take only so many interruptions.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread(watchFor, signalfd(-1, &signals, SFD_CLOEXEC)).detach();
    std::thread([clean = std::move(clean)] {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [] { return stopRequested.load(); });
        lock.unlock();
        clean();
        lock.lock();
        cleaned = true;
        changed.notify_all();
    }).detach();
}

void request() {
    if (!watched) {
        _exit(static_cast<int>(Exit::Broken));
    }
    firstRequest(0);
}

void wait() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [] { return cleaned; });
}

bool waitFor(double seconds) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::duration<double>(seconds),
                            [] { return stopRequested.load(); });
}

bool requested() {
    return stopRequested;
}

int status() {
    return signalNumber == 0 ? 0 : 128 + signalNumber;
}

}  // namespace tavctl::stop
