#include "Caller.h"

#include <TavIDL/TavIDL.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TVirtualTransport.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TMemoryBuffer;
using apache::thrift::transport::TTransport;

namespace {

// Reads exactly as many bytes as requested, so that nothing is lost between two results.
class Bare : public apache::thrift::transport::TVirtualTransport<Bare> {
public:
    explicit Bare(int descriptor) : descriptor_(descriptor) {}
    uint32_t read(uint8_t* bytes, uint32_t count) {
        const ssize_t got = ::recv(descriptor_, bytes, count, 0);
        return got < 0 ? 0 : static_cast<uint32_t>(got);
    }

private:
    int descriptor_;
};

TavIDL::ProtocolPointer protocolOver(std::shared_ptr<TTransport> transport,
                                     const TavIDL::Settings& settings) {
    if (settings.framed) {
        transport = std::make_shared<TFramedTransport>(transport);
    }
    if (settings.makeProtocol) {
        return settings.makeProtocol(transport);
    }
    if (settings.protocol == TavIDL::Settings::Compact) {
        return std::make_shared<apache::thrift::protocol::TCompactProtocol>(transport);
    }
    return std::make_shared<apache::thrift::protocol::TBinaryProtocol>(transport);
}

template <typename Write>
std::string written(const TavIDL::Settings& settings, Write write) {
    const auto memory = std::make_shared<TMemoryBuffer>();
    write(protocolOver(memory, settings));
    return memory->getBufferAsString();
}

}  // namespace

Caller::Caller(const std::string& address) {
    sockaddr_storage storage = {};
    socklen_t size = 0;
    if (address.compare(0, 5, "unix:") == 0) {
        auto& name = reinterpret_cast<sockaddr_un&>(storage);
        name.sun_family = AF_UNIX;
        std::strncpy(name.sun_path, address.c_str() + 5, sizeof name.sun_path - 1);
        size = sizeof name;
    } else {
        auto& name = reinterpret_cast<sockaddr_in&>(storage);
        name.sin_family = AF_INET;
        name.sin_port =
            htons(static_cast<uint16_t>(std::stoi(address.substr(address.rfind(':') + 1))));
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        size = sizeof name;
    }
    descriptor_ = socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&storage), size) != 0) {
        const int error = errno;
        ::close(descriptor_);
        throw std::runtime_error("cannot connect to " + address + ": " + std::strerror(error));
    }
}

Caller::~Caller() {
    close();
}

void Caller::send(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t taken =
            ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (taken < 0) {
            return;
        }
        sent += static_cast<std::size_t>(taken);
    }
}

std::string Caller::receive(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t size = 0;
    while (size < count) {
        const ssize_t got = ::recv(descriptor_, &bytes[size], count - size, 0);
        if (got <= 0) {
            break;
        }
        size += static_cast<std::size_t>(got);
    }
    bytes.resize(size);
    return bytes;
}

void Caller::waitForEnd() {
    while (receive(4096).size() == 4096) {
    }
}

bool Caller::hearsWithin(int ms) {
    pollfd waiting = {descriptor_, POLLIN | POLLRDHUP, 0};
    return poll(&waiting, 1, ms) > 0;
}

std::string Caller::result(const TavIDL::Settings& settings) {
    std::string result;
    TavEmpClient(protocolOver(std::make_shared<Bare>(descriptor_), settings)).recv_Execute(result);
    return result;
}

void Caller::closeOutput() {
    shutdown(descriptor_, SHUT_WR);
}

void Caller::close() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    descriptor_ = -1;
}

void Caller::reset() {
    const linger atOnce = {1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

std::string requestFor(const std::string& cmd, const std::string& param1,
                       const TavIDL::Settings& settings) {
    return written(settings, [&](const TavIDL::ProtocolPointer& protocol) {
        TavEmpClient(protocol).send_Execute(7, cmd, param1, "", "", "");
    });
}

std::string requestFor(const ParamList& list, const TavIDL::Settings& settings) {
    return written(settings, [&](const TavIDL::ProtocolPointer& protocol) {
        TavEmpClient(protocol).send_ExecuteWithParamList(7, "read", list);
    });
}

std::string eventFor(const std::string& operation, const TavIDL::Settings& settings) {
    return written(settings, [&](const TavIDL::ProtocolPointer& protocol) {
        protocol->writeMessageBegin(operation, apache::thrift::protocol::T_ONEWAY, 0);
        TavEmpEvent_Callback_args arguments;
        arguments.eventType = 1;
        arguments.write(protocol.get());
        protocol->writeMessageEnd();
        protocol->getTransport()->flush();
    });
}
