#ifndef TESTS_PROOF_SIDE_H
#define TESTS_PROOF_SIDE_H

#include <pthread.h>

namespace proof {

// In a test of both sides of a connection, the main thread calls, and the others serve.
enum class Side { any, main, others };

inline const pthread_t mainThread = pthread_self();

inline bool isOn(Side side) {
    return side == Side::any ||
           (pthread_equal(pthread_self(), mainThread) != 0) == (side == Side::main);
}

}  // namespace proof

#endif
