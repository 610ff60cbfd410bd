#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <gmock/gmock.h>
#include <openssl/err.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "Caller.h"
#include "Calls.h"
#include "Certificates.h"
#include "Clock.h"
#include "Emp.h"
#include "OpensslSubstitutes.h"
#include "Support.h"

// TLS on both sides.

namespace {

using apache::thrift::transport::TTransportException;
using std::chrono::milliseconds;
using TavIDL::CallFailed;
using TavIDL::Connection;
using TavIDL::RemoteEmp;
using TavIDL::Server;
using TavIDL::Settings;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kHere = "DNS:localhost,IP:127.0.0.1";

class TlsTest : public testing::Test {
protected:
    TlsTest() : forServer(patient(reports)), forClient(forServer) {
        use(certificate);
        forClient.tls.enabled = true;
        forClient.tls.trusted = authority.file;
        forClient.onFailure = nullptr;
    }

    // Sets the server's certificate.
    void use(const Certificate& own) {
        forServer.tls.enabled = true;
        forServer.tls.certificate = own.file;
        forServer.tls.key = own.keyFile;
    }

    std::unique_ptr<Server> serve(const std::string& address = "127.0.0.1:0") {
        return std::make_unique<Server>(address, emp, forServer);
    }

    // Makes a call. Returns the reason if it fails, else "".
    std::string failureOf(const std::string& address) {
        RemoteEmp remote(address, forClient);
        try {
            EXPECT_EQ(execute(remote, "read"), "read done");
            return "";
        } catch (const CallFailed& failure) {
            reason = failure.reason();
            return failure.what();
        }
    }

    // The server still runs and serves valid clients.
    void expectService(const Server& server) { EXPECT_EQ(failureOf(server.address()), ""); }

    const Directory directory;
    const Certificate authority = makeCertificate(directory, "authority", "", nullptr);
    const Certificate certificate = makeCertificate(directory, "server", kHere, &authority);
    Reports<std::string> reports;
    Settings forServer;
    Settings forClient;
    CallFailed::Reason reason = CallFailed::Cancelled;
    Gate entered;
    Gate leave;
    std::shared_ptr<TavEmpIf> emp =
        std::make_shared<Emp>([this](const std::string& cmd, const std::string& param1) {
            if (cmd == "wait") {
                entered.open();
                leave.wait();
            }
            if (cmd == "much") {
                return std::string(8 << 20, 'x');
            }
            if (cmd == "leave an error") {
                ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
            }
            return cmd == "echo" ? param1 : cmd + " done";
        });
};

TEST_F(TlsTest, IsRefusedOverAUnixSocket) {
    try {
        const RemoteEmp remote("unix:/emp", forClient);
        FAIL() << "accepted";
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "TLS cannot be used over unix:/emp: it needs TCP");
    }
}

