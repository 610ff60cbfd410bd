// A callback service in its own process: receives the events of EMPs, for programs that do not
// receive them themselves as program.cpp does.
//
//     callback PORT
//
// Prints a line to standard output when it is ready, and one for each event: type, param1, param2.
// Ends at the end of its standard input.

#include <TavIDL/host/Server.h>

#include <iostream>
#include <stdexcept>

#include "processes.h"
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
    const TavIDL::Server server(std::string(":") + argv[1], std::make_shared<Events>());
    say("serves", "TavEmpEvent on " + server.address());
    tellParent("serves");
    waitForEndOfInput();
    say("ends", "with its standard input");
} catch (const std::exception& failure) {
    std::cerr << "callback: " << failure.what() << '\n';
    return 1;
}
