#include "Clock.h"

#include <time.h>

#include <atomic>

namespace {

using std::chrono::nanoseconds;

constexpr nanoseconds::rep kRuns = -1;

std::atomic<nanoseconds::rep> stoppedAt{kRuns};
std::atomic<nanoseconds::rep> passed{0};

nanoseconds::rep systemTime() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return nanoseconds(std::chrono::seconds(now.tv_sec)).count() + now.tv_nsec;
}

}  // namespace

namespace substitutes {

void passTime(std::chrono::milliseconds time) {
    passed += nanoseconds(time).count();
}

StoppedClock::StoppedClock() {
    stoppedAt = systemTime();
}

StoppedClock::~StoppedClock() {
    stoppedAt = kRuns;
    passed = 0;
}

}  // namespace substitutes

// The linker prefers this to the function of the shared library.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    const nanoseconds::rep stopped = stoppedAt;
    return time_point(nanoseconds((stopped == kRuns ? systemTime() : stopped) + passed));
}
