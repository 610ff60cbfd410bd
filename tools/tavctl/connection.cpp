#include "connection.h"

#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>
#include <thrift/protocol/TProtocolDecorator.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSSLServerSocket.h>
#include <thrift/transport/TSSLSocket.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>
#include <utility>

#include "../../examples/thrift_output.h"
#include "failure.h"
#include "stop.h"

using apache::thrift::TApplicationException;
using apache::thrift::TConfiguration;
using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TProtocolFactory;
using apache::thrift::server::TServerEventHandler;
using apache::thrift::server::TThreadedServer;
using apache::thrift::transport::TServerSocket;
using apache::thrift::transport::TSocket;
using apache::thrift::transport::TSSLServerSocket;
using apache::thrift::transport::TSSLSocketFactory;
using apache::thrift::transport::TTransportException;
using apache::thrift::transport::TTransportFactory;
using apache::thrift::transport::TVirtualTransport;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// --- Addresses

std::string Address::text() const {
    if (!path.empty()) {
        return "unix:" + path;
    }
    const bool version6 = host.find(':') != std::string::npos;
    return (version6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

Address addressFrom(const std::string& text, bool zeroAllowed) {
    Address address;
    if (text.compare(0, 5, "unix:") == 0) {
        address.path = text.substr(5);
        if (address.path.empty() || address.path.size() >= sizeof(sockaddr_un::sun_path)) {
            throw Failure(Exit::Usage, "'" + text + "' is no address: a path has 1 to " +
                                           std::to_string(sizeof(sockaddr_un::sun_path) - 1) +
                                           " bytes");
        }
        return address;
    }
    const auto colon = text.rfind(':');
    address.host = text.substr(0, colon);
    const bool version6 =
        address.host.size() > 1 && address.host.front() == '[' && address.host.back() == ']';
    if (version6) {
        address.host = address.host.substr(1, address.host.size() - 2);
    }
    const char* const end = text.data() + text.size();
    const char* const begin = colon == std::string::npos ? end : text.data() + colon + 1;
    const auto parsed = std::from_chars(begin, end, address.port);
    if (address.host.empty() ||
        address.host.find_first_of(version6 ? "[]/" : "[]/:") != std::string::npos ||
        parsed.ec != std::errc() || parsed.ptr != end || address.port < (zeroAllowed ? 0 : 1) ||
        address.port > 65535) {
        throw Failure(Exit::Usage, "'" + text + "' is no address; write HOST:PORT (port " +
                                       (zeroAllowed ? "0" : "1") +
                                       " to 65535), [IPV6]:PORT or unix:PATH");
    }
    return address;
}

// --- What all connections are made of

namespace {

int inMs(double seconds) {
    return static_cast<int>(seconds * 1000);
}

// libthrift's own text, to go on within a line.
std::string textOf(const std::exception& failure) {
    std::string text = failure.what();
    while (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text;
}

std::shared_ptr<TConfiguration> limits() {
    return std::make_shared<TConfiguration>(kMessageLimit, kMessageLimit, kDepthLimit);
}

// Bounds the length of a message, whatever the protocol. A frame tells its length and the binary
// protocols that of each string; but nothing else bounds a string in JSON, or how much a message
// holds that is skipped.
class LimitedTransport : public TVirtualTransport<LimitedTransport> {
public:
    explicit LimitedTransport(std::shared_ptr<TTransport> transport)
        : TVirtualTransport(limits()), transport_(std::move(transport)) {}

    bool isOpen() const override { return transport_->isOpen(); }
    bool peek() override { return transport_->peek(); }
    void close() override { transport_->close(); }
    void flush() override { transport_->flush(); }
    uint32_t writeEnd() override { return transport_->writeEnd(); }
    void write(const uint8_t* bytes, uint32_t count) { transport_->write(bytes, count); }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        const uint32_t got = transport_->read(bytes, count);
        length_ += got;
        if (length_ > kMessageLimit) {
            throw TTransportException(
                TTransportException::CORRUPTED_DATA,
                "the message is longer than " + std::to_string(kMessageLimit) + " bytes");
        }
        return got;
    }

    uint32_t readEnd() override {
        length_ = 0;
        return transport_->readEnd();
    }

private:
    std::shared_ptr<TTransport> transport_;
    int64_t length_ = 0;
};

std::shared_ptr<TTransport> bounded(const Settings& settings,
                                    std::shared_ptr<TTransport> transport) {
    if (settings.framed()) {
        transport =
            std::make_shared<apache::thrift::transport::TFramedTransport>(transport, limits());
    } else {
        transport =
            std::make_shared<apache::thrift::transport::TBufferedTransport>(transport, limits());
    }
    return std::make_shared<LimitedTransport>(transport);
}

// The certificates of the settings. The sockets need their factory, which also holds what
// OpenSSL has set up, as long as they live: so it lives as long as the process.
std::shared_ptr<TSSLSocketFactory> tlsFactory(const Settings& settings, bool server) {
    if (server ? settings.cert.empty() || settings.key.empty() : settings.ca.empty()) {
        throw Failure(Exit::Usage, server ? "a server needs --cert and --key with --tls"
                                          : "--tls needs --ca, to know the peer by");
    }
    static std::shared_ptr<TSSLSocketFactory> factories[2];
    auto& factory = factories[server ? 1 : 0];
    if (factory != nullptr) {
        return factory;
    }
    // OpenSSL would not say which.
    for (const std::string& file : {settings.ca, settings.cert, settings.key}) {
        if (!file.empty() && !std::ifstream(file).is_open()) {
            throw Failure(Exit::Usage, "cannot read '" + file + "'",
                          "check that the file is there and yours to read");
        }
    }
    try {
        factory = std::make_shared<TSSLSocketFactory>();
        factory->server(server);
        factory->authenticate(!settings.ca.empty());
        if (!settings.ca.empty()) {
            factory->loadTrustedCertificates(settings.ca.c_str());
        }
        if (!settings.cert.empty()) {
            factory->loadCertificate(settings.cert.c_str());
        }
        if (!settings.key.empty()) {
            factory->loadPrivateKey(settings.key.c_str());
        }
    } catch (const std::exception& failure) {
        throw Failure(Exit::Usage, std::string("the files of --ca, --cert and --key are not all "
                                               "usable: ") +
                                       failure.what());
    }
    return factory;
}

}  // namespace

TavIDL::ProtocolPointer protocolOver(const Settings& settings,
                                     std::shared_ptr<TTransport> transport) {
    if (settings.protocol == "compact") {
        return std::make_shared<apache::thrift::protocol::TCompactProtocolT<TTransport>>(
            transport, kMessageLimit, kContainerLimit);
    }
    if (settings.protocol == "json") {
        return std::make_shared<apache::thrift::protocol::TJSONProtocol>(transport);
    }
    // Strict: what does not begin with the protocol's version, an HTTP answer for instance, is
    // refused at once instead of being taken for the length of a name.
    return std::make_shared<apache::thrift::protocol::TBinaryProtocolT<TTransport>>(
        transport, kMessageLimit, kContainerLimit, true, true);
}

void silenceThrift() {
    onThriftOutput([](const char*) {});
}

// --- Clients

std::shared_ptr<TSocket> connectSocket(const Address& address, const Settings& settings) {
    if (settings.tls && !address.path.empty()) {
        throw Failure(Exit::Usage, "--tls does not go with a unix: address");
    }
    std::shared_ptr<TSocket> socket;
    if (settings.tls) {
        socket = tlsFactory(settings, false)->createSocket(address.host, address.port);
    } else if (!address.path.empty()) {
        socket = std::make_shared<TSocket>(address.path, limits());
    } else {
        socket = std::make_shared<TSocket>(address.host, address.port, limits());
    }
    try {
        socket->setConnTimeout(inMs(settings.connectTimeout));
        socket->setRecvTimeout(inMs(settings.connectTimeout));
        socket->setSendTimeout(inMs(settings.connectTimeout));
        socket->open();
        if (settings.tls) {
            const uint8_t none = 0;
            socket->write(&none, 0);  // shakes hands
        }
        socket->setRecvTimeout(0);
        socket->setSendTimeout(0);
    } catch (const TTransportException& failure) {
        throw Failure(Exit::NoConnection,
                      "cannot connect to " + address.text() + ": " + textOf(failure),
                      settings.tls ? "check the certificates, and that it speaks TLS there"
                                   : "check that it runs and listens there");
    }
    return socket;
}

bool speaksTls(const Address& address, Settings settings) {
    settings.tls = false;
    const auto socket = connectSocket(address, settings);
    socket->setRecvTimeout(inMs(settings.timeout));
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()),
                                                               SSL_CTX_free);
    const std::unique_ptr<SSL, void (*)(SSL*)> tls(SSL_new(context.get()), SSL_free);
    return SSL_set_fd(tls.get(), socket->getSocketFD()) == 1 && SSL_connect(tls.get()) == 1;
}

