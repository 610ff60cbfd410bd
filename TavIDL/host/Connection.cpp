#include <TavIDL/host/Connection.h>

#include "pool.h"

namespace TavIDL {

std::shared_ptr<Connection> Connection::open(const std::string& address, const Settings& settings) {
    // As a call that leaves the pool with its connection.
    host::Pool pool(address, settings, true);
    host::Call call(pool, "Connection::open", settings.connectTimeout);
    const auto socket = call.channel().socket;
    socket->limitEach(settings.callTimeout, settings.callTimeout);
    return socket;
}

}  // namespace TavIDL
