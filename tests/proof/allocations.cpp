// Each allocation of each conversation fails: alone, and together with all later ones. Nothing may
// leak, exactly the fields that were read must be flagged, and whatever was not in the middle of a
// message must keep working.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <utility>

#include "Conversations.h"
#include "Memory.h"
#include "Records.h"
#include "Report.h"

using namespace proof;
using memory::Failing;

namespace {

const char* const kBadAlloc = "std::exception 'std::bad_alloc'";

// Knows whether a message has been read or written to its end.
class Buffer : public TMemoryBuffer {
public:
    explicit Buffer(const std::string& content = "") { put(content); }

    void put(const std::string& content) {
        write(reinterpret_cast<const uint8_t*>(content.data()),
              static_cast<uint32_t>(content.size()));
    }
    uint32_t readEnd() override {
        ++readEnds;
        return TMemoryBuffer::readEnd();
    }
    uint32_t writeEnd() override {
        ++writeEnds;
        return TMemoryBuffer::writeEnd();
    }

    int readEnds = 0;
    int writeEnds = 0;
};

// What `action` throws, as text. No allocation fails afterwards.
std::string outcomeOf(const std::function<void()>& action) {
    std::exception_ptr failure;
    try {
        action();
    } catch (...) {
        failure = std::current_exception();  // needs no memory
    }
    memory::stopFailing();
    return failure ? recording::failureOf([&] { std::rethrow_exception(failure); }) : "";
}

// One side of a conversation, ready to act.
class Side {
public:
    Side(const Conversation& conversation, const Encoding& encoding, const std::string& message)
        : conversation_(conversation),
          encoding_(encoding),
          message_(message),
          input_(std::make_shared<Buffer>(message)),
          output_(std::make_shared<Buffer>()),
          inputProtocol_(makeProtocol(encoding, input_)),
          outputProtocol_(makeProtocol(encoding, output_)),
          handler_(std::make_shared<Handler<Library>>()),
          processor_(makeProcessor(conversation.operation->service, handler_)),
          caller_(inputProtocol_, outputProtocol_) {
        handler_->answer = someValues();
        handler_->refuses = conversation.path == Path::serveRefusing;
    }

    // Returns what it threw.
    std::string act(std::size_t failingAllocation, Failing failing) {
        return outcomeOf([&] {
            memory::failAt(failingAllocation, failing);
            if (isServers(conversation_.path)) {
                processor_->process(inputProtocol_, outputProtocol_, nullptr);
            } else if (conversation_.path == Path::send) {
                caller_.send(conversation_.operation->call, values_);
            } else {
                caller_.receive(conversation_.operation->call, result_);
            }
        });
    }
    std::string act() { return act(0, Failing::once); }

    const std::string& message() const { return message_; }
    std::string written() const { return output_->getBufferAsString(); }
    const Values& result() const { return result_; }
    const Values& seen() const { return handler_->seen; }

    bool nothingRead() const { return input_->available_read() == message_.size(); }
    bool allRead() const { return input_->readEnds == 1; }
    bool allWritten() const { return output_->writeEnds == 1; }
    bool handlerCalled() const { return handler_->calls != 0; }

    // Whether the same client, on the same connection, receives a reply that comes now.
    bool receivesNext() {
        const Call call = conversation_.operation->call;
        input_->put(replyTo(*conversation_.operation, encoding_));
        Values result;
        return outcomeOf([&] { caller_.receive(call, result); }).empty() && !(result == Values());
    }

