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

}  // namespace

int serve(const ServeOptions& options) {
    const std::string& service = kServices.at(options.service);
    const Texts replies = textsFrom(service, options.replies, "--reply");
    const Texts answers = textsFrom(service, options.failures, "--fail", replies);
    std::map<const Operation*, double> delays;
    for (const auto& [operation, text] : textsFrom(service, options.delays, "--delay")) {
        const std::string problem = secondsProblem(text);
        if (!problem.empty()) {
            throw Failure(Exit::Usage, "--delay " + operation->name + ": " + problem);
        }
        delays[operation] = std::stod(text);
    }
    std::map<const Operation*, Json> results;
    for (const auto& answer : answers) {
        if (answer.first->result.kind == Kind::Nothing) {
            throw Failure(Exit::Usage, answer.first->name + " is one-way and has no reply");
        }
    }
    for (const auto& [operation, text] : replies) {
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

}  // namespace tavctl
