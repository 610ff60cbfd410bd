#include <TavIDL/host/Remote.h>

#include <algorithm>

#include "print.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

int makeCall(const CallOptions& options) {
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

}  // namespace tavctl
