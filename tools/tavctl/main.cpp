// tavctl: calls, opens, serves and observes the services of TAV_IDL from the command line.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "failure.h"
#include "print.h"
#include "stop.h"
#include "verbs.h"

namespace {

// Shows positional arguments by their text, as in the manual, and not by a name of their own.
class Help : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string line = "Usage: " + name + " [OPTIONS]";
        for (const CLI::Option* option :
             app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
            line += " " + option->get_option_text();
        }
        return line + (app->get_subcommands({}).empty() ? "\n" : " VERB ...\n");
    }

    std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
        return isPositional ? option->get_option_text()
                            : Formatter::make_option_name(option, isPositional);
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() ? "" : Formatter::make_option_opts(option);
    }

    // Newer CLI11 breaks the lines of a footer; the example must stay whole to be pasted.
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        const std::string help = Formatter::make_help(app, std::move(name), mode);
        return help.substr(0, help.find_last_not_of('\n') + 1) + "\n\n" + app->get_footer() + "\n";
    }

    std::string make_footer(const CLI::App* /*app*/) const override { return ""; }
};

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
    verb->add_flag("--json", output.json, "Print one JSON object a line");
    verb->add_flag("--quiet", output.quiet, "Print results and errors, but no notes");
    verb->footer("Example:\n  " + example);
    return verb;
}

void addProtocolOptions(CLI::App* verb, Settings& settings) {
    verb->add_option("--protocol", settings.protocol, "binary (the default), compact or json")
        ->check(CLI::IsMember(kProtocols))
        ->option_text("NAME");
    verb->add_option("--transport", settings.transport, "buffered (the default) or framed")
        ->check(CLI::IsMember(kTransports))
        ->option_text("NAME");
}

void addTlsOptions(CLI::App* verb, Settings& settings) {
    CLI::Option* tls = verb->add_flag("--tls", settings.tls, "Speak TLS");
    const auto add = [&](const char* name, std::string& file, const char* description) {
        verb->add_option(name, file, description)->needs(tls)->option_text("FILE");
    };
    add("--ca", settings.ca, "Certificates that peers are trusted by (PEM)");
    add("--cert", settings.cert, "The own certificate (PEM)");
    add("--key", settings.key, "Its private key (PEM)");
}

void addClientOptions(CLI::App* verb, Settings& settings) {
    addProtocolOptions(verb, settings);
    addTlsOptions(verb, settings);
    const CLI::Validator seconds(
        [](const std::string& text) -> std::string {
            double value = 0;
            // Not a number is in no range.
            return CLI::detail::lexical_cast(text, value) && value >= 0.001 && value <= 86400
                       ? ""
                       : "'" + text + "' is no number of seconds from 0.001 to 86400";
        },
        "");
    verb->add_option("--connect-timeout", settings.connectTimeout,
                     "To wait for a connection (5 by default)")
        ->check(seconds)
        ->option_text("SECONDS");
    verb->add_option("--timeout", settings.timeout,
                     "For each call, connecting included (10 by default)")
        ->check(seconds)
        ->option_text("SECONDS");
}

void addListenOptions(CLI::App* verb, ListenAddress& address) {
    CLI::Option* port =
        verb->add_option("--port", address.port, "Port on 127.0.0.1; 0, the default, is any")
            ->check(CLI::Range(0, 65535))
            ->option_text("N");
    verb->add_option("--listen", address.text, "Where to listen, if not on 127.0.0.1")
        ->excludes(port)
        ->option_text("ADDRESS");
}

std::string ListenAddress::get() const {
    return text.empty() ? "127.0.0.1:" + std::to_string(port) : text;
}

void addCredentialOption(CLI::App* verb, Credential& credential) {
    verb->add_option("--credential-file", credential.file,
                     "Holds the credential; - is standard input. Without this it is taken from "
                     "TAV_CREDENTIAL in the environment")
        ->option_text("FILE");
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
            throw Failure(Exit::Usage, "cannot read the credential from '" + file +
                                           "'; check that the file is there and yours to read");
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

void addCredential(const Operation& operation, Json& arguments, const Credential& credential) {
    for (const Field& field : operation.arguments) {
        if (!field.secret()) {
            continue;
        }
        if (arguments[field.name].get_ref<std::string&>().empty()) {
            arguments[field.name] = credential.get();
        } else {
            keepSecret(arguments[field.name]);
        }
    }
}

std::string readInput() {
    return readAll(std::cin, kMessageLimit, "standard input");
}

std::string described(const Json& result) {
    if (!result.is_object()) {
        return tinted(Tint::Value, shown(result)) + "\n";
    }
    std::size_t width = 0;
    for (const auto& field : result.items()) {
        width = std::max(width, field.key().size());
    }
    std::string lines;
    for (const auto& field : result.items()) {
        lines += tinted(Tint::Name, padded(field.key(), width)) + "  " +
                 tinted(Tint::Value, shown(field.value())) + "\n";
    }
    return lines;
}

namespace {

int report(const Failure& failure) {
    const int status = static_cast<int>(failure.status);
    printError(status, failure.line());
    return status;
}

int run(int argc, char** argv) {
    // Who stops reading is noticed by the write that fails.
    (void)signal(SIGPIPE, SIG_IGN);
    // No socket is to take the place of a standard stream that is closed. Using it still fails.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) {
            (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }

    CLI::App app("Calls, opens, serves and observes the services of TAV_IDL.", "tavctl");
    app.formatter(std::make_shared<Help>());
    app.set_version_flag("--version", "tavctl " TAVCTL_VERSION);
    app.require_subcommand(0, 1);
    app.footer("tavctl VERB --help tells about a verb; man tavctl about all.");
    Run run;
    for (const auto add : {addDescribe, addCall, addOpen, addListen, addProbe, addSpy, addDecode,
                           addServe, ::tavctl::addBench}) {
        add(app, run);
    }

    int status = 0;
    try {
        app.parse(argc, argv);
        if (!run) {
            throw Failure(Exit::Usage, "there is no verb to say what to do", "see tavctl --help");
        }
        status = run();
    } catch (const CLI::Success& asked) {
        std::ostringstream text;  // --help, --version
        app.exit(asked, text, text);
        print(text.str());
    } catch (const CLI::ParseError& failure) {
        status = static_cast<int>(Exit::Usage);
        const auto verbs = app.get_subcommands();
        printError(status, failure.what() + std::string("; see tavctl ") +
                               (verbs.empty() ? "" : verbs[0]->get_name() + " ") + "--help");
    } catch (const Failure& failure) {
        status = report(failure);
    } catch (const std::invalid_argument& thrown) {
        status = report(failureFrom(thrown));
    } catch (const std::system_error& thrown) {
        status = report(failureFrom(thrown));
    }
    return status == 0 && output.lost ? static_cast<int>(Exit::Broken) : status;
}

}  // namespace

int main(int argc, char** argv) try {
    return run(argc, argv);
} catch (const std::exception& failure) {
    std::cerr << "tavctl: this went wrong here: " << failure.what() << '\n';
    return static_cast<int>(Exit::Broken);
}
