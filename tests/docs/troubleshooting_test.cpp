// The messages that the page about troubleshooting quotes: each is provoked here, and looked for
// there.

#include <TavIDL/host/EmpSession.h>
#include <TavIDL/host/Server.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>

#include "../host/Certificates.h"
#include "../host/Emp.h"

namespace {

using std::chrono::milliseconds;
using TavIDL::Connection;
using TavIDL::RemoteEmp;
using TavIDL::Server;
using TavIDL::Settings;

using Bytes = std::function<void(Connection&)>;

std::string messageOf(const std::function<void()>& work) {
    try {
        work();
        return "no failure";
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

// The page quotes whole messages, with the ports of its own examples.
void expectQuoted(std::string message) {
    std::ifstream file(TAVIDL_TROUBLESHOOTING_PAGE);
    const std::string page(std::istreambuf_iterator<char>(file), {});
    message = std::regex_replace(message, std::regex(":[0-9]{2,}"), ":9090");
    message = std::regex_replace(message, std::regex(" 100 ms"), " 10000 ms");
    EXPECT_NE(page.find("`" + message + "`"), std::string::npos) << "not quoted: " << message;
}

std::string failedCall(const std::string& address, const Settings& settings = Settings()) {
    RemoteEmp emp(address, settings);
    return messageOf([&] { execute(emp, "read"); });
}

// What a call says at a peer that does this with the connection, once it has the request.
std::string failedCallAt(const Bytes& peer, const Settings& settings = Settings()) {
    const Server server("127.0.0.1:0", [&](const std::shared_ptr<Connection>& connection) {
        uint8_t request[4096];
        connection->read(request, sizeof request);
        peer(*connection);
    });
    return failedCall(server.address(), settings);
}

void sayNothing(Connection& connection) {
    uint8_t more = 0;
    connection.read(&more, 1);  // returns when the caller has given up
}

Settings shortTimeout() {
    Settings settings;
    settings.callTimeout = milliseconds(100);
    return settings;
}

TEST(TroubleshootingTest, ThePageQuotesWhatACallSaysWhenItsServerHangs) {
    expectQuoted(failedCallAt(sayNothing, shortTimeout()));
}

TEST(TroubleshootingTest, ThePageQuotesWhatACallSaysWhenNobodyServes) {
    Server server("127.0.0.1:0", std::make_shared<Emp>());
    server.stop();
    expectQuoted(failedCall(server.address()));
}

TEST(TroubleshootingTest, ThePageQuotesWhatACallSaysWhenItsServerEnds) {
    expectQuoted(failedCallAt([](Connection& connection) { connection.close(); }));
}

TEST(TroubleshootingTest, ThePageQuotesWhatACallSaysWhenTheAnswerIsNotThrift) {
    expectQuoted(failedCallAt([](Connection& connection) {
        const std::string http = "HTTP/1.1 400 Bad Request\r\n\r\n";
        connection.write(reinterpret_cast<const uint8_t*>(http.data()),
                         static_cast<uint32_t>(http.size()));
        connection.flush();
        sayNothing(connection);
    }));
}

TEST(TroubleshootingTest, ThePageQuotesWhatACallSaysWhenTheProtocolsDiffer) {
    const Server server("127.0.0.1:0", std::make_shared<Emp>());
    Settings compact;
    compact.protocol = Settings::Compact;
    expectQuoted(failedCall(server.address(), compact));
    Settings framed;
    framed.framed = true;
    expectQuoted(failedCall(server.address(), framed));
}

TEST(TroubleshootingTest, ThePageQuotesWhatAServerSaysWhenThePortIsInUse) {
    const Server server("127.0.0.1:0", std::make_shared<Emp>());
    expectQuoted(
        messageOf([&] { const Server another(server.address(), std::make_shared<Emp>()); }));
}

class TroubleshootingTlsTest : public testing::Test {
protected:
    TroubleshootingTlsTest() {
        forServer.tls.enabled = forClient.tls.enabled = true;
        forServer.tls.certificate = certificate.file;
        forServer.tls.key = certificate.keyFile;
        forClient.tls.trusted = authority.file;
    }

    std::string failedTlsCall() {
        const Server server("127.0.0.1:0", std::make_shared<Emp>(), forServer);
        return failedCall(server.address(), forClient);
    }

    const Directory directory;
    const Certificate authority = makeCertificate(directory, "authority", "", nullptr);
    const Certificate certificate =
        makeCertificate(directory, "server", "IP:127.0.0.1", &authority);
    Settings forServer;
    Settings forClient;
};

TEST_F(TroubleshootingTlsTest, ThePageQuotesWhatACallSaysWhenOnlyOneSideHasTls) {
    forServer.tls.enabled = false;
    expectQuoted(failedTlsCall());
    forServer.tls.enabled = true;
    forClient.tls.enabled = false;
    expectQuoted(failedTlsCall());
}

TEST_F(TroubleshootingTlsTest, ThePageQuotesWhatACallSaysWhenTheCertificateIsNotTrusted) {
    const Certificate another = makeCertificate(directory, "another", "", nullptr);
    forClient.tls.trusted = another.file;
    expectQuoted(failedTlsCall());
}

TEST_F(TroubleshootingTlsTest, ThePageQuotesWhatACallSaysWhenTheCertificateIsForAnotherHost) {
    const Certificate elsewhere =
        makeCertificate(directory, "elsewhere", "DNS:elsewhere.example", &authority);
    forServer.tls.certificate = elsewhere.file;
    forServer.tls.key = elsewhere.keyFile;
    expectQuoted(failedTlsCall());
}

TEST_F(TroubleshootingTlsTest, ThePageQuotesWhatACallSaysWhenTheCertificateHasExpired) {
    const Certificate old =
        makeCertificate(directory, "old", "IP:127.0.0.1", &authority, Validity{-2, -1});
    forServer.tls.certificate = old.file;
    forServer.tls.key = old.keyFile;
    expectQuoted(failedTlsCall());
}

TEST_F(TroubleshootingTlsTest, ThePageQuotesWhatACallSaysWhenTheServerWantsACertificate) {
    forServer.tls.trusted = authority.file;
    expectQuoted(failedTlsCall());
}

TEST_F(TroubleshootingTlsTest, ThePageQuotesWhatASettingWithoutAFileSays) {
    forClient.tls.trusted = "ca.pem";
    expectQuoted(messageOf([&] { const RemoteEmp emp(":9090", forClient); }));
}

}  // namespace
