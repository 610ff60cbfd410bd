#include "stop.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "failure.h"

namespace {

int requests[2] = {-1, -1};  // a pipe: what a signal handler may write to
std::atomic<int> signalNumber{0};
std::atomic<bool> stopRequested{false};
std::mutex mutex;
// Never destroyed: the thread that watches may outlive main().
std::condition_variable& changed = *new std::condition_variable;
bool cleaned = false;

void onSignal(int number) {
    if (stopRequested.exchange(true)) {
        _exit(128 + number);
    }
    signalNumber = number;
    const int error = errno;
    if (write(requests[1], "", 1) < 0) {
        _exit(128 + number);
    }
    errno = error;
}

void waitForByte(int descriptor) {
    char byte = 0;
    while (read(descriptor, &byte, 1) < 0 && errno == EINTR) {
    }
}

}  // namespace

namespace stop {

void watch(std::function<void()> clean) {
    if (pipe(requests) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (number != SIGHUP || before.sa_handler != SIG_IGN) {  // nohup wants it ignored
            sigaction(number, &action, nullptr);
        }
    }
    std::thread([clean = std::move(clean)] {
        waitForByte(requests[0]);
        clean();
        const std::lock_guard<std::mutex> lock(mutex);
        cleaned = true;
        changed.notify_all();
    }).detach();
}

void request() {
    if (!stopRequested.exchange(true)) {
        if (write(requests[1], "", 1) < 0) {
            _exit(static_cast<int>(Exit::Broken));  // nobody watches
        }
    }
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
