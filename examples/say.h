#ifndef EXAMPLES_SAY_H
#define EXAMPLES_SAY_H

#include <string>

// The conversation of these processes, a line at a time on standard error: when, who, what.
// All of one conversation count their milliseconds from TAV_START (seconds since the epoch) if
// that is set in their environment, else each from its own start.

// Names this process in its lines. Call it once, before any thread is started.
void sayAs(const std::string& who);

// One line: its kind ("call", "reply", "event", "failed" and so on), its text, and the
// milliseconds that it took if they are given. Shows what is printable.
void say(const std::string& kind, const std::string& text, double tookMs = -1);

// `text` with '?' for every byte that is no printable character of ASCII. Texts come from peers
// and go to terminals and into lines: they must not move a cursor, nor begin a line of their own.
std::string printable(std::string text);

// Milliseconds since the conversation began.
double now();

#endif
