#ifndef TAVIDL_HOST_SIGNALS_H
#define TAVIDL_HOST_SIGNALS_H

namespace TavIDL::host {

// Waits for SIGINT or SIGTERM, and restores what both did before. Throws std::system_error if there
// is no free descriptor to wait with.
void waitForSignal();

// Wakes a thread that polls the eventfd. Signal handlers may call it.
void wake(int eventfd);
void rest(int eventfd);

}  // namespace TavIDL::host

#endif