    // Whether the same processor serves a request, on the same connection or on a new one.
    bool servesNext(bool sameConnection) {
        const Operation& operation = *conversation_.operation;
        handler_->refuses = false;
        if (!sameConnection) {
            inputProtocol_ = makeProtocol(encoding_, input_ = std::make_shared<Buffer>());
            outputProtocol_ = makeProtocol(encoding_, output_ = std::make_shared<Buffer>());
        }
        input_->put(requestOf(operation, encoding_));
        const auto failure =
            outcomeOf([&] { processor_->process(inputProtocol_, outputProtocol_, nullptr); });
        return failure.empty() && written() == replyTo(operation, encoding_);
    }

private:
    const Conversation conversation_;
    const Encoding encoding_;
    const std::string message_;
    std::shared_ptr<Buffer> input_;
    std::shared_ptr<Buffer> output_;
    std::shared_ptr<TProtocol> inputProtocol_;
    std::shared_ptr<TProtocol> outputProtocol_;
    std::shared_ptr<Handler<Library>> handler_;
    std::shared_ptr<TProcessor> processor_;
    Caller<Library> caller_;
    const Values values_ = someValues();
    Values result_;
};

// What is wrong with what a client did when an allocation failed; empty if nothing is.
std::string judgeClient(Side& side, const std::string& outcome, Side& undisturbed,
                        const std::string& undisturbedOutcome, bool sends) {
    if (outcome == undisturbedOutcome) {  // it recovered from the failure
        return side.written() == undisturbed.written() && side.result() == undisturbed.result()
                   ? ""
                   : "came to another result, without a failure";
    }
    if (outcome.empty()) {
        return "returned, instead of throwing";
    }
    if (sends) {
        const bool again = !side.written().empty() || (side.act() == undisturbedOutcome &&
                                                       side.written() == undisturbed.written());
        return again ? "" : "had written nothing, but does not send again";
    }
    if (side.allRead()) {
        return side.receivesNext() ? "" : "had read all, but does not receive the next reply";
    }
    if (side.nothingRead()) {
        return side.act() == undisturbedOutcome ? "" : "had read nothing, but does not read again";
    }
    return "";
}

// The same for a server.
std::string judgeServer(Side& side, const std::string& outcome, Side& undisturbed,
                        const std::string& undisturbedOutcome) {
    if (side.handlerCalled() && !side.allRead()) {
        return "called the handler before the request was read";
    }
    if (outcome.empty() && side.written() != undisturbed.written() &&
        (!side.allWritten() || side.written().find("std::bad_alloc") == std::string::npos)) {
        return "answered with something else, without a failure";
    }
    if (side.nothingRead() && side.written().empty() && !side.message().empty()) {
        if (side.act() != undisturbedOutcome || side.written() != undisturbed.written()) {
            return "had read nothing, but does not serve the request again";
        }
    } else if (side.allRead() && side.written().empty() && !side.servesNext(true)) {
        return "had read all and written nothing, but does not serve the next request";
    }
    return side.servesNext(false) ? "" : "does not serve other connections any more";
}

// Makes one allocation of a conversation fail. Returns what is wrong.
std::string disturb(const Conversation& conversation, const Encoding& encoding,
                    const std::string& message, std::size_t failingAllocation, Failing failing) {
    Side side(conversation, encoding, message);
    const std::string outcome = side.act(failingAllocation, failing);

    // Made only now, since the disturbed one may have to be the process's first.
    Side undisturbed(conversation, encoding, message);
    const std::string undisturbedOutcome = undisturbed.act();
    if (outcome != undisturbedOutcome && outcome != kBadAlloc && !outcome.empty()) {
        return "threw " + outcome;
    }
    return isServers(conversation.path)
               ? judgeServer(side, outcome, undisturbed, undisturbedOutcome)
               : judgeClient(side, outcome, undisturbed, undisturbedOutcome,
                             conversation.path == Path::send);
}

std::size_t allocationsOf(const Conversation& conversation, const Encoding& encoding,
                          const std::string& message) {
    Side(conversation, encoding, message).act();
    return memory::stopFailing();
}

// Calls `run` for each allocation, for both ways to fail, and reports what it says.
void failEach(Report& report, const std::string& name, std::size_t allocations,
              const std::function<std::string(std::size_t, Failing)>& run) {
    for (const Failing failing : {Failing::once, Failing::fromThereOn}) {
        for (std::size_t number = 1; number <= allocations; ++number) {
            report.countRun();
            const std::string wrong = run(number, failing);
            if (!wrong.empty()) {
                report.fail("--only=" + name, name + ": allocation " + std::to_string(number) +
                                                  (failing == Failing::once ? "" : " and later") +
                                                  ": " + wrong);
            }
        }
    }
}

// The same, and each run must free what it allocates.
void failEachWithoutLeak(Report& report, const std::string& name, std::size_t allocations,
                         const std::function<std::string(std::size_t, Failing)>& run) {
    failEach(report, name, allocations, [&](std::size_t number, Failing failing) {
        const std::size_t before = memory::blocks();
        std::string wrong = run(number, failing);
        const std::size_t after = memory::blocks();
        return wrong.empty() && after != before
                   ? "leaks " + std::to_string(after - before) + " blocks"
                   : wrong;
    });
}

// --- The first call of a process

// What `work` returns, in a process of its own.
std::string inChild(const std::function<std::string()>& work) {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("pipe() failed");
    }
    const pid_t child = fork();
    if (child == 0) {
        const std::string text = work();
        const bool sent =
            write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        _exit(sent ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char part[4096];
    for (ssize_t size = 0; (size = read(ends[0], part, sizeof(part))) > 0;) {
        text.append(part, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? text : "ended with status " + std::to_string(status);
}

// Runs before anything else uses the library in this process.
void proveFirstCalls(Report& report) {
    for (const Encoding& encoding : kEncodings) {
        for (const Conversation& conversation : conversations()) {
            const std::string name =
                std::string("first call, ") + encoding.name + ", " + conversation.name();
            if (!report.selected(name)) {
                continue;
            }
            const std::string message = inChild([&] { return messageOf(conversation, encoding); });
            const auto allocations = std::stoul(inChild(
                [&] { return std::to_string(allocationsOf(conversation, encoding, message)); }));
            // What a process keeps after its first call, it also keeps if that call failed.
            const auto leaving = [&](std::size_t number, Failing failing) {
                const std::size_t before = memory::blocks();
                std::string wrong = disturb(conversation, encoding, message, number, failing);
                const std::size_t left = memory::blocks() - before;
                return wrong.empty() ? "leaves " + std::to_string(left) + " blocks" : wrong;
            };
            const std::string expected = inChild([&] { return leaving(0, Failing::once); });
            failEach(report, name, allocations, [&](std::size_t number, Failing failing) {
                const std::string left = inChild([&] { return leaving(number, failing); });
                return left == expected ? "" : left + ", expected: " + expected;
            });
        }
    }
}

// --- All others

void proveConversations(Report& report) {
    for (const Encoding& encoding : kEncodings) {
        for (const Conversation& conversation : conversations()) {
            const std::string name = std::string(encoding.name) + ", " + conversation.name();
            if (!report.selected(name)) {
                continue;
            }
            const std::string message = messageOf(conversation, encoding);
            failEachWithoutLeak(report, name, allocationsOf(conversation, encoding, message),
                                [&](std::size_t number, Failing failing) {
                                    return disturb(conversation, encoding, message, number,
                                                   failing);
                                });
        }
    }
}

void proveConstruction(Report& report) {
    const auto construct = [&](const std::string& name, const std::function<void()>& action) {
        if (!report.selected(name)) {
            return;
        }
        memory::failAt(0, Failing::once);
        action();
        failEachWithoutLeak(report, name, memory::stopFailing(),
                            [&](std::size_t number, Failing failing) -> std::string {
                                const std::string outcome = outcomeOf([&] {
                                    memory::failAt(number, failing);
                                    action();
                                });
                                return outcome == kBadAlloc ? "" : "threw " + outcome;
                            });
    };
    const auto protocol = makeProtocol(kEncodings[0], std::make_shared<TMemoryBuffer>());
    const auto handler = std::make_shared<Handler<Library>>();
    construct("TavBrokerClient", [&] { std::make_shared<TavBrokerClient>(protocol); });
    construct("TavEmpClient", [&] { std::make_shared<TavEmpClient>(protocol); });
    construct("TavEmpEventClient", [&] { std::make_shared<TavEmpEventClient>(protocol); });
    construct("TavBrokerProcessor", [&] { std::make_shared<TavBrokerProcessor>(handler); });
    construct("TavEmpProcessor", [&] { std::make_shared<TavEmpProcessor>(handler); });
    construct("TavEmpEventProcessor", [&] { std::make_shared<TavEmpEventProcessor>(handler); });
}

void proveFlags(Report& report) {
    forEachRecord([&](const std::string& title, const auto& whole) {
        using Record = std::decay_t<decltype(whole)>;
        for (const Encoding& encoding : kEncodings) {
            const std::string name = std::string(encoding.name) + ", " + title;
            if (!report.selected(name)) {
                continue;
            }
            const auto writing = std::make_shared<TMemoryBuffer>();
            whole.write(makeProtocol(encoding, writing).get());
            const std::string bytes = writing->getBufferAsString();

            const auto read = [&](std::size_t number, Failing failing) -> std::string {
                const auto protocol = makeProtocol(encoding, std::make_shared<Buffer>(bytes));
                Record record;
                const std::string outcome = outcomeOf([&] {
                    memory::failAt(number, failing);
                    record.read(protocol.get());
                });
                if (outcome.empty() ? fieldsOf(record) != fieldsOf(whole) : outcome != kBadAlloc) {
                    return "read something else, or threw " + outcome;
                }
                return flagsAreRight(record, whole, fieldsReadInto(record, whole))
                           ? ""
                           : "flagged " + recording::flagsOf(record) + ", which is not so";
            };
            const std::string wrong = read(0, Failing::once);
            const std::size_t allocations = memory::stopFailing();
            if (!wrong.empty()) {
                report.fail("--only=" + name, name + ": " + wrong);
            }
            failEachWithoutLeak(report, name, allocations, read);
        }
    });
}

void proveAll(Report& report) {
    proveFirstCalls(report);
    proveConstruction(report);
    proveConversations(report);
    proveFlags(report);
}

}  // namespace

int main(int argc, char** argv) {
    return run(argc, argv, proveAll);
}
