#include "commandline.h"

#include <memory>
#include <utility>

#include "print.h"
#include "verbs.h"

namespace tavctl {

namespace {

// A verb with the options that all verbs have, and with a place for its own ones, with which `run`
// will call `body`. `example` ends its help.
template <typename Options>
std::pair<CLI::App*, std::shared_ptr<Options>> addVerb(CLI::App& app, Run& run,
                                                       int (*body)(const Options&),
                                                       const std::string& name,
                                                       const std::string& description,
                                                       const std::string& example) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = app.add_subcommand(name, description);
    verb->callback([options, body, &run] { run = [options, body] { return body(*options); }; });
    verb->add_flag("--json", output.json, "Print one JSON object per line");
    verb->add_flag("--quiet", output.quiet, "Print only results and errors, not notes");
    verb->footer("Example:\n  " + example);
    return {verb, options};
}

// An option, or an argument if `name` has no dashes. The help shows its value as `text`.
template <typename T>
CLI::Option* addOption(CLI::App* verb, const std::string& name, T& value, const std::string& text,
                       const std::string& description) {
    return verb->add_option(name, value, description)->option_text(text);
}

// Arguments. No text shows their name.
template <typename T>
void addArguments(CLI::App* verb, T& value, const std::string& text,
                  const std::string& description) {
    addOption(verb, "arguments", value, text, description);
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
        ->check(CLI::Validator(secondsProblem, ""));
    addOption(verb, "--timeout", settings.timeout, "SECONDS",
              "How long a call may take, including connecting (10 by default)")
        ->check(CLI::Validator(secondsProblem, ""));
}

void addListenOptions(CLI::App* verb, ListenAddress& address) {
    CLI::Option* port = addOption(verb, "--port", address.port, "N",
                                  "Port on 127.0.0.1; 0, the default, is any free one")
                            ->check(CLI::Range(0, 65535));
    addOption(verb, "--listen", address.text, "ADDRESS", "Where to listen, if not on 127.0.0.1")
        ->excludes(port);
}

void addCredentialOption(CLI::App* verb, Credential& credential) {
    addOption(verb, "--credential-file", credential.file, "FILE",
              "Read the credential from this file; - is standard input. Without this option it "
              "comes from TAV_CREDENTIAL in the environment");
}

void addDescribe(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, describe, "describe", "Show the interface, or a part of it",
                "tavctl describe TavBroker.OpenEmp");
    addArguments(verb, options->wanted, "[SERVICE[.OPERATION] or RECORD]",
                 "What to show; everything if omitted");
    verb->add_flag("--thrift", options->thrift, "Print the interface definition");
}

void addCall(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, makeCall, "call", "Make one call and print its result",
                "tavctl call 127.0.0.1:9090 TavBroker.OpenEmp name=thermometer version=1.0");
    addArguments(
        verb, options->words, "[ADDRESS] [SERVICE.]OPERATION [KEY=VALUE]... [-]",
        "What to call. ADDRESS is TAVCTL_ADDRESS if omitted; SERVICE may be omitted if only "
        "one has the operation. Arguments that are omitted are sent as 0, false or empty; - "
        "reads them, as a JSON object, from standard input");
    addClientOptions(verb, options->settings);
    addCredentialOption(verb, options->credential);
    verb->add_flag("--expect-true", options->expectTrue, "Exit with status 1 on a false reply");
}

void addOpen(CLI::App& app, Run& run) {
    const auto [verb, options] = addVerb(
        app, run, openEmp, "open", "Open an EMP at the broker, call it, show its events, close it",
        "tavctl open 127.0.0.1:9090 thermometer 1.0 --run Open --run Execute cmd=read");
    addArguments(
        verb, options->words, "[ADDRESS] NAME VERSION",
        "The broker's address (TAVCTL_ADDRESS if omitted), and the EMP's name and version");
    addOption(verb, "--run", options->calls, "OPERATION [KEY=VALUE]... ...",
              "Call an operation of the EMP. Name, version and credential are filled in; other "
              "arguments that are omitted are sent as 0, false or empty. Without --run, the EMP "
              "stays open until a signal comes");
    verb->add_flag("--stay", options->stay, "After the calls, stay open until a signal comes");
    verb->add_flag("--expect-true", options->expectTrue,
                   "End with status 1 on the first false reply");
    addClientOptions(verb, options->settings);
    addCredentialOption(verb, options->credential);
}

