#include <TavIDL/host/Server.h>

#include "events.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

namespace {

struct Options {
    Settings settings;
    ListenAddress address;
};

int listen(const Options& options) {
    stop::watch();
    const auto answer = [](const Operation&, const Json& event) {
        showEvent(event);
        return Json();
    };
    TavIDL::Server server(options.address.get(), processorOf("TavEmpEvent", answer),
                          serverSettings(options.settings));
    note("listening on " + server.address());
    stop::wait();
    server.stop();
    return 0;
}

}  // namespace

void showEvent(const Json& event) {
    show({{"event", event}}, tinted(Tint::Good, "event " + shown(event["eventType"])) + "  " +
                                 shown(event["param1"]) + "  " + shown(event["param2"]) + "\n");
}

void addListen(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, listen, "listen", "Serve TavEmpEvent and print the events that come",
                "tavctl listen --port 4711");
    addListenOptions(verb, options->address);
    addProtocolOptions(verb, options->settings);
    addTlsOptions(verb, options->settings);
}

}  // namespace tavctl
