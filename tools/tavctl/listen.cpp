#include <TavIDL/host/Server.h>

#include <atomic>

#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {

int listen(const ListenOptions& options) {
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
    return count < options.count ? stop::status() : 0;
}

}  // namespace tavctl
