#include "stop.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "failure.h"

namespace tavctl {

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

}  // namespace

namespace stop {

void watch(std::function<void()> clean) {
    watched = true;
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        if (number != SIGHUP || action.sa_handler != SIG_IGN) {  // nohup wants it ignored
            sigaddset(&signals, number);
        }
    }
    // All threads from here on: libthrift's take only so many interruptions.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        for (int number = 0; sigwait(&signals, &number) == 0;) {
            if (!firstRequest(number)) {
                _exit(128 + number);
            }
        }
    }).detach();
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

bool requested() {
    return stopRequested;
}

int status() {
    return signalNumber == 0 ? 0 : 128 + signalNumber;
}

}  // namespace stop

}  // namespace tavctl
