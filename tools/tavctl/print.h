#ifndef TAVCTL_PRINT_H
#define TAVCTL_PRINT_H

#include <atomic>
#include <string>

#include "failure.h"
#include "values.h"

namespace tavctl {

// All output. People get lines, aligned and colored on a terminal; with --json, a program gets
// one object a line. Results go to standard output; notes and errors to standard error. Texts
// come from peers: none of them can move the cursor or begin a new line.

struct Output {
    bool json = false;
    bool quiet = false;
    std::atomic<bool> lost{false};  // standard output could not be written
};
extern Output output;

// From here on masked wherever it would be shown: peers repeat what they get.
void keepSecret(const std::string& credential);

enum class Tint { Name, Value, Good, Bad, Dim };
std::string tinted(Tint tint, const std::string& text);

// A value in one line; a string in quotes, with what is not printable escaped.
std::string shown(const Json& value);

// Words of our own that may quote a peer: as shown() has them, but without the quotes.
std::string escaped(const std::string& text);

// `text` padded to `width` columns.
std::string padded(const std::string& text, std::size_t width);

// An operation's result; in one line unless it is a record.
std::string described(const Json& result);

// Text that has been made from shown() and tinted(): any number of whole lines.
void print(const std::string& lines);

// One object. Strings that are not UTF-8 become {"hex": "..."}.
void printJson(const Json& object);

// The object with --json, the lines otherwise.
void show(const Json& object, const std::string& lines);

// An event, which has the fields of TavEmpEvent.Callback.
void showEvent(const Json& event);

// This moment: "12:30:59.250" here, or "2026-01-31T11:30:59.250Z".
std::string localTime();
std::string utcTime();

// What --quiet leaves out: where it listens, that it waits.
void note(const std::string& text);

// Returns the status.
int printError(const Failure& failure);

}  // namespace tavctl

#endif