// Lets an exchange take so long and no longer, however slowly the bytes drip.
class Connection::Deadline : public TVirtualTransport<Deadline> {
public:
    Deadline(std::shared_ptr<TSocket> socket, double seconds)
        : socket_(std::move(socket)), seconds_(seconds) {}

    void restart() { end_ = steady_clock::now() + milliseconds(inMs(seconds_)); }
    bool passed() const { return steady_clock::now() >= end_; }

    bool isOpen() const override { return socket_->isOpen(); }
    bool peek() override { return socket_->peek(); }
    void close() override { socket_->close(); }
    void flush() override { socket_->flush(); }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        socket_->setRecvTimeout(leftMs());
        return socket_->read(bytes, count);
    }

    void write(const uint8_t* bytes, uint32_t count) {
        while (count > 0) {
            socket_->setSendTimeout(leftMs());
            const uint32_t sent = socket_->write_partial(bytes, count);
            bytes += sent;
            count -= sent;
        }
    }

private:
    int leftMs() const {
        const auto left = std::chrono::duration_cast<milliseconds>(end_ - steady_clock::now());
        if (left.count() <= 0) {
            throw TTransportException(TTransportException::TIMED_OUT);
        }
        return static_cast<int>(left.count());
    }

    std::shared_ptr<TSocket> socket_;
    double seconds_;
    steady_clock::time_point end_;
};