TEST_F(TlsTest, CallsByNameAndByNumber) {
    for (const std::string address : {"127.0.0.1:0", "localhost:0"}) {
        const auto server = serve(address);
        EXPECT_EQ(failureOf(server->address()), "");
    }
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(TlsTest, AnIpv6AddressMustBeInTheCertificate) {
    const std::string here = peers::hasIpv6() ? "[::1]:0" : "127.0.0.1:0";
    use(makeCertificate(directory, "numbers", "IP:127.0.0.1,IP:::1", &authority));
    EXPECT_EQ(failureOf(serve(here)->address()), "");

    use(makeCertificate(directory, "other", "IP:192.0.2.1,IP:::2", &authority));
    EXPECT_THAT(failureOf(serve(here)->address()), HasSubstr("address mismatch"));
}

TEST_F(TlsTest, CarriesLongMessagesFramedOrNot) {
    for (const bool framed : {false, true}) {
        forServer.framed = forClient.framed = framed;
        const auto server = serve();
        RemoteEmp remote(server->address(), forClient);
        for (const std::size_t length : {0U, 4000U, 16384U, 1000000U}) {
            const std::string text(length, 'x');
            EXPECT_EQ(execute(remote, "echo", text), text);
        }
    }
}

// --- Which servers a client trusts

TEST_F(TlsTest, AClientRejectsUntrustedServers) {
    const Certificate other = makeCertificate(directory, "other", "", nullptr);
    const struct {
        Certificate certificate;
        const char* why;
    } cases[] = {
        {makeCertificate(directory, "stranger", kHere, &other), "unable to get"},
        {makeCertificate(directory, "itself", kHere, nullptr), "self"},
        {makeCertificate(directory, "expired", kHere, &authority, {-2, -1}), "has expired"},
        {makeCertificate(directory, "early", kHere, &authority, {1, 2}), "not yet valid"},
        {makeCertificate(directory, "elsewhere", "DNS:example.org,IP:192.0.2.1", &authority),
         "address mismatch"},
        {makeCertificate(directory, "named", "DNS:127.0.0.1", &authority), "address mismatch"}};
    for (const auto& [own, why] : cases) {
        use(own);
        const auto server = serve();
        EXPECT_THAT(failureOf(server->address()), HasSubstr(why));
        EXPECT_EQ(reason, CallFailed::CannotConnect);
        EXPECT_EQ(reports.waitFor(1).size(), 1U);  // the client has sent the reason to the server
        reports.clear();
    }
}

TEST_F(TlsTest, AClientComparesTheNameInTheAddress) {
    use(makeCertificate(directory, "elsewhere", "DNS:example.org,IP:127.0.0.1", &authority));
    const auto server = serve("localhost:0");
    EXPECT_THAT(failureOf(server->address()), HasSubstr("hostname mismatch"));
}

TEST_F(TlsTest, WithoutCheckHostAnyHostOfTheAuthorityIsAccepted) {
    forClient.tls.checkHost = false;
    use(makeCertificate(directory, "elsewhere", "DNS:example.org", &authority));
    EXPECT_EQ(failureOf(serve()->address()), "");

    use(makeCertificate(directory, "itself", "DNS:example.org", nullptr));
    EXPECT_NE(failureOf(serve()->address()), "");
}

TEST_F(TlsTest, AClientWithoutTrustedFileTrustsTheSystemsAuthorities) {
    forClient.tls.trusted = "";
    EXPECT_NE(failureOf(serve()->address()), "");        // ours is not one of them
    setenv("SSL_CERT_FILE", authority.file.c_str(), 1);  // where OpenSSL looks for them
    EXPECT_EQ(failureOf(serve()->address()), "");
    unsetenv("SSL_CERT_FILE");
}

// --- Which clients a server trusts

TEST_F(TlsTest, AServerAcceptsClientsWithACertificate) {
    forServer.tls.trusted = authority.file;
    const Certificate own = makeCertificate(directory, "client", "DNS:client", &authority);
    forClient.tls.certificate = own.file;
    forClient.tls.key = own.keyFile;
    EXPECT_EQ(failureOf(serve()->address()), "");
}

TEST_F(TlsTest, AServerRejectsUntrustedClients) {
    forServer.tls.trusted = authority.file;
    const auto server = serve();
    const Certificate other = makeCertificate(directory, "other", "", nullptr);
    const Certificate cases[] = {
        Certificate(),  // none
        makeCertificate(directory, "stranger", "DNS:client", &other),
        makeCertificate(directory, "expired", "DNS:client", &authority, {-2, -1})};
    for (const Certificate& own : cases) {
        forClient.tls.certificate = own.file;
        forClient.tls.key = own.keyFile;
        EXPECT_THAT(failureOf(server->address()), HasSubstr("alert"));
        EXPECT_EQ(reason, CallFailed::ConnectionClosed);
        EXPECT_THAT(reports.waitFor(1), ElementsAre(HasSubstr("certificate")));
        reports.clear();
    }
}

// --- Settings

TEST_F(TlsTest, NamesTheUnusableFileAndTheReason) {
    const auto failure = [this](const Settings& settings) -> std::string {
        try {
            Server("127.0.0.1:0", emp, settings);
            return "none";
        } catch (const std::invalid_argument& invalid) {
            return invalid.what();
        }
    };
    for (const auto file : {&TavIDL::Tls::certificate, &TavIDL::Tls::key, &TavIDL::Tls::trusted}) {
        Settings settings = forServer;
        settings.tls.*file = directory.file("missing.pem");
        EXPECT_EQ(failure(settings), "TLS: cannot use '" + directory.file("missing.pem") +
                                         "': No such file or directory");
    }
    Settings settings = forServer;
    settings.tls.key = makeCertificate(directory, "other", kHere, nullptr).keyFile;
    EXPECT_EQ(failure(settings), "TLS: cannot use '" + settings.tls.key + "': key values mismatch");
    settings.tls.key = "";
    EXPECT_EQ(failure(settings), "TLS: a server needs a certificate and its key");
    settings = forServer;
    settings.tls.certificate = "";
    EXPECT_EQ(failure(settings), "TLS: a server needs a certificate and its key");
}

TEST_F(TlsTest, IsNotForUnixSockets) {
    EXPECT_THROW(serve(directory.socket()), std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(directory.file("socket")));
    EXPECT_THROW(RemoteEmp(directory.socket(), forClient), std::invalid_argument);
}

// --- Peers that don't speak TLS

TEST_F(TlsTest, AClientWithoutTlsIsRejected) {
    const auto server = serve();
    Caller client(server->address());
    client.send(requestFor("read"));
    client.waitForEnd();
    EXPECT_THAT(reports.all(), ElementsAre(HasSubstr("TLS: handshake failed: ")));
    expectService(*server);
}

TEST_F(TlsTest, AClientThatStopsSpeakingTlsIsDisconnected) {
    const auto server = serve();
    TlsCaller client(server->address());
    client.shakeHands();
    client.caller().send(requestFor("read"));
    client.caller().waitForEnd();
    EXPECT_THAT(reports.all(), ElementsAre(HasSubstr("closed: TLS: cannot read: ")));
}

TEST_F(TlsTest, AServerWithoutTlsIsRejected) {
    forServer.tls = TavIDL::Tls();
    const auto server = serve();
    EXPECT_NE(failureOf(server->address()), "");
    EXPECT_EQ(reason, CallFailed::CannotConnect);
    EXPECT_EQ(reports.waitFor(1).size(), 1U);
    forClient.tls = TavIDL::Tls();
    expectService(*server);
}

TEST_F(TlsTest, AServerThatClosesInsteadOfAHandshakeIsReported) {
    peers::Listener listener;
    calls::Running call([&] { return failureOf(listener.address()); });
    peers::Peer peer = listener.accept();
    peer.closeOutput();
    EXPECT_THAT(call.result(), HasSubstr("TLS: handshake failed: the connection was closed"));
    EXPECT_EQ(reason, CallFailed::CannotConnect);
}

// --- Versions and sessions

// A client that OpenSSL connects.
struct OpensslClient {
    OpensslClient(const std::string& address, SSL_CTX* context, SSL_SESSION* old = nullptr)
        : caller(address), session(SSL_new(context), SSL_free) {
        SSL_set_fd(session.get(), caller.descriptor());
        SSL_set_session(session.get(), old);
        connected = SSL_connect(session.get()) == 1;
    }

    Caller caller;
    const std::shared_ptr<SSL> session;
    bool connected = false;
};

std::shared_ptr<SSL_CTX> clientUpTo(int version) {
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_set_max_proto_version(context.get(), version);
    return context;
}

// OpenSSL refuses to resume a session with a client certificate, unless it is set up for that.
TEST_F(TlsTest, AClientWithTls12MayConnectAgainWithItsOldSession) {
    const Certificate own = makeCertificate(directory, "client", "DNS:client", &authority);
    forServer.tls.trusted = authority.file;
    const auto server = serve();
    const auto context = clientUpTo(TLS1_2_VERSION);
    SSL_CTX_use_certificate_file(context.get(), own.file.c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_use_PrivateKey_file(context.get(), own.keyFile.c_str(), SSL_FILETYPE_PEM);
    std::shared_ptr<SSL_SESSION> old;
    for (int round = 0; round < 2; ++round) {
        const OpensslClient client(server->address(), context.get(), old.get());
        EXPECT_TRUE(client.connected);
        old.reset(SSL_get1_session(client.session.get()), SSL_SESSION_free);
        SSL_shutdown(client.session.get());
    }
}

TEST_F(TlsTest, AServerKeepsNoSessionsAndSendsNone) {
    const auto server = serve();
    const std::string request = requestFor("read");
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        for (const auto tickets : {0UL, static_cast<unsigned long>(SSL_OP_NO_TICKET)}) {
            const auto context = clientUpTo(version);
            SSL_CTX_set_options(context.get(), tickets);
            const OpensslClient client(server->address(), context.get());
            SSL* const session = client.session.get();
            SSL_write(session, request.data(), static_cast<int>(request.size()));
            char byte = 0;
            EXPECT_EQ(SSL_read(session, &byte, 1), 1);  // a ticket would have come before
            EXPECT_EQ(SSL_version(session), version);
            EXPECT_FALSE(SSL_SESSION_is_resumable(SSL_get0_session(session)));
        }
    }
}

// Which of the versions 1.1, 1.2 and 1.3 a server accepts: one bit for each, that of 1.3 is the
// lowest.
int acceptedVersions() {
    const Directory directory;
    std::ofstream(directory.file("openssl.cnf")) << "openssl_conf = all\n"
                                                    "[all]\nssl_conf = ssl\n"
                                                    "[ssl]\nsystem_default = allowed\n"
                                                    "[allowed]\nMinProtocol = TLSv1\n"
                                                    "CipherString = ALL:@SECLEVEL=0\n";
    setenv("OPENSSL_CONF", directory.file("openssl.cnf").c_str(), 1);
    const Certificate own = makeCertificate(directory, "server", kHere, nullptr);
    Settings settings;
    settings.tls.enabled = true;
    settings.tls.certificate = own.file;
    settings.tls.key = own.keyFile;
    const Server server("127.0.0.1:0", std::make_shared<Emp>(), settings);
    int accepted = 0;
    for (const int version : {TLS1_1_VERSION, TLS1_2_VERSION, TLS1_3_VERSION}) {
        const OpensslClient client(server.address(), clientUpTo(version).get());
        accepted = 2 * accepted + client.connected;
    }
    return accepted;
}

// In its own process, where OpenSSL has not read its configuration yet. The exit status says what
// is accepted.
TEST(TlsVersionTest, Before12IsRefusedEvenIfOpensslIsConfiguredForIt) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(std::exit(acceptedVersions()), testing::ExitedWithCode(0b011), "");
}

