#include <TavIDL/host/Connection.h>

#include "pool.h"

namespace TavIDL {

std::shared_ptr<Connection> Connection::open(const std::string& address, const Settings& settings) {
    // A call that takes its connection out of the pool.
    host::Pool pool(address, settings, true);
    host::Call call(pool, "Connection::open", settings.connectTimeout);
    const auto socket = call.channel().socket;
    socket->limitEach(settings.callTimeout, settings.callTimeout);
    return socket;
}

}  // namespace TavIDL
