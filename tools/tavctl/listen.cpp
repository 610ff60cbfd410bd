#include <TavIDL/host/Server.h>

#include <atomic>

#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

namespace {

struct Options {
    Settings settings;
    ListenAddress address;
    int count = 0;
    double timeout = 0;
};

int listen(const Options& options) {
    stop::watch();
    std::atomic<int> count{0};
    const auto answer = [&](const Operation&, const Json& event) {
        const int number = ++count;
        if (options.count == 0 || number <= options.count) {
            showEvent(event);
        }
        if (number == options.count) {
            stop::request();
        }
        return Json();
    };
    TavIDL::Server server(options.address.get(), processorOf("TavEmpEvent", answer),
                          serverSettings(options.settings));
    note("listening on " + server.address());
    if (options.timeout == 0) {
        stop::wait();
    } else if (!stop::waitFor(options.timeout) && options.count != 0) {
        throw Failure(Exit::TimedOut, std::to_string(count) + " of " +
                                          std::to_string(options.count) + " events came in time");
    }
    server.stop();
    return 0;
}

}  // namespace

void addListen(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, listen, "listen", "Serve TavEmpEvent and print the events that come",
                "tavctl listen --port 4711");
    addListenOptions(verb, options->address);
    addOption(verb, "--count", options->count, "N", "End after this many events")
        ->check(CLI::Range(1, 1000000000));
    addOption(verb, "--timeout", options->timeout, "SECONDS",
              "End after this time; with status 4 if fewer events came than --count says")
        ->check(seconds());
    addProtocolOptions(verb, options->settings);
    addTlsOptions(verb, options->settings);
}

}  // namespace tavctl
