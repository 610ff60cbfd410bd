// Each stored message, cut off before each byte, and with each of its bits flipped, in both
// transports, goes to the processor and to the client of its operation. Neither may crash, hang,
// use more memory than the limits allow, or throw anything that is not documented.

#include <support/Recording.h>

#include <exception>
#include <string>

#include "../wire/messages.h"
#include "Conversations.h"
#include "Memory.h"
#include "Report.h"

using namespace proof;
using apache::thrift::TApplicationException;
using apache::thrift::transport::TBufferedTransport;
using apache::thrift::transport::TFramedTransport;

namespace {

// A buffered transport passes strings of at most 1 MiB here, by the protocols' limit. Room for a
// frame is allocated as soon as its length is known, at most libthrift's 16,384,000 bytes.
constexpr std::size_t kMostForBuffered = (1 << 20) + (64 << 10);
constexpr std::size_t kMostForFramed = 16'384'000 + kMostForBuffered;

enum class Framing { buffered, framed };

std::shared_ptr<TBufferBase> wrap(Framing framing, const std::shared_ptr<TMemoryBuffer>& buffer) {
    if (framing == Framing::buffered) {
        return std::make_shared<TBufferedTransport>(buffer);
    }
    return std::make_shared<TFramedTransport>(buffer);
}

std::string withLength(const std::string& message) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    TFramedTransport framed(buffer);
    framed.write(reinterpret_cast<const uint8_t*>(message.data()),
                 static_cast<uint32_t>(message.size()));
    framed.flush();
    return buffer->getBufferAsString();
}

// What one side did with a message.
struct Outcome {
    std::string undocumented;  // what it threw
    bool threw = false;
    bool handlerCalled = false;
    std::string written;
    std::size_t memory = 0;
};

template <typename Action>
void note(Outcome& outcome, Action action) {
    memory::resetPeak();
    const std::size_t before = memory::bytes();
    try {
        action();
    } catch (const TApplicationException& failure) {
        outcome.threw = true;
        outcome.undocumented = std::string("TApplicationException ") + failure.what();
    } catch (const apache::thrift::TException&) {  // the protocol's or the transport's
        outcome.threw = true;
    } catch (...) {
        outcome.threw = true;
        const auto failure = std::current_exception();
        outcome.undocumented = recording::failureOf([&] { std::rethrow_exception(failure); });
    }
    outcome.memory = memory::peak() - before;
}

class Receiver {
public:
    Receiver(const Operation& operation, const Encoding& encoding, Framing framing)
        : operation_(operation),
          encoding_(encoding),
          framing_(framing),
          handler_(std::make_shared<Handler<Library>>()),
          processor_(makeProcessor(operation.service, handler_)) {
        handler_->answer = someValues();
    }

    Outcome serve(const std::string& bytes) {
        const auto output = std::make_shared<TMemoryBuffer>();
        const auto in = protocolOver(bufferWith(bytes));
        const auto out = protocolOver(output);
        handler_->calls = 0;
        Outcome outcome;
        note(outcome, [&] { processor_->process(in, out, nullptr); });
        outcome.handlerCalled = handler_->calls != 0;
        outcome.written = output->getBufferAsString();
        return outcome;
    }

    Outcome receive(const std::string& bytes) const {
        const auto in = protocolOver(bufferWith(bytes));
        Caller<Library> caller(in, in);
        Outcome outcome;
        note(outcome, [&] {
            try {
                Values result;
                caller.receive(operation_.call, result);
            } catch (const TApplicationException&) {
                outcome.threw = true;  // is documented for clients
            }
        });
        return outcome;
    }

private:
    static std::shared_ptr<TMemoryBuffer> bufferWith(const std::string& bytes) {
        auto buffer = std::make_shared<TMemoryBuffer>();
        buffer->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<uint32_t>(bytes.size()));
        return buffer;
    }
    std::shared_ptr<TProtocol> protocolOver(const std::shared_ptr<TMemoryBuffer>& buffer) const {
        return makeProtocol(encoding_, wrap(framing_, buffer));
    }

    const Operation& operation_;
    const Encoding& encoding_;
    const Framing framing_;
    std::shared_ptr<Handler<Library>> handler_;
    std::shared_ptr<TProcessor> processor_;
};

std::string judge(const Outcome& outcome, Framing framing, bool cut) {
    if (!outcome.undocumented.empty()) {
        return "threw " + outcome.undocumented;
    }
    if (outcome.memory > (framing == Framing::framed ? kMostForFramed : kMostForBuffered)) {
        return "took " + std::to_string(outcome.memory) + " bytes";
    }
    if (cut && (!outcome.threw || outcome.handlerCalled)) {
        return "took a part of a message for a message";
    }
    return "";
}

// A message as it is stored: "refused OpenEmp reply, binary".
struct Stored {
    const Operation* operation;
    Wire wire;
    std::string name;
    std::string bytes;
};

std::vector<Stored> storedMessages() {
    std::vector<Stored> stored;
    for (const auto& [name, bytes] : readMessages(TAVIDL_KEPT_MESSAGES)) {
        Stored message{nullptr, Wire::binary, name, bytes};
        for (const Operation& operation : kOperations) {
            for (const char* kind : {"", "refused ", "unknown "}) {
                if (name.find(std::string(kind) + operation.title + " re") == 0) {
                    message.operation = &operation;
                }
            }
        }
        if (message.operation == nullptr) {
            throw std::runtime_error("of no operation: " + name);
        }
        const std::string wire = name.substr(name.rfind(' ') + 1);
        message.wire = wire == "binary"    ? Wire::binary
                       : wire == "compact" ? Wire::compact
                                           : Wire::json;
        stored.push_back(message);
    }
    return stored;
}

void prove(Report& report, const Stored& stored, const Encoding& encoding, Framing framing) {
    const std::string name = stored.name + ", " + encoding.name +
                             (framing == Framing::framed ? ", framed" : ", buffered");
    if (!report.selected(name)) {
        return;
    }
    Receiver receiver(*stored.operation, encoding, framing);
    const std::string whole = framing == Framing::framed ? withLength(stored.bytes) : stored.bytes;
    const bool oneWay = stored.operation->call == Call::callback;
    const auto take = [&](const std::string& bytes, bool cut, const auto& how) {
        report.countRun();
        std::string wrong = judge(receiver.serve(bytes), framing, cut);
        if (wrong.empty() && !oneWay) {
            report.countRun();
            wrong = judge(receiver.receive(bytes), framing, cut);
        }
        if (!wrong.empty()) {
            report.fail("--only=" + name, name + ", " + how() + ": " + wrong);
        }
    };
    for (std::size_t length = 0; length < whole.size(); ++length) {
        take(whole.substr(0, length), true,
             [&] { return "its first " + std::to_string(length) + " bytes"; });
    }
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        std::string flipped = whole;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
        take(flipped, false, [&] { return "bit " + std::to_string(bit) + " flipped"; });
    }
    // After all of that, the same processor must still work.
    const Outcome last = receiver.serve(framing == Framing::framed
                                            ? withLength(requestOf(*stored.operation, encoding))
                                            : requestOf(*stored.operation, encoding));
    if (last.threw || !last.handlerCalled || last.written.empty() != oneWay) {
        report.fail("--only=" + name, name + ": does not serve a request any more");
    }
}

void proveAll(Report& report) {
    for (const Stored& stored : storedMessages()) {
        for (const Encoding& encoding : kEncodings) {
            if (encoding.wire == stored.wire) {
                prove(report, stored, encoding, Framing::buffered);
                prove(report, stored, encoding, Framing::framed);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return run(argc, argv, proveAll);
}
