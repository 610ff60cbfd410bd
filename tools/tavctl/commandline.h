#ifndef TAVCTL_COMMANDLINE_H
#define TAVCTL_COMMANDLINE_H

#include <CLI/CLI.hpp>
#include <functional>

namespace tavctl {

// Runs the verb that was given. Returns the exit status.
using Run = std::function<int()>;

// Adds all verbs with their options. Parsing the command line then sets `run`.
void addVerbs(CLI::App& app, Run& run);

}  // namespace tavctl

#endif
