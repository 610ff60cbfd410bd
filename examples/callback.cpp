// A callback service: takes the events that EMPs report.
//
//     callback PORT
//
// Writes a line to standard output once it serves, and one for each event: type, param1, param2.
// Ends when its standard input does.

#include <iostream>
#include <stdexcept>

#include "processes.h"
#include "safe_thrift.h"
#include "say.h"

namespace {

// Called by several threads at once, one for each connection.
class Events : public TavEmpEventIf {
public:
    void Callback(int32_t eventType, const std::string& param1,
                  const std::string& param2) override {
        const std::string event = std::to_string(eventType) + " " + param1 + " " + param2;
        say("event", event);
        tellParent(printable(event));
    }
};

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        throw std::invalid_argument("usage: callback PORT");
    }
    sayAs("callback");
    const auto processor = std::make_shared<TavEmpEventProcessor>(std::make_shared<Events>());
    const SafeServer server(processor, portFrom(argv[1]));
    say("serves", "TavEmpEvent on port " + std::to_string(server.port()));
    tellParent("serves");
    waitForEndOfInput();
    say("ends", "with its standard input");
} catch (const std::exception& failure) {
    std::cerr << "callback: " << failure.what() << '\n';
    return 1;
}
