#ifndef TAVCTL_OPTIONS_H
#define TAVCTL_OPTIONS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "connection.h"
#include "interface.h"
#include "values.h"

// Options that several verbs have.

namespace tavctl {

// Runs the verb that was given. Returns the exit status.
using Run = std::function<int()>;

// A verb with the options that all verbs have. `example` ends its help.
CLI::App* addVerb(CLI::App& app, const std::string& name, const std::string& description,
                  const std::string& example);

// The same; `body` runs it with its own options, which the caller adds.
template <typename Options>
std::pair<CLI::App*, std::shared_ptr<Options>> addVerb(CLI::App& app, Run& run,
                                                       int (*body)(const Options&),
                                                       const std::string& name,
                                                       const std::string& description,
                                                       const std::string& example) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(app, name, description, example);
    verb->callback([options, body, &run] { run = [options, body] { return body(*options); }; });
    return {verb, options};
}

// An option, or an argument if `name` has no dashes. The help shows its value as `text`.
template <typename T>
CLI::Option* addOption(CLI::App* verb, const std::string& name, T& value, const std::string& text,
                       const std::string& description) {
    return verb->add_option(name, value, description)->option_text(text);
}

// Admits numbers of seconds.
CLI::Validator seconds();

void addProtocolOptions(CLI::App* verb, Settings& settings);
void addTlsOptions(CLI::App* verb, Settings& settings);
void addClientOptions(CLI::App* verb, Settings& settings);

// Takes the address that `words` begin with out of them if `given`. Otherwise returns that in
// TAVCTL_ADDRESS; throws a Failure if there is none.
std::string takeAddress(std::vector<std::string>& words, bool given);

// The same for words that go on with an operation, or begin with one.
std::string takeAddress(std::vector<std::string>& words);

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

    // Fills it in if the operation takes one and none is given.
    void addTo(const Operation& operation, Json& arguments) const;
};
void addCredentialOption(CLI::App* verb, Credential& credential);

// All of standard input. Throws a Failure if it is too long.
std::string readInput();

}  // namespace tavctl

#endif
