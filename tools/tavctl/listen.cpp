#include <TavIDL/host/Server.h>

#include "connection.h"
#include "events.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

void showEvent(const Json& event) {
    if (output.json) {
        printJson({{"event", event}});
    } else {
        print(tinted(Tint::Good, "event " + shown(event["eventType"])) + "  " +
              shown(event["param1"]) + "  " + shown(event["param2"]) + "\n");
    }
}

void addListen(CLI::App& app, Run& run) {
    struct Options {
        Settings settings;
        ListenAddress address;
    };
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(app, "listen", "Serve TavEmpEvent and print the events that come",
                             "tavctl listen --port 4711");
    addListenOptions(verb, options->address);
    addProtocolOptions(verb, options->settings);
    addTlsOptions(verb, options->settings);
    verb->callback([options, &run] {
        run = [options] {
            stop::watch();
            const auto show = [](const Operation&, const Json& event) {
                showEvent(event);
                return Json();
            };
            TavIDL::Server server(options->address.get(), processorOf("TavEmpEvent", show),
                                  serverSettings(options->settings));
            note("listening on " + server.address());
            stop::wait();
            server.stop();
            return 0;
        };
    });
}
