#include "peer.h"

#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>

#include <memory>

namespace peers {

namespace {

class Broker : public TavBrokerIf {
    void OpenEmp(ConnectionInfo&, const std::string&, const std::string&,
                 const std::string&) override {}
    void Execute(std::string& result, std::int32_t caller, const std::string& command,
                 const std::string& first, const std::string& second, const std::string& third,
                 const std::string& fourth) override {
        result = execute(caller, {command, first, second, third, fourth});
    }
    bool CloseEmp(const ConnectionInfo&) override { return false; }
};

}  // namespace

void serve(const std::string& address) {
    TavIDL::Server server(address, std::make_shared<Broker>());
    announce(server.address());
    server.runUntilSignal();
}

Call connect(const std::string& address) {
    const auto broker = std::make_shared<TavIDL::RemoteBroker>(address);
    return [broker](const Arguments& arguments) {
        const auto text = [&](std::size_t i) { return std::string(arguments.strings[i]); };
        std::string result;
        broker->Execute(result, arguments.caller, text(0), text(1), text(2), text(3), text(4));
        return result;
    };
}

}  // namespace peers
