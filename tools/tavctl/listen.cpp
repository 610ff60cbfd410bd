#include "events.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

std::unique_ptr<Server> serveEvents(const Address& address, const Settings& settings) {
    const auto show = [](const Operation&, const Json& event) {
        if (output.json) {
            printJson({{"event", event}});
        } else {
            print(tinted(Tint::Good, "event " + shown(event["eventType"])) + "  " +
                  shown(event["param1"]) + "  " + shown(event["param2"]) + "\n");
        }
        return Json();
    };
    return std::make_unique<Server>(address, settings, processorOf("TavEmpEvent", show));
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
            const auto server = serveEvents(options->address.get(), options->settings);
            note("listening on " + server->address().text());
            stop::wait();
            server->stop();
            return 0;
        };
    });
}
