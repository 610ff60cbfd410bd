#ifndef TAVIDL_HOST_SIGNALS_H
#define TAVIDL_HOST_SIGNALS_H

namespace TavIDL::host {

// Returns after SIGINT or SIGTERM, which do what they did before from then on.
void waitForSignal();

// An eventfd, by which a thread or a signal handler wakes another thread that polls it.
void wake(int eventfd);
void rest(int eventfd);

}  // namespace TavIDL::host

#endif
