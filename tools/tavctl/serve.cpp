#include <TavIDL/host/Server.h>

#include <map>

#include "connection.h"
#include "failure.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace {

struct Options {
    Settings settings;
    ListenAddress address;
    std::string service;
    std::vector<std::string> replies;
    std::vector<std::string> failures;
};

// "OPERATION=text" of the service that is served.
std::pair<const Operation*, std::string> split(const std::string& service, const std::string& word,
                                               const char* option) {
    const auto equals = word.find('=');
    if (equals == std::string::npos) {
        throw Failure(Exit::Usage,
                      std::string(option) + " takes OPERATION=..., not '" + word + "'");
    }
    return {&operationNamed(service + "." + word.substr(0, equals)), word.substr(equals + 1)};
}

void refuseSecond(std::size_t given, const Operation& operation) {
    if (given != 0) {
        throw Failure(Exit::Usage,
                      operation.name + " is answered twice; give one --reply or --fail for it");
    }
}

int serve(const Options& options) {
    const std::map<std::string, std::string> services = {
        {"broker", "TavBroker"}, {"emp", "TavEmp"}, {"event", "TavEmpEvent"}};
    const std::string& service = services.at(options.service);
    std::map<const Operation*, Json> results;
    std::map<const Operation*, std::string> failures;
    for (const std::string& word : options.replies) {
        const auto reply = split(service, word, "--reply");
        refuseSecond(results.count(reply.first), *reply.first);
        if (reply.first->result.kind == Kind::Nothing) {
            throw Failure(Exit::Usage, reply.first->name + " is one-way and has no reply");
        }
        results[reply.first] =
            valueFrom(reply.first->result, reply.second, "--reply " + reply.first->name);
    }
    for (const std::string& word : options.failures) {
        const auto failure = split(service, word, "--fail");
        refuseSecond(results.count(failure.first) + failures.count(failure.first), *failure.first);
        failures.insert(failure);
    }

    stop::watch();
    TavIDL::Server server(
        options.address.get(),
        processorOf(
            service,
            [&](const Operation& operation, const Json& arguments) -> Json {
                const Json shownArguments = withoutSecrets(operation, arguments);
                if (output.json) {
                    printJson({{"operation", operation.fullName()}, {"arguments", shownArguments}});
                } else {
                    std::string line = tinted(Tint::Value, operation.fullName());
                    for (const auto& argument : shownArguments.items()) {
                        line += " " + tinted(Tint::Name, argument.key()) + "=" +
                                (argument.value() == kMasked ? kMasked : shown(argument.value()));
                    }
                    print(line + "\n");
                }
                const auto failure = failures.find(&operation);
                if (failure != failures.end()) {
                    throw std::runtime_error(failure->second);
                }
                const auto result = results.find(&operation);
                return result != results.end() ? result->second
                                               : complete(operation.result, Json(), operation.name);
            }),
        serverSettings(options.settings));
    note("serving " + service + " on " + server.address());
    stop::wait();
    server.stop();
    return 0;
}

}  // namespace

void addServe(CLI::App& app, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(
        app, "serve", "Stand in for a peer, and print the calls that come",
        R"(tavctl serve emp --port 4712 --reply Open=true --fail Execute="no such command")");
    verb->add_option("service", options->service, "Which peer to stand in for")
        ->required()
        ->check(CLI::IsMember({"broker", "emp", "event"}))
        ->option_text("broker|emp|event");
    verb->add_option("--reply", options->replies,
                     "What to answer to an operation: text, a number, true or false, or a record "
                     "as JSON. Without this 0, false or empty")
        ->allow_extra_args(false)
        ->option_text("OPERATION=VALUE ...");
    verb->add_option("--fail", options->failures,
                     "With what text to fail an operation, as an application exception")
        ->allow_extra_args(false)
        ->option_text("OPERATION=TEXT ...");
    addListenOptions(verb, options->address);
    addProtocolOptions(verb, options->settings);
    addTlsOptions(verb, options->settings);
    verb->callback([options, &run] { run = [options] { return serve(*options); }; });
}
