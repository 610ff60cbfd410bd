#include "thread.h"

#include <limits.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace TavIDL::host {

Thread::Thread(std::size_t stackSize, std::function<void()> body) : body_(std::move(body)) {
    const auto smallest = static_cast<std::size_t>(PTHREAD_STACK_MIN);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::max(stackSize, smallest));
    const int error = pthread_create(
        &thread_, &attributes,
        [](void* thread) -> void* {
            static_cast<Thread*>(thread)->body_();
            return nullptr;
        },
        this);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot start a thread");
    }
}

}  // namespace TavIDL::host
