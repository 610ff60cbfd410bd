// Each call that a conversation makes to its protocols and transports throws, with each of four
// types: alone, and together with all later ones. The exception must come out unchanged, nothing
// may be called after it, exactly the fields that were read must be flagged, and whatever was not
// in the middle of a message must keep working.

#include <support/Recording.h>
#include <thrift/protocol/TProtocolException.h>
#include <thrift/transport/TTransportException.h>

#include <algorithm>
#include <new>
#include <string>

#include "Conversations.h"
#include "Records.h"
#include "Report.h"

using namespace proof;
using apache::thrift::protocol::TProtocolException;
using apache::thrift::transport::TBufferedTransport;
using apache::thrift::transport::TTransport;
using apache::thrift::transport::TTransportException;
namespace protocol = apache::thrift::protocol;

namespace {

struct OwnFailure {};  // not a std::exception

enum class Failure { transport, protocol, memory, own, none, other };
const char* const kFailureNames[] = {
    "TTransportException", "TProtocolException", "bad_alloc", "a type of its own", "nothing",
    "something else"};

void fail(Failure failure) {
    switch (failure) {
        case Failure::transport:
            throw TTransportException(TTransportException::TIMED_OUT);
        case Failure::protocol:
            throw TProtocolException(TProtocolException::SIZE_LIMIT);
        case Failure::memory:
            throw std::bad_alloc();
        default:
            throw OwnFailure();
    }
}

template <typename Action>
Failure failureOf(Action action) {
    try {
        action();
    } catch (const TTransportException& failure) {
        return failure.getType() == TTransportException::TIMED_OUT ? Failure::transport
                                                                   : Failure::other;
    } catch (const TProtocolException& failure) {
        return failure.getType() == TProtocolException::SIZE_LIMIT ? Failure::protocol
                                                                   : Failure::other;
    } catch (const std::bad_alloc&) {
        return Failure::memory;
    } catch (const OwnFailure&) {
        return Failure::own;
    } catch (...) {
        return Failure::other;
    }
    return Failure::none;
}

// When to fail, and how.
struct Fault {
    std::size_t call = 0;
    Failure failure = Failure::none;
    bool once = true;

    void strike(std::size_t number) const {
        if (number == call || (!once && number > call && call != 0)) {
            fail(failure);
        }
    }
    void plantInto(recording::Log& log) const {
        log.afterEachCall([fault = *this](std::size_t number) { fault.strike(number); });
    }
    std::string name() const {
        return "call " + std::to_string(call) + (once ? "" : " and later") + " with " +
               kFailureNames[static_cast<std::size_t>(failure)];
    }
};

template <typename Run>
void failEach(Report& report, const std::string& name, std::size_t calls, Run run) {
    if (!report.selected(name)) {
        return;
    }
    for (std::size_t call = 1; call <= calls; ++call) {
        for (const Failure failure :
             {Failure::transport, Failure::protocol, Failure::memory, Failure::own}) {
            for (const bool once : {true, false}) {
                report.countRun();
                const Fault fault{call, failure, once};
                const std::string wrong = run(fault);
                if (!wrong.empty()) {
                    report.fail("--only=" + name, name + ": " + fault.name() + ": " + wrong);
                }
            }
        }
    }
}

// --- Messages, to be played

recording::Value valueFrom(TProtocol& input, protocol::TType type);

recording::Struct structFrom(TProtocol& input) {
    recording::Struct fields;
    std::string name;
    input.readStructBegin(name);
    for (;;) {
        protocol::TType type = protocol::T_STOP;
        int16_t id = 0;
        input.readFieldBegin(name, type, id);
        if (type == protocol::T_STOP) {
            return fields;
        }
        fields.push_back({id, valueFrom(input, type)});
    }
}

recording::Value valueFrom(TProtocol& input, protocol::TType type) {
    std::string text;
    int32_t number = 0;
    bool flag = false;
    switch (type) {
        case protocol::T_STRING:
            input.readString(text);
            return text.c_str();
        case protocol::T_I32:
            input.readI32(number);
            return number;
        case protocol::T_BOOL:
            input.readBool(flag);
            return flag;
        default:
            return structFrom(input);
    }
}

std::shared_ptr<TProtocol> binaryOver(const std::string& bytes) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    buffer->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                  static_cast<uint32_t>(bytes.size()));
    return makeProtocol(kEncodings[0], buffer);
}

recording::Message messageFrom(const std::string& bytes) {
    const auto input = binaryOver(bytes);
    recording::Message message;
    TMessageType type{};
    input->readMessageBegin(message.name, type, message.seqid);
    message.type = type;
    message.body = structFrom(*input);
    return message;
}

// --- Conversations

