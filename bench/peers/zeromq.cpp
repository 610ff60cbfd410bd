#include "peer.h"

#include <msgpack.hpp>
#include <zmq.hpp>

#include <memory>
#include <stdexcept>
#include <tuple>

namespace peers {

namespace {

constexpr std::string_view kOperation = "Execute";
using Request = std::tuple<std::string_view, std::int32_t, Strings>;

template <typename Value>
void send(zmq::socket_t& socket, const Value& value) {
    msgpack::sbuffer bytes;
    msgpack::pack(bytes, value);
    socket.send(zmq::buffer(bytes.data(), bytes.size()));
}

// The handle owns the received objects, whose strings are views of `message`.
msgpack::object_handle receive(zmq::socket_t& socket, zmq::message_t& message) {
    if (!socket.recv(message)) {
        throw std::runtime_error("nothing was received");
    }
    return msgpack::unpack(message.data<char>(), message.size(),
                           [](msgpack::type::object_type, std::size_t, void*) { return true; });
}

}  // namespace

void serve(const std::string& address) {
    zmq::context_t context;
    zmq::socket_t socket(context, zmq::socket_type::rep);
    socket.bind(address);
    announce(socket.get(zmq::sockopt::last_endpoint));
    for (zmq::message_t message;;) {
        const auto received = receive(socket, message);
        const auto [operation, caller, strings] = received->as<Request>();
        if (operation != kOperation) {
            throw std::invalid_argument("an unknown operation");
        }
        send(socket, execute(caller, strings));
    }
}

Call connect(const std::string& address) {
    const auto context = std::make_shared<zmq::context_t>();
    const auto socket = std::make_shared<zmq::socket_t>(*context, zmq::socket_type::req);
    socket->connect(address);
    return [context, socket](const Arguments& arguments) {
        send(*socket, Request(kOperation, arguments.caller, arguments.strings));
        zmq::message_t message;
        return receive(*socket, message)->as<std::string>();
    };
}

}  // namespace peers
