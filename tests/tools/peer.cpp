// A peer made of libthrift's servers, or of Host's, for tests of what strangers may send it:
//
//     peer KIND PROTOCOL TRANSPORT [CERTIFICATE KEY]
//
// KIND is simple, threaded, nonblocking or host; PROTOCOL binary, compact or json; TRANSPORT
// buffered, framed or http. Prints its port. A call of Close(1) prints "busy" and returns after a
// line on standard input.

#include <TavIDL/host/Server.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>
#include <thrift/server/TNonblockingServer.h>
#include <thrift/server/TSimpleServer.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/THttpServer.h>
#include <thrift/transport/TNonblockingServerSocket.h>
#include <thrift/transport/TServerSocket.h>

#include <functional>
#include <iostream>
#include <string>

using namespace apache::thrift;

namespace {

class Emp : public TavEmpIf {
public:
    bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    int32_t Close(int32_t clientID) override {
        if (clientID == 1) {
            std::cout << "busy" << std::endl;
            std::string line;
            std::getline(std::cin, line);
        }
        return clientID;
    }
    void Execute(std::string&, int32_t, const std::string&, const std::string&, const std::string&,
                 const std::string&, const std::string&) override {}
    void ExecuteWithParamList(std::string&, int32_t, const std::string&,
                              const ParamList&) override {}
};

// Prints the port once connections are accepted.
class Ready : public server::TServerEventHandler {
public:
    explicit Ready(std::function<int()> port) : port_(std::move(port)) {}
    void preServe() override { std::cout << port_() << std::endl; }

private:
    const std::function<int()> port_;
};

std::shared_ptr<protocol::TProtocolFactory> protocolsOf(const std::string& name) {
    if (name == "compact") {
        return std::make_shared<protocol::TCompactProtocolFactory>();
    }
    if (name == "json") {
        return std::make_shared<protocol::TJSONProtocolFactory>();
    }
    return std::make_shared<protocol::TBinaryProtocolFactory>();
}

std::shared_ptr<transport::TTransportFactory> transportsOf(const std::string& name) {
    if (name == "framed") {
        return std::make_shared<transport::TFramedTransportFactory>();
    }
    if (name == "http") {
        return std::make_shared<transport::THttpServerTransportFactory>();
    }
    return std::make_shared<transport::TBufferedTransportFactory>();
}

void serve(server::TServer& server, std::function<int()> port) {
    server.setServerEventHandler(std::make_shared<Ready>(std::move(port)));
    server.serve();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string kind = argv[1];
    const std::string encoding = argv[2];
    const std::string framing = argv[3];
    GlobalOutput.setOutputFunction([](const char*) {});
    const auto emp = std::make_shared<Emp>();
    const auto processor = std::make_shared<TavEmpProcessor>(emp);
    const auto protocols = protocolsOf(encoding);
    if (kind == "host") {
        TavIDL::Settings settings;
        settings.protocol =
            encoding == "compact" ? TavIDL::Settings::Compact : TavIDL::Settings::Binary;
        settings.framed = framing == "framed";
        settings.tls.enabled = argc > 4;
        settings.tls.certificate = argc > 4 ? argv[4] : "";
        settings.tls.key = argc > 4 ? argv[5] : "";
        TavIDL::Server server("127.0.0.1:0", std::shared_ptr<TavEmpIf>(emp), settings);
        std::cout << server.address().substr(server.address().rfind(':') + 1) << std::endl;
        server.runUntilSignal();
    } else if (kind == "nonblocking") {
        const auto socket = std::make_shared<transport::TNonblockingServerSocket>("127.0.0.1", 0);
        server::TNonblockingServer server(processor, protocols, socket);
        serve(server, [&] { return socket->getListenPort(); });
    } else {
        const auto socket = std::make_shared<transport::TServerSocket>("127.0.0.1", 0);
        if (kind == "threaded") {
            server::TThreadedServer server(processor, socket, transportsOf(framing), protocols);
            serve(server, [&] { return socket->getPort(); });
        } else {
            server::TSimpleServer server(processor, socket, transportsOf(framing), protocols);
            serve(server, [&] { return socket->getPort(); });
        }
    }
    return 0;
}