class Side {
public:
    explicit Side(const Conversation& conversation, const Fault& fault = {})
        : conversation_(conversation),
          handler_(std::make_shared<Handler<Library>>()),
          processor_(makeProcessor(conversation.operation->service, handler_)),
          caller_(input_, output_) {
        handler_->answer = someValues();
        handler_->refuses = conversation.path == Path::serveRefusing;
        const std::string message = messageOf(conversation, kEncodings[0]);
        if (!message.empty()) {
            input_->playMessage(messageFrom(message));
        }
        fault.plantInto(log_);
    }

    Failure act() { return actOver(input_, output_); }

    const std::string& log() const { return log_.text(); }
    std::string logUntil(std::size_t call) const { return log_.textUntil(call); }
    std::size_t calls() const { return log_.calls(); }
    bool handlerCalled() const { return handler_->calls != 0; }

    // Acts again, without failures. Returns the calls that this makes.
    std::string actsAgain() {
        const std::string before = log();
        log_.afterEachCall({});
        act();
        return log().substr(before.size());
    }
    void playReply() {
        input_->playMessage(messageFrom(replyTo(*conversation_.operation, kEncodings[0])));
    }
    // The calls that the same processor makes for a request over another connection.
    std::string servesAnother() {
        recording::Log log;
        const auto input = recording::make<recording::RecordingProtocol>(log, "in.");
        const auto output = recording::make<recording::RecordingProtocol>(log, "out.");
        input->playMessage(messageFrom(requestOf(*conversation_.operation, kEncodings[0])));
        handler_->refuses = false;
        actOver(input, output);
        return log.text();
    }

private:
    Failure actOver(const std::shared_ptr<TProtocol>& input,
                    const std::shared_ptr<TProtocol>& output) {
        const Call call = conversation_.operation->call;
        return failureOf([&] {
            if (isServers(conversation_.path)) {
                processor_->process(input, output, nullptr);
            } else if (conversation_.path == Path::send) {
                caller_.send(call, someValues());
            } else {
                caller_.receive(call, result_);
            }
        });
    }

    const Conversation conversation_;
    recording::Log log_;
    std::shared_ptr<recording::RecordingProtocol> input_ =
        recording::make<recording::RecordingProtocol>(log_, "in.");
    std::shared_ptr<recording::RecordingProtocol> output_ =
        recording::make<recording::RecordingProtocol>(log_, "out.");
    std::shared_ptr<Handler<Library>> handler_;
    std::shared_ptr<TProcessor> processor_;
    Caller<Library> caller_;
    Values result_;
};

std::string logOf(const Conversation& conversation) {
    Side side(conversation);
    side.act();
    return side.log();
}

// Makes one call fail. Returns what is wrong.
std::string disturb(const Conversation& conversation, const Fault& fault, const Side& undisturbed) {
    Side side(conversation, fault);
    const Failure outcome = side.act();
    if (outcome != fault.failure) {
        return std::string("came out as ") + kFailureNames[static_cast<std::size_t>(outcome)];
    }
    if (side.log() != undisturbed.logUntil(fault.call)) {
        return "made these calls:" + side.log();
    }
    const std::size_t firstWrite = undisturbed.log().find("\nout.");
    const bool answering = firstWrite < side.log().size();
    const Operation* operation = conversation.operation;
    switch (conversation.path) {
        case Path::send:
            return side.actsAgain() == undisturbed.log() ? "" : "does not send again";
        case Path::serve:
        case Path::serveRefusing:
            if (side.handlerCalled() != answering) {
                return "called the handler before all was read, or not at all";
            }
            break;
        default:
            if (side.handlerCalled()) {
                return "called the handler";
            }
    }
    if (isServers(conversation.path)) {
        return side.servesAnother() == logOf({operation, Path::serve})
                   ? ""
                   : "does not serve other connections any more";
    }
    if (fault.call == 1) {
        return side.actsAgain() == undisturbed.log() ? "" : "does not read again";
    }
    if (fault.call == undisturbed.calls()) {
        side.playReply();
        return side.actsAgain() == logOf({operation, Path::receive})
                   ? ""
                   : "does not receive the next reply";
    }
    return "";
}

void proveConversations(Report& report) {
    for (const Conversation& conversation : conversations()) {
        Side undisturbed(conversation);
        undisturbed.act();
        failEach(report, conversation.name(), undisturbed.calls(),
                 [&](const Fault& fault) { return disturb(conversation, fault, undisturbed); });
    }
}

// --- Records

// How many fields of a record have been read by these calls, whether or not the last one failed. A
// record in a field is one field.
std::size_t fieldsReadBy(const std::string& calls) {
    std::size_t fields = 0;
    int depth = 0;
    for (std::size_t at = 0; (at = calls.find("read", at)) != std::string::npos; ++at) {
        const std::string call = calls.substr(at, calls.find_first_of(" ,\n", at) - at);
        depth += call == "readStructBegin" ? 1 : call == "readStructEnd" ? -1 : 0;
        fields += call == "readFieldEnd" && depth == 1 ? 1U : 0U;
    }
    return fields;
}

