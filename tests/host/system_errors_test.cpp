// Exceptions name the function of the system that failed, and the address.

#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "Calls.h"
#include "Substitutes.h"
#include "Support.h"

namespace {

using substitutes::Failing;

std::string failureToConnectTo(const std::string& address) {
    return calls::failureOf([&] { TavIDL::Connection::open(address); }).what();
}

std::string failureToServeAt(const std::string& address) {
    try {
        const TavIDL::Server server(address, std::make_shared<Emp>());
    } catch (const std::system_error& failure) {
        return failure.what();
    }
    return "";
}

TEST(SystemErrorTest, NamesTheSocketThatAClientCannotMake) {
    const Failing none("socket", EMFILE);
    EXPECT_EQ(failureToConnectTo("unix:/none"),
              "Connection::open at unix:/none: cannot connect: "
              "cannot make a socket: Too many open files");
}

TEST(SystemErrorTest, NamesTheHostThatCannotBeLookedUp) {
    const Failing none("getaddrinfo", EMFILE);
    EXPECT_EQ(failureToConnectTo("localhost:1"),
              "Connection::open at localhost:1: cannot connect: "
              "cannot find the host 'localhost': Too many open files");
}

TEST(SystemErrorTest, NamesTheLocalAddressThatIsNotKnown) {
    const TavIDL::Server server(":0", std::make_shared<Emp>());
    const Failing nameless("getnameinfo");
    EXPECT_EQ(failureToConnectTo(server.address()),
              "Connection::open at " + server.address() +
                  ": cannot connect: cannot get the connection's local address");
}

TEST(SystemErrorTest, UnixSocketsNeedNoHostName) {
    const peers::Directory directory;
    const TavIDL::Server server(directory.socket(), std::make_shared<Emp>());
    const Failing nameless("getnameinfo");
    TavIDL::RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(SystemErrorTest, OfTheWaitForAConnectionIsNotTakenForATimeout) {
    const peers::Listener listener;
    const Failing noWait("poll", ENOMEM);
    EXPECT_EQ(
        failureToConnectTo(listener.address()),
        "Connection::open at " + listener.address() + ": cannot connect: Cannot allocate memory");
}

TEST(SystemErrorTest, NamesWhatASocketRefusesWhenItIsConnected) {
    const peers::Listener listener;
    const Failing blocking("fcntl", EPERM);
    EXPECT_EQ(failureToConnectTo(listener.address()),
              "Connection::open at " + listener.address() +
                  ": cannot connect: fcntl: Operation not permitted");
}

// Otherwise the call would wait without a limit.
TEST(SystemErrorTest, EndsACallWhoseTimeoutCannotBeSet) {
    const peers::Listener listener;
    TavIDL::RemoteEmp emp(listener.address());
    const Failing limit("setsockopt", ENOMEM);
    const auto failure = calls::failureOf([&] { execute(emp, "read"); });
    EXPECT_EQ(failure.reason(), TavIDL::CallFailed::ConnectionClosed);
    EXPECT_EQ(failure.what(),
              "TavEmp.Execute at " + listener.address() +
                  ": the connection was closed: setsockopt: Cannot allocate memory");
}

TEST(SystemErrorTest, EndsAWriteThatCannotWait) {
    const peers::Listener listener;
    const auto connection = TavIDL::Connection::open(listener.address());
    const std::string much(64 << 20, 'x');  // more than the system takes
    const Failing noWait("poll", ENOMEM);
    try {
        connection->write(reinterpret_cast<const uint8_t*>(much.data()),
                          static_cast<uint32_t>(much.size()));
        FAIL() << "everything was sent";
    } catch (const apache::thrift::transport::TTransportException& failure) {
        EXPECT_STREQ(failure.what(), "poll: Cannot allocate memory");
        EXPECT_EQ(failure.getType(), failure.UNKNOWN);
    }
}

TEST(SystemErrorTest, LeavesAPeerUnknown) {
    Gate nameless;
    std::string peer;
    TavIDL::Server server(":0", [&](const std::shared_ptr<TavIDL::Connection>& connection) {
        nameless.wait();
        peer = connection->peer();
    });
    const auto client = TavIDL::Connection::open(server.address());
    const Failing names("getnameinfo");
    nameless.open();
    server.finish();
    EXPECT_EQ(peer, "unknown");
}

TEST(SystemErrorTest, NamesTheSocketThatAServerCannotMake) {
    const Failing none("socket", EMFILE);
    EXPECT_EQ(failureToServeAt(":0"), "cannot make a socket: Too many open files");
}

TEST(SystemErrorTest, NamesThePortInUse) {
    const TavIDL::Server first(":0", std::make_shared<Emp>());
    EXPECT_EQ(failureToServeAt(first.address()),
              "cannot listen on " + first.address() + ": Address already in use");
}

TEST(SystemErrorTest, NamesThePathThatDoesNotExist) {
    const Directory directory;
    const std::string address = directory.socket("missing/socket");
    EXPECT_EQ(failureToServeAt(address),
              "cannot listen on " + address + ": No such file or directory");
}

TEST(SystemErrorTest, NamesThePathWhosePermissionsCannotBeSet) {
    const Directory directory;
    const Failing permissions("chmod", EPERM);
    EXPECT_EQ(failureToServeAt(directory.socket()),
              "cannot listen on " + directory.socket() + ": Operation not permitted");
}

TEST(SystemErrorTest, NamesTheEventDescriptorOfAServer) {
    const Failing none("eventfd", EMFILE);
    EXPECT_EQ(failureToServeAt(":0"), "eventfd: Too many open files");
}

// A process makes it when it first waits for a signal; no other test in this program does.
TEST(SystemErrorTest, NamesTheEventDescriptorForSignals) {
    TavIDL::Server server(":0", std::make_shared<Emp>());
    const Failing none("eventfd", EMFILE);
    try {
        server.runUntilSignal();
        FAIL() << "a signal came";
    } catch (const std::system_error& failure) {
        EXPECT_STREQ(failure.what(), "eventfd: Too many open files");
    }
}

TEST(SystemErrorTest, OfAcceptingIsReportedAndDoesNotKeepTheServerBusy) {
    Reports<std::string> reports;
    std::optional<TavIDL::Server> server;
    const int accepting =
        threadStartedBy([&] { server.emplace(":0", std::make_shared<Emp>(), patient(reports)); });
    for (std::size_t round = 1; round <= 2; ++round) {
        TavIDL::RemoteEmp emp(server->address());
        std::optional<calls::Running> call;
        {
            const Failing none("accept4", EMFILE);
            call.emplace([&] { return execute(emp, "read"); });
            EXPECT_EQ(reports.waitFor(round).back(),
                      server->address() + ": cannot accept connections: Too many open files");
            peers::waitUntilAsleep(accepting);
        }
        EXPECT_EQ(call->result(), "read done");
    }
}

}  // namespace
