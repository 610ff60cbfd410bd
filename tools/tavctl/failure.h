#ifndef TAVCTL_FAILURE_H
#define TAVCTL_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace tavctl {

// How the program ends. Scripts depend on the numbers.
enum class Exit {
    Good = 0,
    False = 1,
    Usage = 2,
    NoConnection = 3,
    TimedOut = 4,
    Refused = 5,  // the peer answered with an application exception
    Broken = 6,   // a broken message, or a transport failure
};

// Ends the program with a status and one line that says what happened and where; the hint, what
// to try, ends it.
struct Failure : std::runtime_error {
    Failure(Exit exitStatus, const std::string& text, std::string whatToTry = "")
        : std::runtime_error(text), status(exitStatus), hint(std::move(whatToTry)) {}

    std::string line() const { return hint.empty() ? what() : what() + ("; " + hint); }

    Exit status;
    std::string hint;

    // What the peer answered, if it answered with an application exception.
    std::string exceptionKind;
    std::string exceptionText;
};

}  // namespace tavctl

#endif
