#include <TavIDL/host/Server.h>

#include <map>

#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

namespace {

const std::map<std::string, std::string> kServices = {
    {"broker", "TavBroker"}, {"emp", "TavEmp"}, {"event", "TavEmpEvent"}};

struct Options {
    Settings settings;
    ListenAddress address;
    std::string service;
    std::vector<std::string> replies;
    std::vector<std::string> failures;
    std::vector<std::string> delays;
};

using Texts = std::map<const Operation*, std::string>;

// Words as "OPERATION=text", for the service that is served, in addition to `texts`.
Texts textsFrom(const std::string& service, const std::vector<std::string>& words,
                const std::string& option, Texts texts = {}) {
    for (const std::string& word : words) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) {
            throw Failure(Exit::Usage, option + " takes OPERATION=..., not '" + word + "'");
        }
        const Operation& operation = operationNamed(word.substr(0, equals), service);
        if (!texts.emplace(&operation, word.substr(equals + 1)).second) {
            throw Failure(Exit::Usage, operation.name +
                                           (option == "--delay" ? " is delayed" : " is answered") +
                                           " twice; give one option for it");
        }
    }
    return texts;
}

void showCall(const Operation& operation, const Json& arguments) {
    std::string line = tinted(Tint::Value, operation.fullName());
    for (const auto& argument : arguments.items()) {
        line += " " + tinted(Tint::Name, argument.key()) + "=" +
                (argument.value() == kMasked ? kMasked : shown(argument.value()));
    }
    show({{"operation", operation.fullName()}, {"arguments", arguments}}, line + "\n");
}

int serve(const Options& options) {
    const std::string& service = kServices.at(options.service);
    const Texts replies = textsFrom(service, options.replies, "--reply");
    const Texts answers = textsFrom(service, options.failures, "--fail", replies);
    std::map<const Operation*, double> delays;
    for (const auto& [operation, text] : textsFrom(service, options.delays, "--delay")) {
        const std::string problem = seconds()(text);
        if (!problem.empty()) {
            throw Failure(Exit::Usage, "--delay " + operation->name + ": " + problem);
        }
        delays[operation] = std::stod(text);
    }
    std::map<const Operation*, Json> results;
    for (const auto& [operation, text] : replies) {
        if (operation->result.kind == Kind::Nothing) {
            throw Failure(Exit::Usage, operation->name + " is one-way and has no reply");
        }
        results[operation] = valueFrom(operation->result, text, "--reply " + operation->name);
    }

    stop::watch();
    const auto answer = [&](const Operation& operation, const Json& arguments) -> Json {
        showCall(operation, withoutSecrets(operation, arguments));
        if (const auto delay = delays.find(&operation); delay != delays.end()) {
            stop::waitFor(delay->second);
        }
        if (const auto result = results.find(&operation); result != results.end()) {
            return result->second;
        }
        if (const auto failure = answers.find(&operation); failure != answers.end()) {
            throw std::runtime_error(failure->second);
        }
        return complete(operation.result, Json(), operation.name);
    };
    TavIDL::Server server(options.address.get(), processorOf(service, answer),
                          serverSettings(options.settings));
    note("serving " + service + " on " + server.address());
    stop::wait();
    server.stop();
    return 0;
}

}  // namespace

void addServe(CLI::App& app, Run& run) {
    const auto [verb, options] = addVerb(
        app, run, serve, "serve", "Stand in for a peer and print the calls it gets",
        R"(tavctl serve emp --port 4712 --reply Open=true --fail Execute="no such command")");
    addOption(verb, "service", options->service, "broker|emp|event", "Which peer to stand in for")
        ->required()
        ->check(CLI::IsMember({"broker", "emp", "event"}));
    addOption(verb, "--reply", options->replies, "OPERATION=VALUE ...",
              "What to answer to an operation: text, a number, true or false, or a record as JSON. "
              "The default is 0, false or empty")
        ->allow_extra_args(false);
    addOption(verb, "--fail", options->failures, "OPERATION=TEXT ...",
              "Answer an operation with an application exception that has this text")
        ->allow_extra_args(false);
    addOption(verb, "--delay", options->delays, "OPERATION=SECONDS ...",
              "How long to wait before an operation is answered")
        ->allow_extra_args(false);
    addListenOptions(verb, options->address);
    addProtocolOptions(verb, options->settings);
    addTlsOptions(verb, options->settings);
}

}  // namespace tavctl
