#include "peer.h"

#include <TavBroker.capnp.h>
#include <capnp/rpc-twoparty.h>
#include <kj/async-io.h>

#include <memory>

namespace peers {

namespace {

std::string_view view(capnp::Text::Reader text) {
    return {text.begin(), text.size()};
}

class Broker final : public capnproto::TavBroker::Server {
    kj::Promise<void> execute(ExecuteContext context) override {
        const auto call = context.getParams();
        const std::string_view result =
            peers::execute(call.getCaller(),
                           {view(call.getCommand()), view(call.getFirst()), view(call.getSecond()),
                            view(call.getThird()), view(call.getFourth())});
        context.getResults().setResult(capnp::Text::Reader(result.data(), result.size()));
        return kj::READY_NOW;
    }
};

kj::Own<kj::NetworkAddress> find(kj::AsyncIoContext& io, const std::string& address) {
    return io.provider->getNetwork().parseAddress(address.c_str()).wait(io.waitScope);
}

struct Connection {
    explicit Connection(const std::string& address)
        : stream(find(io, address)->connect().wait(io.waitScope)) {}

    kj::AsyncIoContext io = kj::setupAsyncIo();
    kj::Own<kj::AsyncIoStream> stream;
    capnp::TwoPartyClient client{*stream};
    capnproto::TavBroker::Client broker = client.bootstrap().castAs<capnproto::TavBroker>();
};

}  // namespace

void serve(const std::string& address) {
    auto io = kj::setupAsyncIo();
    auto listener = find(io, address)->listen();
    announce(address, listener->getPort());
    capnp::TwoPartyServer(kj::heap<Broker>()).listen(*listener).wait(io.waitScope);
}

Call connect(const std::string& address) {
    return [connection = std::make_shared<Connection>(address)](const Arguments& arguments) {
        const auto text = [&](std::size_t i) {
            return capnp::Text::Reader(arguments.strings[i].data(), arguments.strings[i].size());
        };
        auto call = connection->broker.executeRequest();
        call.setCaller(arguments.caller);
        call.setCommand(text(0));
        call.setFirst(text(1));
        call.setSecond(text(2));
        call.setThird(text(3));
        call.setFourth(text(4));
        return std::string(view(call.send().wait(connection->io.waitScope).getResult()));
    };
}

}  // namespace peers
