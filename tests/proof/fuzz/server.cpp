// A server of Host gets any bytes. It answers with messages, ends the connection, and serves the
// next one.

#include <TavIDL/host/Server.h>

#include <host/Emp.h>
#include <host/Peer.h>

#include "Messages.h"

namespace {

peers::Peer connect(const std::string& address) {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    peers::Peer peer(descriptor);
    const sockaddr_un name = peers::unixName(address.substr(5));
    fuzz::require(::connect(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0,
                  "connect");
    return peer;
}

// A server, and a good call of it.
class Served {
public:
    Served(bool compact, bool framed)
        : settings_(settings(compact, framed)),
          server_(directory_.socket(), std::make_shared<Emp>(), settings_) {
        request_ = proof::requestOf(proof::kOperations.at(4), fuzz::waysOf(compact ? 1 : 0)[0]);
        reply_ = exchange(packed(request_));
        fuzz::require(!reply_.empty(), "a good call is not answered");
    }

    void check(const std::string& bytes, bool twice) {
        exchange(twice ? bytes + bytes : bytes);
        fuzz::require(exchange(packed(request_)) == reply_, "the next call is not answered");
    }

private:
    static TavIDL::Settings settings(bool compact, bool framed) {
        TavIDL::Settings settings;
        settings.protocol = compact ? TavIDL::Settings::Compact : TavIDL::Settings::Binary;
        settings.framed = framed;
        settings.maxMessageSize = 1 << 14;
        settings.bufferSize = 512;
        return settings;
    }

    std::string packed(const std::string& message) const {
        if (!settings_.framed) {
            return message;
        }
        return std::string(3, '\0') + static_cast<char>(message.size()) + message;
    }

    std::string exchange(const std::string& bytes) const {
        peers::Peer peer = connect(server_.address());
        peer.send(bytes);
        peer.closeOutput();
        return peer.receiveRest();
    }

    const peers::Directory directory_;
    const TavIDL::Settings settings_;
    const TavIDL::Server server_;
    std::string request_;
    std::string reply_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    static Served servers[] = {{false, false}, {false, true}, {true, false}, {true, true}};
    fuzz::Input input(bytes, size);
    Served& server = servers[input.choose(4)];
    const bool twice = input.choose(2) == 1;
    server.check(input.rest(), twice);
    return 0;
}