// --- Clients that disconnect. (A SIGPIPE would end the process.)

TEST_F(TlsTest, AClientMayCloseOrResetDuringTheHandshake) {
    const auto server = serve();
    const std::string hello = TlsCaller(server->address()).hello();
    reports.waitFor(1);
    for (const bool reset : {false, true}) {
        for (std::size_t sent = 0; sent <= hello.size(); sent += sent < 16 ? 1 : 50) {
            reports.clear();
            Caller client(server->address());
            client.send(hello.substr(0, sent));
            if (reset) {
                client.reset();
            } else {
                client.closeOutput();
                client.waitForEnd();
            }
            EXPECT_THAT(reports.waitFor(1),
                        ElementsAre(EndsWith(": closed: the client ended the TLS handshake")));
        }
    }
    expectService(*server);
}

TEST_F(TlsTest, AClientMayCloseOrResetAfterTheHandshake) {
    const auto server = serve();
    for (const bool reset : {false, true}) {
        for (const std::string cmd : {"", "read", "much"}) {
            TlsCaller client(server->address());
            client.shakeHands();
            if (!cmd.empty()) {
                client.caller().send(client.encrypted(requestFor(cmd)));
                client.caller().receive(1);
            }
            reset ? client.caller().reset() : client.caller().close();
        }
    }
    expectService(*server);
}

