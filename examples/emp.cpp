// An EMP: a thermometer. The broker starts it with its identifier, the port to serve on, and the
// port of the program's callback service.
//
//     TAV_CREDENTIAL=... emp EMPID PORT CALLBACKPORT
//
// Prints a line to standard output when it is ready, and ends at the end of its standard input.

#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>

#include <iostream>
#include <map>
#include <mutex>
#include <stdexcept>

#include "processes.h"
#include "say.h"

namespace {

constexpr int32_t kTemperatureEvent = 1;

// Called by several threads at once, one for each connection.
class Thermometer : public TavEmpIf {
public:
    Thermometer(const std::string& callbackAddress, std::string credential)
        : callback_(callbackAddress), credential_(std::move(credential)) {}

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override {
        if (name != "thermometer" || version != "1.0" || credential != credential_) {
            return false;
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        // A client may open again and continues. The limit bounds the memory that clients can make
        // this process use.
        return clients_.count(clientID) != 0 ||
               (clients_.size() < 100 && clients_.emplace(clientID, 0).second);
    }

    // Returns how many commands the client has run.
    int32_t Close(int32_t clientID) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto client = clients_.extract(clientID);
        return client ? client.mapped() : 0;
    }

    // What this throws reaches the caller as a TApplicationException with the same text.
    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& /*param2*/,
                 const std::string& /*param3*/, const std::string& /*param4*/) override {
        count(clientID);
        if (cmd == "read") {
            result = "21.5 C";
        } else if (cmd == "watch") {
            watch(param1);
            result = "watched " + param1;
        } else if (cmd == "jam") {
            throw 7;  // Not a std::exception: this only ends the connection.
        } else {
            throw std::invalid_argument("the thermometer has no command '" + cmd + "'");
        }
    }

    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& list) override {
        count(clientID);
        if (cmd != "label") {
            throw std::invalid_argument("the thermometer has no list command '" + cmd + "'");
        }
        for (const std::string* param :
             {&list.param1, &list.param2, &list.param3, &list.param4, &list.param5, &list.param6,
              &list.param7, &list.param8, &list.param9, &list.param10}) {
            result += result.empty() || param->empty() ? *param : "/" + *param;
        }
    }

private:
    void count(int32_t clientID) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto client = clients_.find(clientID);
        if (client == clients_.end()) {
            throw std::logic_error("client " + std::to_string(clientID) + " has not called Open");
        }
        ++client->second;
    }

    // Reports three readings of `what`.
    void watch(const std::string& what) {
        try {
            for (const char* reading : {"21.5", "21.7", "21.6"}) {
                callback_.Callback(kTemperatureEvent, what, reading);
                say("event", what + " " + reading);
            }
        } catch (const TavIDL::CallFailed& failure) {
            // Nobody receives it: the event is lost, and the command continues.
            say("failed", std::string("to send an event: ") + failure.what());
        }
    }

    TavIDL::RemoteCallback callback_;  // connects when the first event is sent
    const std::string credential_;
    std::mutex mutex_;
    std::map<int32_t, int32_t> clients_;  // How many commands each has run.
};

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 4) {
        throw std::invalid_argument("usage: emp EMPID PORT CALLBACKPORT");
    }
    sayAs(argv[1]);
    // ":PORT" accepts connections only from this machine.
    const auto thermometer =
        std::make_shared<Thermometer>(std::string(":") + argv[3], credentialFromEnvironment());
    const TavIDL::Server server(std::string(":") + argv[2], thermometer);
    say("serves", "TavEmp on " + server.address());
    tellParent("serves");
    waitForEndOfInput();
    say("ends", "with its standard input");
} catch (const std::exception& failure) {
    std::cerr << "emp: " << failure.what() << '\n';
    return 1;
}