void addListen(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, listen, "listen", "Serve TavEmpEvent and print the events that come",
                "tavctl listen --port 4711");
    addListenOptions(verb, options->address);
    addOption(verb, "--count", options->count, "N", "End after this many events")
        ->check(CLI::Range(1, 1000000000));
    addOption(verb, "--timeout", options->timeout, "SECONDS",
              "End after this time; with status 4 if fewer events came than --count says")
        ->check(CLI::Validator(secondsProblem, ""));
    addProtocolOptions(verb, options->settings);
    addTlsOptions(verb, options->settings);
}

void addProbe(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, probe, "probe", "Check that a service is alive, without side effects",
                "tavctl probe 127.0.0.1:9090");
    addArguments(verb, options->words, "[ADDRESS]",
                 "The address of the service; TAVCTL_ADDRESS if omitted");
    verb->add_flag("--try-text", options->tryText,
                   "If there is no answer, try JSON and HTTP, too. Warning: a peer that expects "
                   "neither can take their first bytes for a length of more than a gigabyte, and "
                   "run out of memory");
    addClientOptions(verb, options->settings);
}

void addSpy(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, spy, "spy", "Stand between two processes and print their messages",
                "tavctl spy 127.0.0.1:9091 127.0.0.1:9090 --write capture.json");
    addOption(verb, "LISTEN", options->listen, "LISTEN",
              "Where clients connect; port 0 is any free one")
        ->required();
    addOption(verb, "TARGET", options->target, "TARGET", "Where the server is")->required();
    addOption(verb, "--write", options->file, "FILE", "Save all messages to this file, for decode");
    verb->add_flag(
        "--follow", options->follow,
        "In front of a broker, also relay calls to the EMPs that it opens, and their events, which "
        "spy does not see otherwise: rewrites the ports in the reply to OpenEmp");
    addProtocolOptions(verb, options->settings);
}

void addDecode(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, decode, "decode", "Print the messages in a file or standard input",
                "tavctl decode capture.json");
    addArguments(verb, options->path, "[FILE]", "What to read; standard input if omitted");
    addOption(verb, "--format", options->format, "NAME",
              "raw, hex, capture as spy writes it, or pcap as tcpdump does; detected if omitted")
        ->check(CLI::IsMember({"auto", "raw", "hex", "capture", "pcap"}));
    verb->add_flag("--sequence", options->sequence, "Print a Mermaid sequence diagram of a capture")
        ->excludes("--json");
    addProtocolOptions(verb, options->settings);
}

void addServe(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, serve, "serve", "Stand in for a peer and print the calls it gets",
                R"(tavctl serve emp --port 4712 --reply Open=true --fail Execute="no sensor")");
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

void addBench(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, bench, "bench", "Make a call again and again and measure it",
                "tavctl bench 127.0.0.1:9090 TavBroker.CloseEmp --seconds 2");
    addArguments(verb, options->words, "[ADDRESS] [SERVICE.]OPERATION [KEY=VALUE]...",
                 "What to call, as in tavctl call");
    addOption(verb, "--connections", options->connections, "N",
              "Connections that call at the same time (1 by default)")
        ->check(CLI::Range(1, 1000));
    addOption(verb, "--batch", options->batch, "N",
              "Calls that are sent before their replies are read (1 by default)")
        ->check(CLI::Range(1, 10000));
    addOption(verb, "--seconds", options->seconds, "SECONDS",
              "How long to keep calling (10 by default)")
        ->check(CLI::Validator(secondsProblem, ""));
    addClientOptions(verb, options->settings);
    addCredentialOption(verb, options->credential);
}

void addEncode(CLI::App& app, Run& run) {
    const auto [verb, options] = addVerb(
        app, run, encode, "encode", "Write the bytes of a call, or of messages that decode printed",
        "tavctl encode TavEmp.Close clientID=7 --format hex");
    addArguments(verb, options->words, "[[SERVICE.]OPERATION [KEY=VALUE]...]",
                 "A call, as in tavctl call. Without it, messages are read from standard input, as "
                 "decode --json prints them");
    addOption(verb, "--format", options->format, "NAME",
              "raw bytes, or hex digits with one message per line. By default hex on a terminal, "
              "and raw elsewhere")
        ->check(CLI::IsMember({"raw", "hex"}));
    addProtocolOptions(verb, options->settings);
    addCredentialOption(verb, options->credential);
}

}  // namespace

void addVerbs(CLI::App& app, Run& run) {
    for (const auto add : {addDescribe, addCall, addOpen, addListen, addProbe, addSpy, addDecode,
                           addServe, addBench, addEncode}) {
        add(app, run);
    }
}

}  // namespace tavctl