// Notes what kind of message came: a client throws the same exception for a failure that the
// peer reports and for one that it finds itself.
class Connection::ReplyType : public apache::thrift::protocol::TProtocolDecorator {
public:
    explicit ReplyType(std::shared_ptr<TProtocol> decorated)
        : TProtocolDecorator(std::move(decorated)) {}

    bool exception = false;

    uint32_t readMessageBegin_virt(std::string& name, TMessageType& type, int32_t& seqid) override {
        const uint32_t bytes = TProtocolDecorator::readMessageBegin_virt(name, type, seqid);
        exception = type == apache::thrift::protocol::T_EXCEPTION;
        return bytes;
    }
};

Connection::Connection(Address address, const Settings& settings)
    : address_(std::move(address)),
      socket_(connectSocket(address_, settings)),
      deadline_(std::make_shared<Deadline>(socket_, settings.timeout)),
      protocol_(std::make_shared<ReplyType>(protocolOver(settings, bounded(settings, deadline_)))) {
}

Connection::~Connection() = default;

void Connection::exchange(const std::string& what,
                          const std::function<void(TavIDL::ProtocolPointer)>& action) {
    const std::string where = what + " at " + address_.text() + ": ";
    const std::string probe = "see tavctl probe " + address_.text();
    deadline_->restart();
    try {
        action(protocol_);
    } catch (const TApplicationException& failure) {
        if (protocol_->exception) {
            throw Failure(
                Exit::Refused,
                where + "the peer answered " + kindOf(failure.getType()) + ": " + failure.what(),
                failure.getType() == TApplicationException::UNKNOWN_METHOD
                    ? "it may serve another service, see tavctl describe"
                    : "the connection is fine, check what the call asks for");
        }
        throw Failure(Exit::Broken, where + "what came is no reply to the call: " + textOf(failure),
                      probe);
    } catch (const apache::thrift::TException& failure) {
        if (deadline_->passed()) {
            throw Failure(Exit::TimedOut, where + "no reply in time",
                          "try a longer --timeout, or " + probe);
        }
        throw Failure(Exit::Broken, where + "no reply came: " + textOf(failure), probe);
    }
}

void Connection::interrupt() {
    ::shutdown(socket_->getSocketFD(), SHUT_RDWR);
}

std::string kindOf(int type) {
    constexpr const char* kKinds[] = {
        "UNKNOWN",           "UNKNOWN_METHOD",   "INVALID_MESSAGE_TYPE",   "WRONG_METHOD_NAME",
        "BAD_SEQUENCE_ID",   "MISSING_RESULT",   "INTERNAL_ERROR",         "PROTOCOL_ERROR",
        "INVALID_TRANSFORM", "INVALID_PROTOCOL", "UNSUPPORTED_CLIENT_TYPE"};
    return type >= 0 && type < static_cast<int>(std::size(kKinds)) ? kKinds[type]
                                                                   : "kind " + std::to_string(type);
}

// --- Servers

namespace {

struct BoundedFactory : TTransportFactory {
    explicit BoundedFactory(Settings settings) : settings_(std::move(settings)) {}
    std::shared_ptr<TTransport> getTransport(std::shared_ptr<TTransport> transport) override {
        // A client that does not read its replies holds up its thread, and the end of all, so long.
        dynamic_cast<TSocket&>(*transport).setSendTimeout(kSendMs);
        return bounded(settings_, std::move(transport));
    }
    static constexpr int kSendMs = 2000;
    const Settings settings_;
};

struct SettingsFactory : TProtocolFactory {
    explicit SettingsFactory(Settings settings) : settings_(std::move(settings)) {}
    std::shared_ptr<TProtocol> getProtocol(std::shared_ptr<TTransport> transport) override {
        return protocolOver(settings_, std::move(transport));
    }
    const Settings settings_;
};

// Stands between libthrift's server and what is to be done for a connection: an exception that
// is none of libthrift's would end the process.
class Guard : public TProcessor {
public:
    using Work = std::function<bool(std::shared_ptr<TProtocol>, std::shared_ptr<TProtocol>)>;

