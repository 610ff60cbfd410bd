#ifndef TESTS_HOST_CLOCK_H
#define TESTS_HOST_CLOCK_H

#include <chrono>

// A replacement for the steady clock, also for the library.
namespace substitutes {

// Moves the clock forward. (Waits that have begun do not end earlier.)
void passTime(std::chrono::milliseconds time);

// In its lifetime only passTime() moves the clock, however slow the machine is. Afterwards the
// clock is right again.
class StoppedClock {
public:
    StoppedClock();
    ~StoppedClock();
    StoppedClock(const StoppedClock&) = delete;
    StoppedClock& operator=(const StoppedClock&) = delete;
};

}  // namespace substitutes

#endif
