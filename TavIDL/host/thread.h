#ifndef TAVIDL_HOST_THREAD_H
#define TAVIDL_HOST_THREAD_H

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace TavIDL::host {

// A thread with a stack of a given size, which std::thread cannot set.
class Thread {
public:
    // `body` must not throw. Throws std::system_error.
    Thread(std::size_t stackSize, std::function<void()> body);
    // Waits for the end of the thread.
    ~Thread() { pthread_join(thread_, nullptr); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

private:
    const std::function<void()> body_;
    pthread_t thread_{};
};

}  // namespace TavIDL::host

#endif
