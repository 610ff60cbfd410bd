#include "follow.h"

#include "print.h"

namespace tavctl {

namespace {

// Each relay has a thread that listens.
constexpr std::size_t kRelayLimit = 64;

// Empty for this machine, as in ":PORT".
std::string hostOf(const std::string& address) {
    return address.compare(0, 5, "unix:") == 0 ? "" : address.substr(0, address.rfind(':'));
}

std::string at(const std::string& host, int32_t port) {
    return host + ":" + std::to_string(port);
}

int32_t portOf(const TavIDL::Server& server) {
    return std::stoi(server.address().substr(server.address().rfind(':') + 1));
}

// A port that was free a moment ago, at least on this machine.
int32_t freePort() {
    return portOf(TavIDL::Server(":0", [](const std::shared_ptr<TavIDL::Connection>&) {}));
}

// Where to listen for the EMP's events. It sends them to the broker's client: this machine, as far
// as the broker knows.
std::string eventHost(const std::string& brokerHost) {
    const bool isHere = brokerHost.empty() || brokerHost == "localhost" || brokerHost == "[::1]" ||
                        brokerHost.compare(0, 4, "127.") == 0;
    return isHere ? brokerHost : brokerHost[0] == '[' ? "[::]" : "0.0.0.0";
}

// Changes the port in field `id`, if there is one.
template <typename Change>
void changePort(Json& record, int id, const Change& change) {
    for (Json& field : record) {
        if (field.is_object() && field.value("id", 0) == id && field["type"] == "i32") {
            const int32_t port = field["value"];
            field["value"] = port > 0 && port < 65536 ? change(port) : port;
        }
    }
}

}  // namespace

Follow::Follow(const std::string& listen, const std::string& broker, TavIDL::Settings settings,
               Serve serve)
    : listenHost_(hostOf(listen)),
      brokerHost_(hostOf(broker)),
      settings_(std::move(settings)),
      serve_(std::move(serve)) {
}

Json Follow::rewritten(Json message, bool fromClient, const std::string& client) {
    const auto known = [](const Relays& relays) {
        return [&relays](int32_t port) {
            const auto found = std::find_if(relays.begin(), relays.end(), [&](const auto& relay) {
                return relay.second.port == port;
            });
            return found == relays.end() ? port : found->first;
        };
    };
    const std::string operation = message["operation"];
    const std::lock_guard<std::mutex> lock(mutex_);
    if (fromClient && operation == "Execute") {
        changePort(message["fields"], 1, known(callbacks_));
    }
    const bool opened = !fromClient && operation == "OpenEmp" && message["type"] == "reply";
    const bool closes = fromClient && operation == "CloseEmp";
    for (Json& field : message["fields"]) {
        if (field["type"] != "struct") {
            continue;
        }
        Json& info = field["value"];
        if (opened) {
            changePort(info, 2, [&](int32_t port) { return followEmp(port); });
            changePort(info, 1, [&](int32_t port) { return followEvents(port, client); });
        } else if (closes) {
            changePort(info, 1, known(callbacks_));
            changePort(info, 2, known(emps_));
        }
    }
    return message;
}

// Both return the port that the client gets: the actual one if it cannot be relayed.

int32_t Follow::followEmp(int32_t port) try {
    Relay& emp = emps_[port];
    emp.target = at(brokerHost_, port);
    relay(emp, at(listenHost_, 0));
    emp.port = portOf(*emp.server);
    note("following the EMP at " + emp.target + ": rewrote empServicePort to " +
         std::to_string(emp.port));
    return emp.port;
} catch (const std::exception& thrown) {
    emps_.erase(port);
    note("not following the EMP at port " + std::to_string(port) + ": " + thrown.what());
    return port;
}

int32_t Follow::followEvents(int32_t port, const std::string& client) try {
    Relay& callback = callbacks_[port];
    if (callback.server == nullptr) {
        // The EMP sends to this port, so the client has to listen on another one.
        callback.port = freePort();
    }
    callback.target = at(hostOf(client), callback.port);
    relay(callback, at(eventHost(brokerHost_), port));
    note("following its events to " + callback.target + ": rewrote callbackServicePort to " +
         std::to_string(callback.port));
    return callback.port;
} catch (const std::exception& thrown) {
    callbacks_.erase(port);
    note("not following the events to port " + std::to_string(port) + ": " + thrown.what());
    return port;
}

void Follow::relay(Relay& relay, const std::string& address) {
    if (relay.server != nullptr) {
        return;
    }
    if (emps_.size() + callbacks_.size() > kRelayLimit) {
        throw std::runtime_error("only " + std::to_string(kRelayLimit) + " ports are followed");
    }
    relay.server = std::make_unique<TavIDL::Server>(
        address,
        [this, &relay](const std::shared_ptr<TavIDL::Connection>& connection) {
            std::unique_lock<std::mutex> lock(mutex_);
            const std::string target = relay.target;
            lock.unlock();
            serve_(connection, target);
        },
        settings_);
}

}  // namespace tavctl
