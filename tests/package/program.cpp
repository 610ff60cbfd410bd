// A user's program: a call to a broker in the same process, over two memory buffers.

#include <TavIDL/TavIDL.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <iostream>

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TMemoryBuffer;

namespace {

class Broker : public TavBrokerIf {
public:
    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string&) override {
        result.empID = name + " " + version;
    }
    void Execute(std::string&, int32_t, const std::string&, const std::string&, const std::string&,
                 const std::string&, const std::string&) override {}
    bool CloseEmp(const ConnectionInfo&) override { return false; }
};

TavIDL::ProtocolPointer makeProtocol() {
    const TavIDL::shared_ptr<TMemoryBuffer> buffer(new TMemoryBuffer);
    return TavIDL::ProtocolPointer(new TBinaryProtocol(buffer));
}

}  // namespace

int main() {
    const TavIDL::ProtocolPointer requests = makeProtocol();
    const TavIDL::ProtocolPointer replies = makeProtocol();
    TavBrokerClient client(replies, requests);
    TavBrokerProcessor processor{TavIDL::shared_ptr<TavBrokerIf>(new Broker)};

    client.send_OpenEmp("camera", "1.0", "key");
    processor.process(requests, replies, nullptr);
    ConnectionInfo info;
    client.recv_OpenEmp(info);

    std::cout << info.empID << '\n';
}
