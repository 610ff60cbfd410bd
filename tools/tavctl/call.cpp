#include <TavIDL/host/Remote.h>

#include <algorithm>

#include "print.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

namespace {

struct Options {
    Settings settings;
    Credential credential;
    bool expectTrue = false;
    std::vector<std::string> words;
};

int makeCall(const Options& options) {
    auto words = options.words;
    // "-", in any place, means that the arguments come from standard input.
    const auto dash = std::remove(words.begin(), words.end(), "-");
    const bool fromInput = dash != words.end();
    words.erase(dash, words.end());
    const std::string address = takeAddress(words);
    const Operation& operation = operationNamed(words[0]);
    const auto peer = remoteOf(operation.service, address, clientSettings(options.settings));
    if (options.expectTrue && operation.result.kind != Kind::Bool) {
        throw Failure(Exit::Usage, operation.name + " does not return a bool; omit --expect-true");
    }
    if (fromInput && options.credential.file == "-") {
        throw Failure(Exit::Usage,
                      "standard input holds either the arguments or the credential; write the "
                      "credential into the arguments");
    }
    Json arguments =
        argumentsFrom(operation, {words.begin() + 1, words.end()},
                      fromInput ? parseJson(readInput(), "standard input") : Json::object());
    options.credential.addTo(operation, arguments);

    const Json result = call(operation, *peer, arguments);
    show({{"operation", operation.fullName()}, {"result", result}},
         operation.result.kind == Kind::Nothing ? "" : described(result));
    return options.expectTrue && result == false ? static_cast<int>(Exit::False) : 0;
}

}  // namespace

void addCall(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, makeCall, "call", "Make one call and print its result",
                "tavctl call 127.0.0.1:9090 TavBroker.OpenEmp name=thermometer version=1.0");
    addOption(verb, "words", options->words, "[ADDRESS] [SERVICE.]OPERATION [KEY=VALUE]... [-]",
              "What to call. ADDRESS is TAVCTL_ADDRESS if omitted; SERVICE may be omitted if only "
              "one has the operation. Arguments that are omitted are sent as 0, false or empty; - "
              "reads them, as a JSON object, from standard input");
    addClientOptions(verb, options->settings);
    addCredentialOption(verb, options->credential);
    verb->add_flag("--expect-true", options->expectTrue, "Exit with status 1 on a false reply");
}

}  // namespace tavctl