    explicit Guard(Work work) : work_(std::move(work)) {}

    bool process(std::shared_ptr<TProtocol> input, std::shared_ptr<TProtocol> output,
                 void*) override {
        try {
            return work_(std::move(input), std::move(output));
        } catch (const std::exception&) {
            return false;  // closes this connection and no other
        }
    }

private:
    Work work_;
};

// A socket that a process left behind when it was killed stands in the way of the next one.
void removeDeadSocket(const Address& address) {
    struct stat file = {};
    if (stat(address.path.c_str(), &file) == 0 && S_ISSOCK(file.st_mode)) {
        try {
            TSocket(address.path).open();
        } catch (const TTransportException&) {
            unlink(address.path.c_str());
        }
    }
}

}  // namespace

// Counts connections, and tells when the server listens: its stop() is lost before.
class Server::Events : public TServerEventHandler {
public:
    std::promise<void> listening;

    void preServe() override { listening.set_value(); }

    void accepted() { count(1); }

    void deleteContext(void*, std::shared_ptr<TProtocol>, std::shared_ptr<TProtocol>) override {
        count(-1);
    }

    void waitForEnds(int ms) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, milliseconds(ms), [&] { return count_ == 0; });
    }

private:
    void count(int more) {
        const std::lock_guard<std::mutex> lock(mutex_);
        count_ += more;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

Server::Server(Address address, const Settings& settings, std::shared_ptr<TProcessor> processor)
    : address_(std::move(address)) {
    start(settings, std::make_shared<Guard>([processor](auto input, auto output) {
              return processor->process(std::move(input), std::move(output), nullptr);
          }),
          std::make_shared<BoundedFactory>(settings));
}

Server::Server(Address address, const Settings& settings,
               std::function<void(std::shared_ptr<TSocket>)> serve)
    : address_(std::move(address)) {
    start(settings, std::make_shared<Guard>([serve](auto input, auto) {
              serve(std::dynamic_pointer_cast<TSocket>(input->getTransport()));
              return false;
          }),
          std::make_shared<TTransportFactory>());
}

void Server::start(const Settings& settings, std::shared_ptr<TProcessor> processor,
                   std::shared_ptr<TTransportFactory> transports) {
    if (settings.tls && !address_.path.empty()) {
        throw Failure(Exit::Usage, "--tls does not go with a unix: address");
    }
    if (settings.tls) {
        socket_ = std::make_shared<TSSLServerSocket>(address_.host, address_.port,
                                                     tlsFactory(settings, true));
    } else if (!address_.path.empty()) {
        removeDeadSocket(address_);
        socket_ = std::make_shared<TServerSocket>(address_.path);
    } else {
        socket_ = std::make_shared<TServerSocket>(address_.host, address_.port);
    }
    events_ = std::make_shared<Events>();
    socket_->setAcceptCallback([events = events_](int) { events->accepted(); });
    auto server = std::make_unique<TThreadedServer>(processor, socket_, transports,
                                                    std::make_shared<SettingsFactory>(settings));
    server->setConcurrentClientLimit(kConnections);
    server->setServerEventHandler(events_);
    server_ = std::move(server);

    auto listening = events_->listening.get_future();
    thread_ = std::thread([this] {
        std::string why = "it accepts no more connections";
        try {
            server_->serve();
        } catch (const std::exception& failure) {
            why = failure.what();
        }
        if (!stopping_) {
            try {
                events_->listening.set_exception(std::make_exception_ptr(
                    Failure(Exit::NoConnection, "cannot listen on " + address_.text() + ": " + why,
                            "choose another address, or port 0 for any")));
            } catch (const std::future_error&) {
                failure_ = why;  // it had listened
                stop::request();
            }
        }
    });
    try {
        listening.get();
    } catch (const Failure&) {
        thread_.join();
        throw;
    }
    if (address_.path.empty()) {
        address_.port = socket_->getPort();
    }
}

Server::~Server() {
    if (thread_.joinable()) {
        end();
    }
}

void Server::end() {
    stopping_ = true;
    server_->stop();
    thread_.join();
    if (!address_.path.empty()) {
        unlink(address_.path.c_str());
    }
}

void Server::stop() {
    end();
    if (!failure_.empty()) {
        throw Failure(Exit::Broken, "no longer served on " + address_.text() + ": " + failure_,
                      "start it again");
    }
}

void Server::drain(int ms) {
    // Connections are accepted in the order in which their first bytes, or their ends, come: once
    // one that ends now has been served, all are counted that have brought anything.
    TSocket last(address_.host, address_.port);
    last.setRecvTimeout(ms);
    try {
        last.open();
        ::shutdown(last.getSocketFD(), SHUT_WR);
        uint8_t none = 0;
        last.read(&none, 1);
    } catch (const TTransportException&) {
        // Ended as well.
    }
    events_->waitForEnds(ms);
}
