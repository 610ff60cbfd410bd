// Random calls and messages go through this library and through the Thrift compiler's code; and
// through this library with direct calls to the protocol and with virtual calls. Bytes, calls of
// the handler, results, exceptions and the number of bytes read must be the same.

#include <support/Recording.h>
#include <thrift/TApplicationException.h>
#include <thrift/TOutput.h>

#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Conversations.h"
#include "RandomMessages.h"
#include "Report.h"

using namespace proof;
using apache::thrift::TApplicationException;
namespace protocol = apache::thrift::protocol;

namespace {

enum class Act { send, serve, receive };

struct Case {
    Act act;
    const Operation* operation;
    const Encoding* encoding;  // the first one that looks like this on the wire
    std::string message;       // to be served or received
    Values values;             // to be sent or answered
    bool refuses;              // the handler
};

struct Outcome {
    bool returned = true;  // by process()
    std::string failure;
    std::string written;
    uint32_t consumed = 0;
    int calls = 0;
    std::string called;
    Values seen;
    Values result;

    bool operator==(const Outcome& other) const {
        return returned == other.returned && failure == other.failure && written == other.written &&
               consumed == other.consumed && calls == other.calls && called == other.called &&
               seen == other.seen && result == other.result;
    }
};

std::shared_ptr<TMemoryBuffer> bufferOver(const std::string& message) {
    // Only read from.
    auto* const bytes = reinterpret_cast<uint8_t*>(const_cast<char*>(message.data()));  // NOLINT
    return std::make_shared<TMemoryBuffer>(bytes, static_cast<uint32_t>(message.size()));
}

// --- Intended differences from generated code

struct Difference {
    const char* name;
    const char* reason;
    std::function<bool(const Case&, const Outcome& ours, const Outcome& theirs)> explains;
    uint64_t uses = 0;
};

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// What generated code has sent as T_ONEWAY, as T_CALL.
std::string asCall(std::string message, Wire wire) {
    switch (wire) {
        case Wire::binary:
            message.at(3) = protocol::T_CALL;
            break;
        case Wire::compact:  // the upper three bits
            message.at(1) = static_cast<char>((message.at(1) & 0x1f) | protocol::T_CALL << 5);
            break;
        case Wire::json:
            message.replace(message.find(",4,"), 3, ",1,");
    }
    return message;
}

// What becomes of a message whose type or name is wrong: it is read to its end, and then a client
// throws, and a processor answers. Here without the library. Nothing if type and name are right.
std::optional<Outcome> refusalOf(const Case& one) {
    const auto input = bufferOver(one.message);
    const auto output = std::make_shared<TMemoryBuffer>();
    const auto in = makeProtocol(*one.encoding, input);
    const auto out = makeProtocol(*one.encoding, output);
    bool wrong = false;
    Outcome outcome;
    outcome.failure = recording::failureOf([&] {
        std::string name;
        TMessageType type{};
        int32_t seqid = 0;
        in->readMessageBegin(name, type, seqid);
        const bool serves = one.act == Act::serve;
        const bool wrongType = serves ? type != protocol::T_CALL && type != protocol::T_ONEWAY
                                      : type != protocol::T_REPLY && type != protocol::T_EXCEPTION;
        const bool wrongName = type == protocol::T_REPLY && name != one.operation->name;
        wrong = wrongType || wrongName;
        if (!wrong) {
            return;
        }
        in->skip(protocol::T_STRUCT);
        in->readMessageEnd();
        const TApplicationException refusal(wrongType ? TApplicationException::INVALID_MESSAGE_TYPE
                                                      : TApplicationException::WRONG_METHOD_NAME);
        if (!serves) {
            throw refusal;
        }
        out->writeMessageBegin(name, protocol::T_EXCEPTION, seqid);
        refusal.write(out.get());
        out->writeMessageEnd();
    });
    outcome.written = output->getBufferAsString();
    outcome.consumed = static_cast<uint32_t>(one.message.size()) - input->available_read();
    return wrong ? std::optional<Outcome>(outcome) : std::nullopt;
}

std::vector<Difference>& differences() {
    static std::vector<Difference> all = {
        {"Callback is sent as T_CALL", "peers of this interface know it so: doc/wire.md",
         [](const Case& one, const Outcome& ours, const Outcome& theirs) {
             if (one.act != Act::send || one.operation->call != Call::callback) {
                 return false;
             }
             Outcome expected = theirs;
             expected.written = asCall(theirs.written, one.encoding->wire);
             return ours == expected;
         }},
        {"a message that is not a call is answered",
         "the peer learns of its mistake, and the connection goes on: doc/wire.md",
         [](const Case& one, const Outcome& ours, const Outcome& theirs) {
             return one.act == Act::serve && theirs.failure == "nothing" && !theirs.returned &&
                    refusalOf(one) == ours;
         }},
        {"a reply of the wrong type or name is refused",
         "generated code reads on, into the next reply or to the end of the connection",
         [](const Case& one, const Outcome& ours, const Outcome&) {
             return one.act == Act::receive && refusalOf(one) == ours;
         }},
        {"a record is not counted as a level of nesting",
         "unknown fields may be nested one or two levels deeper: doc/wire.md",
         [](const Case& one, const Outcome& ours, const Outcome& theirs) {
             return one.act != Act::send && has(theirs.failure, "depth limit") &&
                    (ours.consumed > theirs.consumed || ours.failure != theirs.failure);
         }},
    };
    return all;
}

// --- Acting

template <typename Family>
class Services {
public:
    Outcome act(const Case& one, const Encoding& encoding) {
        const auto input = bufferOver(one.message);
        const auto output = std::make_shared<TMemoryBuffer>();
        const auto in = makeProtocol(encoding, input);
        const auto out = makeProtocol(encoding, output);
        handler_->answer = one.values;
        handler_->refuses = one.refuses;
        handler_->calls = 0;
        handler_->called = "";
        handler_->seen = Values();
        Outcome outcome;
        outcome.failure = recording::failureOf([&] {
            switch (one.act) {
                case Act::send:
                    Caller<Family>(in, out).send(one.operation->call, one.values);
                    break;
                case Act::serve:
                    outcome.returned =
                        processors_[static_cast<std::size_t>(one.operation->service)]->process(
                            in, out, nullptr);
                    break;
                case Act::receive:
                    Caller<Family>(in, out).receive(one.operation->call, outcome.result);
            }
        });
        outcome.written = output->getBufferAsString();
        outcome.consumed = static_cast<uint32_t>(one.message.size()) - input->available_read();
        outcome.calls = handler_->calls;
        outcome.called = handler_->called;
        outcome.seen = handler_->seen;
        return outcome;
    }

private:
    std::shared_ptr<Handler<Family>> handler_ = std::make_shared<Handler<Family>>();
    std::shared_ptr<TProcessor> processors_[3] = {makeProcessor(Service::broker, handler_),
                                                  makeProcessor(Service::emp, handler_),
                                                  makeProcessor(Service::event, handler_)};
};

// --- Comparing

std::string shown(const std::string& bytes) {
    std::ostringstream text;
    for (const char c : bytes.substr(0, 400)) {
        if (c >= 32 && c < 127 && c != '\\') {
            text << c;
        } else {
            text << "\\x"
                 << "0123456789abcdef"[static_cast<uint8_t>(c) >> 4] << "0123456789abcdef"[c & 15];
        }
    }
    return text.str();
}

std::string shown(const Values& values) {
    std::ostringstream text;
    text << values.number << ' ' << values.secondNumber << ' ' << values.flag;
    for (const std::string& one : values.texts) {
        text << " '" << shown(one) << "'";
    }
    return text.str();
}

std::string shown(const Outcome& outcome) {
    std::ostringstream text;
    text << "failure " << outcome.failure << ", returned " << outcome.returned << ", read "
         << outcome.consumed << " bytes, " << outcome.calls << " calls " << outcome.called << ' '
         << shown(outcome.seen) << ", result " << shown(outcome.result) << ", wrote "
         << shown(outcome.written);
    return text.str();
}

std::string named(const Case& one, const Encoding& encoding) {
    static const char* const acts[] = {"send", "serve", "receive"};
    return std::string(encoding.name) + ", " + one.operation->title + ", " +
           acts[static_cast<std::size_t>(one.act)];
}

Case randomCase(Random& random, const Encoding& encoding) {
    Case one{};
    one.act = static_cast<Act>(random.below(3));
    // Callback, the last one, has no reply.
    one.operation = &kOperations[random.below(kOperations.size() - (one.act == Act::receive))];
    one.encoding = &encoding;
    one.values = random.values();
    one.refuses = random.happens(10);
    if (one.act != Act::send) {
        one.message = one.act == Act::serve ? randomRequest(random, *one.operation, encoding)
                                            : randomReply(random, *one.operation, encoding);
    }
    return one;
}

class Comparison {
public:
    explicit Comparison(Report& report) : report_(report) {}

