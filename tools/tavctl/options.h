#ifndef TAVCTL_OPTIONS_H
#define TAVCTL_OPTIONS_H

#include <string>
#include <vector>

#include "connection.h"
#include "interface.h"
#include "values.h"

// What several verbs take from the command line, the environment or standard input.

namespace tavctl {

// Takes the address that `words` begin with out of them if `given`. Otherwise returns that in
// TAVCTL_ADDRESS; throws a Failure if there is none.
std::string takeAddress(std::vector<std::string>& words, bool given);

// The same for words that go on with an operation, or begin with one.
std::string takeAddress(std::vector<std::string>& words);

// What is wrong with a number of seconds; empty if nothing is.
std::string secondsProblem(const std::string& text);

// Where a server is to listen.
struct ListenAddress {
    int port = 0;
    std::string text;

    std::string get() const;
};

// The credential, for verbs that may need one.
struct Credential {
    std::string file;

    // From the file, from standard input ("-"), or from TAV_CREDENTIAL in the environment. Throws
    // a Failure if there is none. Masked in all output from here on.
    std::string get() const;

    // Fills it in if the operation takes one and none is given.
    void addTo(const Operation& operation, Json& arguments) const;
};

// All of standard input. Throws a Failure if it is too long.
std::string readInput();

}  // namespace tavctl

#endif
