#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gtest/gtest.h>

#include "Emp.h"

namespace {

TEST(ServerTest, IsReadyWhenItIsConstructed) {
    const TavIDL::Server server("127.0.0.1:0", std::make_shared<Emp>());
    TavIDL::RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

}  // namespace
