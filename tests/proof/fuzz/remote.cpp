// Remote objects of Host get any bytes instead of a reply. A call returns, or throws what is
// documented; the next call connects again and is not disturbed.

#include <TavIDL/host/Remote.h>

#include <host/Peer.h>

#include <thread>

#include "Messages.h"

namespace {

struct Settings : TavIDL::Settings {
    Settings(bool compact, bool withFrames) {
        protocol = compact ? Compact : Binary;
        framed = withFrames;
        maxMessageSize = 1 << 14;
        bufferSize = 512;
    }
};

void call(TavIDL::RemoteBroker& broker, TavIDL::RemoteEmp& emp, proof::Call call) {
    std::string text;
    ConnectionInfo info;
    switch (call) {
        case proof::Call::openEmp:
            return broker.OpenEmp(info, "camera", "1.0", "key");
        case proof::Call::brokerExecute:
            return broker.Execute(text, 1, "a", "b", "c", "d", "e");
        case proof::Call::closeEmp:
            broker.CloseEmp(info);
            return;
        case proof::Call::open:
            emp.Open(1, "camera", "1.0", "key");
            return;
        case proof::Call::close:
            emp.Close(1);
            return;
        case proof::Call::empExecute:
            return emp.Execute(text, 1, "a", "b", "c", "d", "e");
        default:
            return emp.ExecuteWithParamList(text, 1, "a", ParamList());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    static const peers::Directory directory;
    static peers::Listener listener(directory.socket());
    fuzz::Input input(bytes, size);
    const std::size_t choice = input.choose(4);
    const proof::Operation& operation =
        proof::kOperations.at(input.choose(proof::kOperations.size() - 1));
    const Settings settings(choice % 2 == 1, choice >= 2);
    const auto callOnce = [&] {
        TavIDL::RemoteBroker broker(listener.address(), settings);
        TavIDL::RemoteEmp emp(listener.address(), settings);
        call(broker, emp, operation.call);
    };

    // The first connection gets the bytes of the input, the second one a reply.
    std::string good = proof::replyTo(operation, fuzz::waysOf(choice % 2)[0]);
    if (settings.framed) {
        good.insert(0, std::string(3, '\0') + static_cast<char>(good.size()));
    }
    const std::string replies[] = {input.rest(), good};
    std::thread peer([&] {
        for (const std::string& reply : replies) {
            peers::Peer connection = listener.accept();
            connection.send(reply);
            connection.closeOutput();
            connection.receiveRest();
        }
    });
    try {
        callOnce();
    } catch (const TavIDL::CallFailed&) {
    } catch (const apache::thrift::TApplicationException&) {
    }
    callOnce();
    peer.join();
    return 0;
}
