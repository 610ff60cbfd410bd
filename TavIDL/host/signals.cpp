#include "signals.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace TavIDL::host {

namespace {

// Never closed, because a signal handler may run at any time.
int newSignalled() {
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return descriptor;
}
int signalled() {
    static const int descriptor = newSignalled();
    return descriptor;
}

void onSignal(int) {
    const int error = errno;
    wake(signalled());
    errno = error;
}

}  // namespace

void wake(int eventfd) {
    const uint64_t one = 1;
    // Other failures mean that the thread is already awake.
    while (write(eventfd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void rest(int eventfd) {
    uint64_t ignored = 0;
    (void)!read(eventfd, &ignored, sizeof ignored);
}

void waitForSignal() {
    rest(signalled());
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    struct sigaction before[2] = {};
    sigaction(SIGINT, &action, &before[0]);
    sigaction(SIGTERM, &action, &before[1]);
    pollfd waiting = {signalled(), POLLIN, 0};
    while (poll(&waiting, 1, -1) <= 0) {
    }
    sigaction(SIGINT, &before[0], nullptr);
    sigaction(SIGTERM, &before[1], nullptr);
}

}  // namespace TavIDL::host