    void compare(uint64_t seed) {
        Random random(seed);
        static constexpr std::size_t kExact[] = {0, 3, 6};  // in kEncodings: binary, compact, JSON
        const std::size_t exact = kExact[random.below(std::size(kExact))];
        const Encoding& encoding = kEncodings[exact];
        const Case one = randomCase(random, encoding);
        report_.countRun();
        const Outcome ours = library_.act(one, encoding);
        for (std::size_t i = exact + 1;
             i < kEncodings.size() && kEncodings[i].wire == encoding.wire; ++i) {
            const Outcome other = library_.act(one, kEncodings[i]);
            if (!(other == ours)) {
                fail(seed, one, encoding, ours, kEncodings[i].name, other);
            }
        }
        const Outcome theirs = generated_.act(one, encoding);
        if (!(theirs == ours) && !isIntended(one, ours, theirs)) {
            fail(seed, one, encoding, ours, "generated code", theirs);
        }
    }

private:
    static bool isIntended(const Case& one, const Outcome& ours, const Outcome& theirs) {
        for (Difference& difference : differences()) {
            if (difference.explains(one, ours, theirs)) {
                ++difference.uses;
                return true;
            }
        }
        return false;
    }

    void fail(uint64_t seed, const Case& one, const Encoding& encoding, const Outcome& ours,
              const std::string& other, const Outcome& theirs) {
        report_.fail("--seed=" + std::to_string(seed) + "' '--runs=1",
                     named(one, encoding) + "\n  message: " + shown(one.message) +
                         "\n  library: " + shown(ours) + "\n  " + other + ": " + shown(theirs));
    }

    Report& report_;
    Services<Library> library_;
    Services<Generated> generated_;
};

void proveAll(Report& report) {
    apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});
    constexpr uint64_t kUsualRuns = 1'000'000;
    constexpr uint64_t kEnoughForAll = 20'000;  // runs after which each difference has occurred
    const uint64_t runs = report.wantedRuns() == 0 ? kUsualRuns : report.wantedRuns();
    std::cout << "seeds " << report.seed() << " to " << report.seed() + runs - 1 << std::endl;
    Comparison comparison(report);
    for (uint64_t i = 0; i < runs; ++i) {
        comparison.compare(report.seed() + i);
    }
    for (const Difference& difference : differences()) {
        std::cout << difference.uses << " times: " << difference.name << " (" << difference.reason
                  << ")\n";
        if (difference.uses == 0 && runs >= kEnoughForAll) {
            report.fail("--runs=" + std::to_string(runs),
                        std::string("never needed: ") + difference.name);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return run(argc, argv, proveAll);
}
