#ifndef EXAMPLES_SAY_H
#define EXAMPLES_SAY_H

#include <string>

// The conversation of these processes on standard error, one line per step: when, who, what. The
// processes count milliseconds from TAV_START (seconds since the epoch) if it is set in the
// environment, else each from its own start.

// Sets the name of this process in its lines. Call it once, before starting any thread.
void sayAs(const std::string& who);

// Prints one line: its kind ("call", "reply", "event", "failed" and so on), its printable text, and
// the milliseconds that it took, if given.
void say(const std::string& kind, const std::string& text, double tookMs = -1);

// Returns `text` with '?' for every byte that is not a printable ASCII character. Text from peers
// must not be able to move the terminal's cursor or begin a new line.
std::string printable(std::string text);

// Milliseconds since the conversation began.
double now();

#endif
