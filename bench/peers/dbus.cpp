#include "peer.h"

#include <sdbus-c++/sdbus-c++.h>

#include <memory>

namespace peers {

namespace {

constexpr const char* kName = "bench.TavBroker";  // of the service and of its interface
constexpr const char* kPath = "/bench/TavBroker";
constexpr const char* kOperation = "Execute";

}  // namespace

// The address is that of the bus.
void serve(const std::string& address) {
    const auto connection = sdbus::createSessionBusConnectionWithAddress(address);
    const auto broker = sdbus::createObject(*connection, kPath);
    broker->registerMethod(kOperation)
        .onInterface(kName)
        .implementedAs([](std::int32_t caller, const std::string& command, const std::string& first,
                          const std::string& second, const std::string& third,
                          const std::string& fourth) {
            return std::string(execute(caller, {command, first, second, third, fourth}));
        });
    broker->finishRegistration();
    connection->requestName(kName);
    announce(address);
    connection->enterEventLoop();
}

Call connect(const std::string& address) {
    const std::shared_ptr<sdbus::IConnection> connection =
        sdbus::createSessionBusConnectionWithAddress(address);
    // The documentation says that each connection needs an event loop. Calls that wait for their
    // reply work without one; signals do not.
    if (CLIENT_HAS_EVENT_LOOP) {
        connection->enterEventLoopAsync();
    }
    const std::shared_ptr<sdbus::IProxy> broker = sdbus::createProxy(*connection, kName, kPath);
    return [connection, broker](const Arguments& arguments) {
        const auto text = [&](std::size_t i) { return std::string(arguments.strings[i]); };
        std::string result;
        broker->callMethod(kOperation)
            .onInterface(kName)
            .withArguments(arguments.caller, text(0), text(1), text(2), text(3), text(4))
            .storeResultsTo(result);
        return result;
    };
}

}  // namespace peers
