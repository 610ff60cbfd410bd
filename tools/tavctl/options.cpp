#include "options.h"

#include <fstream>
#include <iostream>

#include "print.h"

namespace tavctl {

namespace {

// At most `limit` bytes, so that no input fills the memory.
std::string readAll(std::istream& input, std::size_t limit, const std::string& what) {
    std::string text(limit + 1, '\0');
    input.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(input.gcount()));
    if (text.size() > limit) {
        throw Failure(Exit::Usage,
                      what + " is longer than " + std::to_string(limit) + " bytes; give less");
    }
    return text;
}

}  // namespace

CLI::App* addVerb(CLI::App& app, const std::string& name, const std::string& description,
                  const std::string& example) {
    CLI::App* verb = app.add_subcommand(name, description);
    verb->add_flag("--json", output.json, "Print one JSON object per line");
    verb->add_flag("--quiet", output.quiet, "Print only results and errors, not notes");
    verb->footer("Example:\n  " + example);
    return verb;
}

CLI::Validator seconds() {
    return {[](const std::string& text) -> std::string {
                double value = 0;
                // A value that is not a number is in no range.
                return CLI::detail::lexical_cast(text, value) && value >= 0.001 && value <= 86400
                           ? ""
                           : "'" + text + "' is not a number of seconds from 0.001 to 86400";
            },
            ""};
}

void addProtocolOptions(CLI::App* verb, Settings& settings) {
    addOption(verb, "--protocol", settings.protocol, "NAME",
              "binary (the default), compact or json")
        ->check(CLI::IsMember(kProtocols));
    addOption(verb, "--transport", settings.transport, "NAME", "buffered (the default) or framed")
        ->check(CLI::IsMember(kTransports));
}

void addTlsOptions(CLI::App* verb, Settings& settings) {
    CLI::Option* tls = verb->add_flag("--tls", settings.tls, "Use TLS");
    const auto add = [&](const char* name, std::string& file, const char* description) {
        addOption(verb, name, file, "FILE", description)->needs(tls);
    };
    add("--ca", settings.ca, "CA certificates to check the peer's certificate with (PEM)");
    add("--cert", settings.cert, "This side's certificate (PEM)");
    add("--key", settings.key, "Its private key (PEM)");
}

void addClientOptions(CLI::App* verb, Settings& settings) {
    addProtocolOptions(verb, settings);
    addTlsOptions(verb, settings);
    addOption(verb, "--connect-timeout", settings.connectTimeout, "SECONDS",
              "How long to wait for a connection (5 by default)")
        ->check(seconds());
    addOption(verb, "--timeout", settings.timeout, "SECONDS",
              "How long a call may take, including connecting (10 by default)")
        ->check(seconds());
}

std::string takeAddress(std::vector<std::string>& words, bool given) {
    if (given) {
        std::string address = words.front();
        words.erase(words.begin());
        return address;
    }
    const char* address = std::getenv("TAVCTL_ADDRESS");
    if (address == nullptr) {
        throw Failure(Exit::Usage, "an ADDRESS is missing",
                      "give one, or set TAVCTL_ADDRESS in the environment");
    }
    return address;
}

std::string takeAddress(std::vector<std::string>& words) {
    // Operations have no colon, addresses have one.
    const bool given = !words.empty() && (words[0].find(':') != std::string::npos ||
                                          std::getenv("TAVCTL_ADDRESS") == nullptr);
    std::string address = takeAddress(words, given);
    if (words.empty()) {
        throw Failure(Exit::Usage, "an OPERATION is missing", "see tavctl describe");
    }
    return address;
}

void addListenOptions(CLI::App* verb, ListenAddress& address) {
    CLI::Option* port = addOption(verb, "--port", address.port, "N",
                                  "Port on 127.0.0.1; 0, the default, is any free one")
                            ->check(CLI::Range(0, 65535));
    addOption(verb, "--listen", address.text, "ADDRESS", "Where to listen, if not on 127.0.0.1")
        ->excludes(port);
}

std::string ListenAddress::get() const {
    return text.empty() ? "127.0.0.1:" + std::to_string(port) : text;
}

void addCredentialOption(CLI::App* verb, Credential& credential) {
    addOption(verb, "--credential-file", credential.file, "FILE",
              "Read the credential from this file; - is standard input. Without this option it "
              "comes from TAV_CREDENTIAL in the environment");
}

std::string Credential::get() const {
    constexpr std::size_t kLimit = 1 << 16;
    std::string text;
    if (file == "-") {
        text = readAll(std::cin, kLimit, "the credential");
    } else if (!file.empty()) {
        std::ifstream input(file, std::ios::binary);
        text = readAll(input, kLimit, "the credential");
        if (!input.is_open() || input.bad()) {
            throw Failure(Exit::Usage,
                          "cannot read the credential from '" + file +
                              "'; check that the file exists and that you may read it");
        }
    } else if (const char* variable = std::getenv("TAV_CREDENTIAL")) {
        text = variable;
    } else {
        throw Failure(Exit::Usage,
                      "this needs a credential; set TAV_CREDENTIAL in the environment, or use "
                      "--credential-file");
    }
    if (!file.empty() && !text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    keepSecret(text);
    return text;
}

void Credential::addTo(const Operation& operation, Json& arguments) const {
    for (const Field& field : operation.arguments) {
        if (!field.secret()) {
            continue;
        }
        Json& value = arguments[field.name];
        if (value.get_ref<const std::string&>().empty()) {
            value = get();
        } else {
            keepSecret(value);
        }
    }
}

std::string readInput() {
    return readAll(std::cin, kMessageLimit, "standard input");
}

}  // namespace tavctl
