#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include "Calls.h"
#include "Substitutes.h"

using testing::AnyOf;
using testing::EndsWith;
using testing::StartsWith;

namespace {

using substitutes::Behavior;
using substitutes::Substitute;

// A client's error message for an address; empty if the address is valid.
std::string complaintAbout(const std::string& address) {
    try {
        const TavIDL::RemoteEmp emp(address);
    } catch (const std::invalid_argument& complaint) {
        return complaint.what();
    }
    return "";
}

std::string unixPathOf(std::size_t bytes) {
    return "unix:/" + std::string(bytes - 1, 'p');
}

class ValidAddressTest : public testing::TestWithParam<const char*> {};

TEST_P(ValidAddressTest, IsAcceptedAndReturnedUnchanged) {
    const TavIDL::RemoteEmp emp(GetParam());
    EXPECT_EQ(emp.address(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(, ValidAddressTest,
                         testing::Values("127.0.0.1:1", "localhost:65535", "emp.example:4711",
                                         "[::1]:4711", "[fe80::1%lo]:4711", ":4711", "unix:socket",
                                         "unix:/run/emp", "unix:with:colon", "unix:with space"));

class InvalidAddressTest : public testing::TestWithParam<const char*> {};

TEST_P(InvalidAddressTest, IsRejectedWithAMessageThatSaysWhatIsValid) {
    EXPECT_EQ(complaintAbout(GetParam()),
              "'" + std::string(GetParam()) +
                  "' is not a valid address; write HOST:PORT, [IPV6]:PORT, :PORT (this machine) or "
                  "unix:PATH, with a port from 1 to 65535");
}

INSTANTIATE_TEST_SUITE_P(, InvalidAddressTest,
                         testing::Values("", ":", "4711", "localhost", "localhost:", "localhost:0",
                                         ":0", "localhost:65536", "localhost:99999999999999999999",
                                         "localhost:-1", "localhost:+1", "localhost: 1",
                                         "localhost:1 ", "localhost:1x", "localhost:0x10",
                                         "localhost:http", "::1:4711", "::1", "[::1]",
                                         "[::1]:", "[::1]4711", "[::1:4711", "::1]:4711", "[]:4711",
                                         "[[::1]]:4711", "[localhost]:4711", "[127.0.0.1]:4711",
                                         "http://localhost:4711", "tcp://localhost:4711",
                                         "localhost:4711/", "local[host:4711", "local]host:4711",
                                         "unix", "UNIX:/run/emp"));

TEST(AddressTest, IsRejectedIfItContainsAZeroByte) {
    EXPECT_NE(complaintAbout(std::string("local\0host:1", 12)), "");
    EXPECT_NE(complaintAbout(std::string("unix:/run\0/emp", 14)), "");
}

TEST(AddressTest, OfAUnixSocketHasAPathOfAtMost107Bytes) {
    EXPECT_EQ(complaintAbout(unixPathOf(107)), "");
    EXPECT_EQ(complaintAbout(unixPathOf(108)),
              "'" + unixPathOf(108) + "' is not a valid address: a path has 1 to 107 bytes");
    EXPECT_EQ(complaintAbout("unix:"), "'unix:' is not a valid address: a path has 1 to 107 bytes");
}

TEST(AddressTest, OfAServerMayHavePort0) {
    const TavIDL::Server server(":0", std::make_shared<Emp>());
    EXPECT_THAT(server.address(), StartsWith("127.0.0.1:"));
    EXPECT_NE(server.address(), "127.0.0.1:0");
}

TEST(AddressTest, WithoutAHostMeansTheLoopback) {
    const peers::Listener listener;
    const std::string port = listener.address().substr(listener.address().find(':'));
    EXPECT_NO_THROW(TavIDL::Connection::open(port));
    EXPECT_TRUE(listener.hasVisitor());
}

TEST(AddressTest, IsLookedUpOnlyByCalls) {
    TavIDL::RemoteEmp emp("no-such-host.invalid:1");
    const calls::CallFailed failure = calls::failureOf([&] { execute(emp, "read"); });
    EXPECT_EQ(failure.reason(), calls::CallFailed::CannotConnect);
    EXPECT_THAT(failure.what(),
                StartsWith("TavEmp.Execute at no-such-host.invalid:1: cannot connect: "
                           "cannot find the host 'no-such-host.invalid': "));
    // The second one without a name server.
    EXPECT_THAT(failure.what(),
                AnyOf(EndsWith(gai_strerror(EAI_NONAME)), EndsWith(gai_strerror(EAI_AGAIN))));
}

// The first address refuses the connection.
TEST(AddressTest, OfANameIsTriedUntilOneConnects) {
    const TavIDL::Server server("127.0.0.1:0", std::make_shared<Emp>());
    TavIDL::RemoteEmp emp(substitutes::kBothLoopbacks +
                          server.address().substr(server.address().find(':')));
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(AddressTest, OfANameIsTriedOnce) {
    const peers::ReservedPort nobody;
    const long before = substitutes::connectCalls();
    EXPECT_THROW(TavIDL::Connection::open(substitutes::kBothLoopbacks +
                                          (":" + std::to_string(nobody.number()))),
                 calls::CallFailed);
    EXPECT_EQ(substitutes::connectCalls() - before, 2);
}

// Otherwise no time would be left for the call.
TEST(AddressTest, ThatDoesNotAnswerLeavesTimeForTheNextOne) {
    const Substitute expiring(Behavior::ConnectExpires);
    const TavIDL::Server server("127.0.0.1:0", std::make_shared<Emp>());
    TavIDL::Settings settings;
    settings.connectTimeout = settings.callTimeout = std::chrono::hours(1);
    TavIDL::RemoteEmp emp(
        substitutes::kBothLoopbacks + server.address().substr(server.address().find(':')),
        settings);
    EXPECT_EQ(execute(emp, "read"), "read done");
}

// Linux always reports that connecting goes on; other systems may not.
TEST(AddressTest, MayConnectImmediately) {
    const TavIDL::Server server("127.0.0.1:0", std::make_shared<Emp>());
    const Substitute immediate(Behavior::ConnectsImmediately);
    TavIDL::RemoteEmp emp(server.address());
    EXPECT_EQ(execute(emp, "read"), "read done");
}

TEST(AddressTest, MayRefuseImmediately) {
    const peers::ReservedPort nobody;
    const Substitute immediate(Behavior::ConnectsImmediately);
    const auto failure =
        calls::failureOf([&] { TavIDL::Connection::open(":" + std::to_string(nobody.number())); });
    EXPECT_EQ(failure.reason(), calls::CallFailed::CannotConnect);
}

TEST(AddressTest, GetsAllOfTheTimeIfThereIsNoOther) {
    const Substitute expiring(Behavior::ConnectExpires);
    TavIDL::Settings settings;
    settings.connectTimeout = std::chrono::hours(1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(TavIDL::Connection::open("127.0.0.1:1", settings), calls::CallFailed);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::minutes(59));
}

struct InvalidSetting {
    const char* complaint;  // begins with the setting's name
    void (*spoil)(TavIDL::Settings&);
};

class InvalidSettingTest : public testing::TestWithParam<InvalidSetting> {};

TEST_P(InvalidSettingTest, IsRejectedByName) {
    TavIDL::Settings settings;
    GetParam().spoil(settings);
    try {
        const TavIDL::RemoteEmp emp("localhost:1", settings);
        FAIL() << "accepted";
    } catch (const std::invalid_argument& complaint) {
        EXPECT_EQ(complaint.what(), std::string("Settings::") + GetParam().complaint);
    }
}

using std::chrono::milliseconds;
using TavIDL::Settings;
constexpr uint32_t kMost = 100 << 20;
constexpr milliseconds kYear = std::chrono::hours(24 * 365);
constexpr const char* kBuffer = "bufferSize must be from 64 bytes to 100 MiB";
constexpr const char* kMessage = "maxMessageSize must be from 64 bytes to 100 MiB";
constexpr const char* kStop = "stopTimeout must be from 0 ms to a year";

INSTANTIATE_TEST_SUITE_P(
    , InvalidSettingTest,
    testing::Values(
        InvalidSetting{kBuffer, [](Settings& s) { s.bufferSize = 63; }},
        InvalidSetting{kBuffer, [](Settings& s) { s.bufferSize = kMost + 1; }},
        InvalidSetting{kMessage, [](Settings& s) { s.maxMessageSize = 63; }},
        InvalidSetting{kMessage, [](Settings& s) { s.maxMessageSize = kMost + 1; }},
        InvalidSetting{"batchWindow must not be 0", [](Settings& s) { s.batchWindow = 0; }},
        InvalidSetting{"maxConnections must not be 0", [](Settings& s) { s.maxConnections = 0; }},
        InvalidSetting{"maxClients must not be 0", [](Settings& s) { s.maxClients = 0; }},
        InvalidSetting{"unixMode must be from 0 to 0777", [](Settings& s) { s.unixMode = 01000; }},
        InvalidSetting{"connectTimeout must be from 1 ms to a year",
                       [](Settings& s) { s.connectTimeout = milliseconds(-1); }},
        InvalidSetting{"callTimeout must be from 1 ms to a year",
                       [](Settings& s) { s.callTimeout = milliseconds(0); }},
        InvalidSetting{"callTimeout must be from 1 ms to a year",
                       [](Settings& s) { s.callTimeout = kYear + milliseconds(1); }},
        InvalidSetting{"idleTimeout must be from 1 ms to a year",
                       [](Settings& s) { s.idleTimeout = milliseconds(0); }},
        InvalidSetting{"receiveTimeout must be from 1 ms to a year",
                       [](Settings& s) { s.receiveTimeout = milliseconds::max(); }},
        InvalidSetting{"sendTimeout must be from 1 ms to a year",
                       [](Settings& s) { s.sendTimeout = milliseconds(0); }},
        InvalidSetting{kStop, [](Settings& s) { s.stopTimeout = milliseconds(-1); }},
        InvalidSetting{kStop, [](Settings& s) { s.stopTimeout = kYear + milliseconds(1); }}),
    [](const testing::TestParamInfo<InvalidSetting>& test) {
        const std::string complaint = test.param.complaint;
        return complaint.substr(0, complaint.find(' ')) + std::to_string(test.index);
    });

TEST(SettingsTest, AreAcceptedAtTheirLimits) {
    Settings least;
    least.bufferSize = least.maxMessageSize = 64;
    least.batchWindow = 1;
    least.maxConnections = 1;
    least.maxClients = 1;
    least.unixMode = 0;
    least.connectTimeout = least.callTimeout = least.idleTimeout = least.receiveTimeout =
        least.sendTimeout = milliseconds(1);
    least.stopTimeout = milliseconds(0);
    EXPECT_NO_THROW(TavIDL::RemoteEmp("localhost:1", least));

    Settings most;
    most.bufferSize = most.maxMessageSize = kMost;
    most.unixMode = 0777;
    most.connectTimeout = most.callTimeout = most.idleTimeout = most.receiveTimeout =
        most.sendTimeout = most.stopTimeout = kYear;
    EXPECT_NO_THROW(TavIDL::RemoteEmp("localhost:1", most));
}

}  // namespace
