#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gtest/gtest.h>

#include "Emp.h"

namespace {

TEST(RemoteTest, ConnectsAgainAfterTheServerHasRestarted) {
    auto server = std::make_unique<TavIDL::Server>("127.0.0.1:0", std::make_shared<Emp>());
    const std::string address = server->address();
    TavIDL::RemoteEmp emp(address);
    EXPECT_EQ(execute(emp, "read"), "read done");
    server.reset();
    EXPECT_THROW(execute(emp, "read"), TavIDL::CallFailed);
    server = std::make_unique<TavIDL::Server>(address, std::make_shared<Emp>());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

}  // namespace
