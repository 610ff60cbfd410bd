#ifndef TAVCTL_STOP_H
#define TAVCTL_STOP_H

#include <functional>

namespace tavctl {

// Ends the program when it is told to: by SIGINT, SIGTERM or SIGHUP, or because nobody reads its
// output any more. The first time cleanly; a second signal at once, whatever hangs.
namespace stop {

// From here on the first request calls `clean`, once, in a thread of its own. Without this,
// signals end the program as they always do, which is right where nothing has to be cleaned up.
// Comes before any other thread is started: only those started later leave signals to it.
void watch(std::function<void()> clean = [] {});

void request();
bool requested();

// Returns once a stop is requested.
void wait();

// 128 and the signal's number, as shells have it, or 0 if the request was no signal.
int status();

}  // namespace stop

}  // namespace tavctl

#endif