TEST_F(TlsTest, AClientThatClosesIsNotReported) {
    const auto server = serve();
    const std::size_t threads = countThreads();
    expectService(*server);
    waitUntil([&] { return countThreads() <= threads; });  // its connection has ended
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(TlsTest, AClientThatClosesWithoutAnnouncingTheEndIsNotReported) {
    const auto server = serve();
    const std::size_t threads = countThreads();
    {
        TlsCaller client(server->address());
        client.shakeHands();
        client.caller().closeOutput();
        client.caller().waitForEnd();
    }
    waitUntil([&] { return countThreads() <= threads; });  // its connection has ended
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(TlsTest, ErrorsThatAHandlerLeavesInOpensslDoNotAffectTheConnection) {
    const auto server = serve();
    const std::size_t threads = countThreads();
    {
        RemoteEmp remote(server->address(), forClient);
        EXPECT_EQ(execute(remote, "leave an error"), "leave an error done");
        EXPECT_EQ(execute(remote, "read"), "read done");
        EXPECT_EQ(execute(remote, "leave an error"), "leave an error done");
    }
    waitUntil([&] { return countThreads() <= threads; });  // its connection has ended
    EXPECT_THAT(reports.all(), IsEmpty());
}

TEST_F(TlsTest, AFailedCallLeavesNoErrorsInOpenssl) {
    use(makeCertificate(directory, "itself", kHere, nullptr));
    EXPECT_NE(failureOf(serve()->address()), "");
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TlsTest, AConnectionThatTheServerClosedIsNotUsedIfAnotherOneHasFailed) {
    const substitutes::StoppedClock clock;
    auto server = serve();
    RemoteEmp remote(server->address(), forClient);
    auto waiting = std::async(std::launch::async, [&] { return execute(remote, "wait"); });
    entered.wait();
    EXPECT_EQ(execute(remote, "read"), "read done");  // over a second connection
    leave.open();
    waiting.get();
    const std::string address = server->address();
    server.reset();
    server = serve(address);
    EXPECT_THROW(execute(remote, "read"), CallFailed);
    EXPECT_EQ(execute(remote, "read"), "read done");
}

// A server that a test controls.
class TlsPeer {
public:
    TlsPeer(peers::Peer peer, const Certificate& own)
        : peer_(std::move(peer)),
          context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free),
          session_(SSL_new(context_.get()), SSL_free) {
        SSL_use_certificate(session_.get(), own.content.get());
        SSL_use_PrivateKey(session_.get(), own.key.get());
        SSL_set_fd(session_.get(), peer_.descriptor());
        EXPECT_EQ(SSL_accept(session_.get()), 1);
    }

    std::string receive(std::size_t count) {
        std::string bytes(count, '\0');
        const int got = SSL_read(session_.get(), bytes.data(), static_cast<int>(count));
        return bytes.substr(0, static_cast<std::size_t>(std::max(got, 0)));
    }
    void send(const std::string& bytes) {
        SSL_write(session_.get(), bytes.data(), static_cast<int>(bytes.size()));
    }
    void sendUnencrypted(const std::string& bytes) { peer_.send(bytes); }
    // Sends a record of TLS itself.
    void updateKey() {
        EXPECT_EQ(SSL_key_update(session_.get(), SSL_KEY_UPDATE_NOT_REQUESTED), 1);
        EXPECT_EQ(SSL_do_handshake(session_.get()), 1);
    }
    // The one that the client wants to reach, if it says so.
    std::string serverName() const {
        const char* const name = SSL_get_servername(session_.get(), TLSEXT_NAMETYPE_host_name);
        return name != nullptr ? name : "none";
    }
    void close() { peer_.close(); }

private:
    peers::Peer peer_;
    std::shared_ptr<SSL_CTX> context_;
    std::shared_ptr<SSL> session_;
};

TEST_F(TlsTest, APlainConnectionFailsIfItsPeerStopsSpeakingTls) {
    peers::Listener listener;
    auto opened = std::async(std::launch::async,
                             [&] { return Connection::open(listener.address(), forClient); });
    TlsPeer peer(listener.accept(), certificate);
    const auto connection = opened.get();
    peer.sendUnencrypted("not a record");
    uint8_t byte = 0;
    try {
        connection->read(&byte, 1);
        FAIL() << "read something";
    } catch (const TTransportException& failure) {
        EXPECT_EQ(failure.getType(), TTransportException::CORRUPTED_DATA);
        EXPECT_THAT(failure.what(), StartsWith("TLS: cannot read: "));
    }
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TlsTest, APlainConnectionCannotBeWrittenAfterTheEndOfItsOutput) {
    const auto server = serve();
    const auto connection = Connection::open(server->address(), forClient);
    connection->closeOutput();
    const uint8_t byte = 0;
    try {
        connection->write(&byte, 1);
        FAIL() << "written";
    } catch (const TTransportException& failure) {
        EXPECT_STREQ(failure.what(), "TLS: cannot write: protocol is shutdown");
    }
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

// TLS has no such names for numeric addresses.
TEST_F(TlsTest, AClientSaysWhichNameItWantsToReach) {
    const calls::Messages messages{Settings()};
    for (const std::string host : {"localhost", "127.0.0.1"}) {
        peers::Listener listener;
        const std::string& address = listener.address();
        calls::Running call([&] { return failureOf(host + address.substr(address.rfind(':'))); });
        TlsPeer peer(listener.accept(), certificate);
        EXPECT_EQ(peer.serverName(), host == "localhost" ? host : "none");
        peer.receive(messages.request("read").size());
        peer.send(messages.reply("read done"));
        EXPECT_EQ(call.result(), "");
    }
}

TEST_F(TlsTest, AConnectionOnWhichOnlyTlsHasSentSomethingIsUsedEvenIfAnotherOneHasFailed) {
    const calls::Messages messages{Settings()};
    const std::string request = messages.request("read");
    peers::Listener listener;
    RemoteEmp remote(listener.address(), forClient);
    const auto read = [&] { return execute(remote, "read"); };
    calls::Running first(read);
    TlsPeer kept(listener.accept(), certificate);
    kept.receive(request.size());
    calls::Running second(read);
    TlsPeer failing(listener.accept(), certificate);
    failing.receive(request.size());
    kept.send(messages.reply("21.5"));
    first.result();
    failing.send(messages.reply("21.5"));
    second.result();

    calls::Running third(read);
    failing.receive(request.size());
    failing.close();
    third.failure();
    kept.updateKey();
    calls::Running fourth(read);
    EXPECT_EQ(kept.receive(request.size()), request);
    kept.send(messages.reply("21.7"));
    EXPECT_EQ(fourth.result(), "21.7");
}

// --- Without memory

TEST_F(TlsTest, AServerWithoutMemoryForOpensslIsNotStarted) {
    substitutes::failNext("SSL_CTX_new");
    try {
        serve();
        FAIL() << "it has started";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "TLS: cannot start OpenSSL: unknown reason");
    }
}

// In a process of its own, because what is missing here is made once in a process. The server's
// threads end before exit(): OpenSSL's cleanup there forgets the random number generators of
// threads that still run, and the leak sanitizer reports these.
TEST_F(TlsTest, AFirstClientWithoutMemoryForOpensslCanCallAgain) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto callTwice = [&] {
        const peers::Listener silent;
        substitutes::failNext("BIO_meth_new");
        RemoteEmp remote(silent.address(), forClient);
        EXPECT_THROW(execute(remote, "read"), std::bad_alloc);
        const auto server = serve();
        expectService(*server);
    };
    EXPECT_EXIT(
        {
            callTwice();
            std::exit(HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(TlsTest, AClientWithoutMemoryForOpensslCanCallAgain) {
    const auto server = serve();
    RemoteEmp remote(server->address(), forClient);
    for (const char* const function : {"SSL_new", "BIO_new", "X509_VERIFY_PARAM_set1_ip_asc"}) {
        substitutes::failNext(function);
        EXPECT_THROW(execute(remote, "read"), std::bad_alloc) << function;
    }
    EXPECT_EQ(execute(remote, "read"), "read done");
}

// --- Time limits and the end of connections

TEST_F(TlsTest, AHandshakeThatArrivesByteByByteHasTheTimeoutOfARequest) {
    forServer.receiveTimeout = milliseconds(40);
    const auto server = serve();
    TlsCaller client(server->address());
    const std::string hello = client.hello();
    std::size_t sent = 0;
    do {
        client.caller().send(hello.substr(sent++, 1));
    } while (sent < hello.size() && !client.caller().hearsWithin(5));
    EXPECT_LT(sent, hello.size());
    EXPECT_THAT(reports.waitFor(1), ElementsAre(HasSubstr("no TLS handshake in time")));
}

TEST_F(TlsTest, ARecordThatArrivesByteByByteHasTheTimeoutOfARequest) {
    forServer.receiveTimeout = milliseconds(2000);  // also applies to the handshake
    const auto server = serve();
    TlsCaller client(server->address());
    client.shakeHands();
    const std::string request = requestFor("read", std::string(3000, 'x'));
    client.caller().send(client.encrypted(request.substr(0, 10)));
    const std::string rest = client.encrypted(request.substr(10));
    std::size_t sent = 0;
    do {
        client.caller().send(rest.substr(sent++, 1));
    } while (sent < rest.size() && !client.caller().hearsWithin(5));
    EXPECT_LT(sent, rest.size());
    EXPECT_THAT(reports.waitFor(1),
                ElementsAre(HasSubstr("sends a request or reads a reply too slowly")));
}

TEST_F(TlsTest, AnIdleClientIsDisconnected) {
    forServer.idleTimeout = milliseconds(20);
    const auto server = serve();
    TlsCaller client(server->address());
    client.shakeHands();
    EXPECT_TRUE(client.endIsAnnounced());
    EXPECT_THAT(reports.all(), ElementsAre(HasSubstr("idle")));
}

TEST_F(TlsTest, AClientThatDoesNotReadIsDisconnected) {
    forServer.sendTimeout = milliseconds(20);
    const auto server = serve();
    TlsCaller client(server->address());
    client.shakeHands();
    client.caller().send(client.encrypted(requestFor("much")));
    EXPECT_THAT(reports.waitFor(1),
                ElementsAre(HasSubstr("sends a request or reads a reply too slowly")));
}

TEST_F(TlsTest, TheEndIsAnnouncedEvenLongAfterTheLastReply) {
    forServer.sendTimeout = milliseconds(20);
    const auto server = serve();
    TlsCaller client(server->address());
    client.shakeHands();
    client.caller().send(client.encrypted(requestFor("read")));
    client.caller().hearsWithin(-1);
    EXPECT_FALSE(TlsCaller(server->address()).caller().hearsWithin(40));
    server->stop();
    EXPECT_TRUE(client.endIsAnnounced());
}

TEST_F(TlsTest, ACallHasItsTimeout) {
    const auto server = serve();
    RemoteEmp remote(server->address(), forClient);
    EXPECT_EQ(execute(remote, "read"), "read done");  // connecting takes its time
    TavIDL::EmpBatch batch(remote);
    const auto answer = batch.Execute(7, "wait", "", "", "", "");
    try {
        batch.run(milliseconds(50));
        FAIL() << "an answer";
    } catch (const CallFailed& failure) {
        EXPECT_EQ(failure.reason(), CallFailed::NoAnswerInTime);
    }
    leave.open();
}

TEST_F(TlsTest, AHandshakeHasTheTimeoutForConnecting) {
    Gate never;
    const Server silent("127.0.0.1:0", [&](const std::shared_ptr<Connection>&) { never.wait(); });
    forClient.connectTimeout = milliseconds(20);
    EXPECT_NE(failureOf(silent.address()), "");
    EXPECT_EQ(reason, CallFailed::CannotConnect);
    never.open();
}

TEST_F(TlsTest, ACallCanBeCancelled) {
    const auto server = serve();
    RemoteEmp remote(server->address(), forClient);
    auto call = std::async(std::launch::async, [&] { return execute(remote, "wait"); });
    entered.wait();
    remote.cancel();
    try {
        call.get();
        FAIL() << "an answer";
    } catch (const CallFailed& failure) {
        EXPECT_EQ(failure.reason(), CallFailed::Cancelled);
    }
    leave.open();
    EXPECT_EQ(execute(remote, "read"), "read done");
}

class Events : public TavEmpEventIf {
public:
    void Callback(int32_t eventType, const std::string&, const std::string&) override {
        types.add(eventType);
    }
    Reports<int32_t> types;
};

TEST_F(TlsTest, EventsThatWereJustSentAreDelivered) {
    constexpr int kEvents = 50;
    const auto events = std::make_shared<Events>();
    const Server server("127.0.0.1:0", events, forServer);
    for (int round = 0; round < 10; ++round) {
        events->types.clear();
        {
            TavIDL::RemoteCallback callback(server.address(), forClient);
            for (int i = 0; i < kEvents; ++i) {
                callback.Callback(i, std::string(500, 'x'), "");
            }
        }
        const auto arrived = events->types.waitFor(kEvents);
        for (int i = 0; i < kEvents; ++i) {
            EXPECT_EQ(arrived[static_cast<std::size_t>(i)], i);
        }
    }
    EXPECT_THAT(reports.all(), IsEmpty());
}

}  // namespace
