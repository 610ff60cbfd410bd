// A callback service in a process of its own: takes the events that EMPs report, for programs that
// do not take them themselves as program.cpp does.
//
//     callback PORT
//
// Writes a line to standard output once it serves, and one for each event: type, param1, param2.
// Ends when its standard input does.

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
