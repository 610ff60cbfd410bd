#ifndef TAVCTL_STOP_H
#define TAVCTL_STOP_H

#include <functional>

// Ends the program on SIGINT, SIGTERM or SIGHUP, or because nobody reads its output any more. The
// first request ends it cleanly; a second signal at once, whatever hangs.
namespace tavctl::stop {

// From here on the first request calls `clean`, once, in a thread of its own. Without this,
// signals end the program as usual, which is right if nothing has to be cleaned up. Comes before
// any other thread is started: only those started later leave signals to it.
void watch(std::function<void()> clean = [] {});

void request();
bool requested();

// Returns once a stop is requested.
void wait();

// Returns after that time, too. Returns whether a stop was requested.
bool waitFor(double seconds);

// 128 and the signal's number, as shells have it, or 0 if the request was not a signal.
int status();

}  // namespace tavctl::stop

#endif
