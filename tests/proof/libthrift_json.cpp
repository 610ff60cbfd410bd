// Prints what the installed libthrift does with JSON that harms programs. Not a test: it shows
// which releases doc/reliability.md has to warn of.

#include <sys/wait.h>
#include <thrift/protocol/TJSONProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <unistd.h>

#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

using apache::thrift::protocol::TJSONProtocol;
using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TType;
using apache::thrift::transport::TMemoryBuffer;

namespace {

// Reads the message's first field: numbers and strings with an id of 0, and skips others.
void read(const std::string& message) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    buffer->write(reinterpret_cast<const uint8_t*>(message.data()),
                  static_cast<uint32_t>(message.size()));
    TJSONProtocol protocol(buffer);
    std::string name;
    TMessageType messageType{};
    int32_t seqid = 0;
    protocol.readMessageBegin(name, messageType, seqid);
    protocol.readStructBegin(name);
    TType type{};
    int16_t id = 0;
    protocol.readFieldBegin(name, type, id);
    if (id != 0) {
        protocol.skip(type);
        std::cout << "skipped";
    } else if (type == apache::thrift::protocol::T_I32) {
        int32_t number = 0;
        protocol.readI32(number);
        std::cout << "read " << number;
    } else {
        std::string text;
        protocol.readString(text);
        std::cout << "read " << text.size() << " bytes";
    }
}

// In a process of its own, because some messages end it.
void show(const std::string& message) {
    std::cout << message << ": " << std::flush;
    const pid_t child = fork();
    if (child == 0) {
        try {
            read(message);
        } catch (const std::exception& failure) {
            std::cout << "refused: " << failure.what();
        }
        std::cout << std::flush;
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        std::cout << "ended by signal " << WTERMSIG(status);
    }
    std::cout << '\n';
}

}  // namespace

int main() {
    for (const char* const fields :
         {R"({"9":{"str":"=="}})", R"({"9":{"i8":300}})", R"({"0":{"i32":}})",
          R"({"0":{"str":"a\u0000b"}})", R"({"-1":{"i32":5}})"}) {
        show(std::string(R"([1,"Execute",1,0,)") + fields + "]");
    }
}