void proveRecords(Report& report) {
    forEachRecord([&](const std::string& name, const auto& whole) {
        using Record = std::decay_t<decltype(whole)>;
        const recording::Struct body = structFrom(*binaryOver(bytesOf(whole)));
        const auto read = [&](const Fault& fault, Record& record) {
            recording::Log log;
            recording::RecordingProtocol input(log);
            input.playRecord(body);
            fault.plantInto(log);
            const Failure outcome = failureOf([&] { record.read(&input); });
            return std::make_pair(outcome, log);
        };
        Record undisturbed;
        failEach(report, name + ", read", read({}, undisturbed).second.calls(),
                 [&](const Fault& fault) -> std::string {
                     Record record;
                     const auto [outcome, log] = read(fault, record);
                     if (outcome != fault.failure || log.calls() != fault.call) {
                         return "came out as something else, or made calls after it";
                     }
                     return flagsAreRight(record, whole, fieldsReadBy(log.text()))
                                ? ""
                                : "flagged " + recording::flagsOf(record) + ", which is not so";
                 });

        const auto write = [&](const Fault& fault) {
            recording::Log log;
            recording::RecordingProtocol output(log);
            fault.plantInto(log);
            const Failure outcome = failureOf([&] { whole.write(&output); });
            return std::make_pair(outcome, log.calls());
        };
        failEach(report, name + ", write", write({}).second,
                 [&](const Fault& fault) -> std::string {
                     return write(fault) == std::make_pair(fault.failure, fault.call)
                                ? ""
                                : "came out as something else, or made calls after it";
                 });
    });
}

// --- Transports

// Passes a few bytes at a time, so that messages take many calls.
class FailingTransport : public TTransport {
public:
    FailingTransport(std::string toBeRead, const Fault& fault)
        : toBeRead_(std::move(toBeRead)), fault_(fault) {}

    bool isOpen() const override { return true; }
    uint32_t read_virt(uint8_t* buffer, uint32_t length) override {
        count();
        const std::size_t size = toBeRead_.copy(reinterpret_cast<char*>(buffer),
                                                std::min<std::size_t>(length, kPart), read_);
        read_ += size;
        return static_cast<uint32_t>(size);
    }
    void write_virt(const uint8_t* bytes, uint32_t length) override {
        count();
        written_.append(reinterpret_cast<const char*>(bytes), length);
    }
    void flush() override { count(); }

    std::size_t calls() const { return calls_; }
    const std::string& written() const { return written_; }

private:
    static constexpr std::size_t kPart = 8;

    void count() { fault_.strike(++calls_); }

    const std::string toBeRead_;
    const Fault fault_;
    std::size_t read_ = 0;
    std::size_t calls_ = 0;
    std::string written_;
};

// The outcome of a side's work over a failing transport, and how far it got.
struct Attempt {
    Failure outcome;
    std::size_t calls;
    std::string written;
};
Attempt attempt(const Conversation& conversation, const Encoding& encoding,
                const std::string& message, const Fault& fault) {
    constexpr uint32_t kBuffer = 16;
    const auto transport = std::make_shared<FailingTransport>(message, fault);
    const auto buffer = std::make_shared<TBufferedTransport>(transport, kBuffer);
    const auto input = makeProtocol(encoding, buffer);
    const auto output = makeProtocol(encoding, buffer);
    const auto handler = std::make_shared<Handler<Library>>();
    handler->answer = someValues();
    handler->refuses = conversation.path == Path::serveRefusing;
    const Operation& operation = *conversation.operation;
    const Failure outcome = failureOf([&] {
        if (isServers(conversation.path)) {
            makeProcessor(operation.service, handler)->process(input, output, nullptr);
        } else if (conversation.path == Path::send) {
            Caller<Library>(input, output).send(operation.call, someValues());
        } else {
            Values result;
            Caller<Library>(input, output).receive(operation.call, result);
        }
    });
    return {outcome, transport->calls(), transport->written()};
}

void proveTransports(Report& report) {
    for (const Encoding& encoding : kEncodings) {
        for (const Conversation& conversation : conversations()) {
            const std::string message = messageOf(conversation, encoding);
            const Attempt undisturbed = attempt(conversation, encoding, message, {});
            failEach(report, std::string(encoding.name) + ", " + conversation.name(),
                     undisturbed.calls, [&](const Fault& fault) -> std::string {
                         const Attempt made = attempt(conversation, encoding, message, fault);
                         const bool same =
                             made.outcome == fault.failure && made.calls == fault.call &&
                             undisturbed.written.compare(0, made.written.size(), made.written) == 0;
                         return same ? "" : "came out as something else, or made calls after it";
                     });
        }
    }
}

void proveAll(Report& report) {
    proveConversations(report);
    proveRecords(report);
    proveTransports(report);
}

}  // namespace

int main(int argc, char** argv) {
    return run(argc, argv, proveAll);
}
