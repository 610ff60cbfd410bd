#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gtest/gtest.h>
#include <thrift/TProcessor.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <memory>
#include <typeinfo>

#include "Emp.h"

using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::protocol::TCompactProtocolT;
using apache::thrift::protocol::TProtocol;
using apache::thrift::transport::TBufferBase;

namespace {

// Stores the type information of the protocol with which it is served.
class TypeKeeper : public apache::thrift::TProcessor {
public:
    bool process(std::shared_ptr<TProtocol> in, std::shared_ptr<TProtocol> out, void*) override {
        const TProtocol& protocol = *in;
        type = &typeid(protocol);
        return emp_.process(in, out, nullptr);
    }
    const std::type_info* type = nullptr;

private:
    TavEmpProcessor emp_{std::make_shared<Emp>()};
};

const std::type_info* typeServedWith(TavIDL::Settings::Protocol protocol) {
    TavIDL::Settings settings;
    settings.protocol = protocol;
    const auto keeper = std::make_shared<TypeKeeper>();
    TavIDL::Server server("127.0.0.1:0", keeper, settings);
    TavIDL::RemoteEmp emp(server.address(), settings);
    execute(emp, "read");
    server.stop();
    return keeper->type;
}

// TavIDL compares addresses: a type with the same name at another address would cost virtual calls.
TEST(ProtocolTest, TheBinaryProtocolIsOfTheTypeThatTavIdlCallsDirectly) {
    EXPECT_EQ(typeServedWith(TavIDL::Settings::Binary), &typeid(TBinaryProtocolT<TBufferBase>));
}

TEST(ProtocolTest, TheCompactProtocolIsOfTheTypeThatTavIdlCallsDirectly) {
    EXPECT_EQ(typeServedWith(TavIDL::Settings::Compact), &typeid(TCompactProtocolT<TBufferBase>));
}

}  // namespace
