#ifndef TAVCTL_VERBS_H
#define TAVCTL_VERBS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "connection.h"
#include "interface.h"
#include "values.h"

// What main() runs: the verb that was given. Returns the exit status.
using Run = std::function<int()>;

// Each adds one verb, with its options, and sets `run` when it is given.
void addDescribe(CLI::App& app, Run& run);
void addCall(CLI::App& app, Run& run);
void addOpen(CLI::App& app, Run& run);
void addListen(CLI::App& app, Run& run);
void addProbe(CLI::App& app, Run& run);
void addSpy(CLI::App& app, Run& run);
void addDecode(CLI::App& app, Run& run);
void addServe(CLI::App& app, Run& run);
namespace tavctl {
void addBench(CLI::App& app, Run& run);
}

// --- What verbs share

// A verb with the options that all have. `example` ends its help.
CLI::App* addVerb(CLI::App& app, const std::string& name, const std::string& description,
                  const std::string& example);

void addProtocolOptions(CLI::App* verb, Settings& settings);
void addTlsOptions(CLI::App* verb, Settings& settings);
void addClientOptions(CLI::App* verb, Settings& settings);

// Where a server is to listen.
struct ListenAddress {
    int port = 0;
    std::string text;

    std::string get() const;
};
void addListenOptions(CLI::App* verb, ListenAddress& address);

// The credential, for verbs that may need one.
struct Credential {
    std::string file;

    // From the file, from standard input ("-"), or from TAV_CREDENTIAL in the environment. Throws
    // a Failure if there is none. Masked in all output from here on.
    std::string get() const;
};
void addCredentialOption(CLI::App* verb, Credential& credential);

// Fills in the credential if the operation takes one and none is given.
void addCredential(const Operation& operation, Json& arguments, const Credential& credential);

// All of standard input. Throws a Failure if it is too long.
std::string readInput();

// An operation's result, for people; in one line unless it is a record.
std::string described(const Json& result);

#endif
