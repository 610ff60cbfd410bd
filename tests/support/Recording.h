#ifndef TESTS_SUPPORT_RECORDING_H
#define TESTS_SUPPORT_RECORDING_H

#include <TavIDL/thrift.h>
#include <thrift/transport/TTransport.h>
#if !__has_include(<TProcessor.h>) || __has_include(<protocol/TVirtualProtocol.h>)
#include <thrift/protocol/TVirtualProtocol.h>
#define TESTS_HAVE_TVIRTUALPROTOCOL
#endif

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// For the tests of the library: a protocol and a transport that log the calls made to
// them, play back messages, and can fail.
//
// Compiled with each form of libthrift's declarations.
namespace recording {

using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TType;

// The log that protocols, transports and handlers share, as text. One line per call,
// except that all calls for one field are on one line.
class Log {
public:
    // Logs a call to a protocol or a transport. Returns its number, from 1 on, which the
    // call then returns: so a sum of bytes shows which calls contribute to it.
    uint32_t call(const std::string& speaker, const std::string& what);

    // Logs anything else, such as a handler's work.
    void note(const std::string& what);

    // The n-th call throws after it was logged: a TTransportException from a transport or
    // a TProtocolException from a protocol, with the text "call <n> fails".
    void failAt(std::size_t n) { failing_ = n; }

    // Once a call has been noted, `action` gets its number, and may throw what it likes.
    void afterEachCall(std::function<void(std::size_t)> action) { action_ = std::move(action); }

    std::size_t calls() const { return ends_.size(); }
    // Each line begins with a newline, as in raw string literals.
    const std::string& text() const { return text_; }
    std::string textUntil(std::size_t n) const { return text_.substr(0, ends_.at(n - 1)); }
    // The failure, as failureOf() returns it.
    const std::string& failure() const { return failure_; }

private:
    std::string text_;
    std::string speaker_;  // of the last call
    std::string last_;     // the last call
    std::vector<std::size_t> ends_;
    std::size_t failing_ = 0;
    std::function<void(std::size_t)> action_;
    std::string failure_ = "nothing";
};

// A value to read, including nested ones.
struct Field;
struct Value {
    Value(bool flag);
    Value(int32_t value);
    Value(const char* value);
    Value(std::vector<Field> value);

    TType type;
    int32_t number = 0;
    std::string text;
    std::vector<Field> fields;
};
struct Field {
    int16_t id;
    Value value;
};
using Struct = std::vector<Field>;

// A value of any type, to skip.
Value somethingOf(TType type);

struct Message {
    std::string name;
    int type;
    int32_t seqid;
    Struct body;
};

class RecordingTransport : public apache::thrift::transport::TTransport {
    // Older releases of libthrift return nothing here.
    using EndResult = decltype(std::declval<TTransport&>().readEnd());

public:
    RecordingTransport(Log& log, std::string speaker) : log_(log), speaker_(std::move(speaker)) {}

    bool peek() override { return log_.call(speaker_, "peek") != 0; }
    void open() override { log_.call(speaker_, "open"); }
    void close() override { log_.call(speaker_, "close"); }
    void flush() override { log_.call(speaker_, "flush"); }
    EndResult readEnd() override { return EndResult(log_.call(speaker_, "readEnd")); }
    EndResult writeEnd() override { return EndResult(log_.call(speaker_, "writeEnd")); }

private:
    Log& log_;
    std::string speaker_;
};

// Forwards TProtocol's calls to a protocol. Up to 0.5 they are virtual themselves.
#ifdef TESTS_HAVE_TVIRTUALPROTOCOL
template <typename Protocol>
using VirtualProtocol = apache::thrift::protocol::TVirtualProtocol<Protocol>;
#else
template <typename>
using VirtualProtocol = apache::thrift::protocol::TProtocol;
#endif

// Calls that the library does not use are left to libthrift, which throws NOT_IMPLEMENTED.
// A skip is one call: the skipped values are not read one by one.
class RecordingProtocol : public VirtualProtocol<RecordingProtocol> {
    using Base = VirtualProtocol<RecordingProtocol>;

public:
    // `speaker` begins each line, to distinguish several protocols.
    explicit RecordingProtocol(Log& log, const std::string& speaker = "");

    // Plays back `body` next, without an envelope.
    void playRecord(Struct body) { announced_.assign(1, Value(std::move(body))); }
    // Plays back `message` after the pending ones.
    void playMessage(Message message);
    // Whether everything has been read.
    bool playedToItsEnd() const;

    void dropTransport() { ptrans_.reset(); }

    uint32_t writeMessageBegin(const std::string& name, TMessageType type, int32_t seqid);
    uint32_t writeMessageEnd();
    uint32_t writeStructBegin(const char* name);
    uint32_t writeStructEnd();
    uint32_t writeFieldBegin(const char* name, TType type, int16_t id);
    uint32_t writeFieldEnd();
    uint32_t writeFieldStop();
    uint32_t writeBool(bool value);
    uint32_t writeI32(int32_t value);
    uint32_t writeString(const std::string& value);

    uint32_t readMessageBegin(std::string& name, TMessageType& type, int32_t& seqid);
    uint32_t readMessageEnd();
    uint32_t readStructBegin(std::string& name);
    uint32_t readStructEnd();
    uint32_t readFieldBegin(std::string& name, TType& type, int16_t& id);
    uint32_t readFieldEnd();
    uint32_t readBool(bool& value);
    using Base::readBool;
    uint32_t readI32(int32_t& value);
    uint32_t readString(std::string& value);
    uint32_t skip(TType type);

private:
    uint32_t call(const std::string& what) { return log_.call(speaker_, what); }
    // The value that a field begin or message begin has announced.
    Value take(TType type);

    Log& log_;
    std::string speaker_;
    std::vector<Message> messages_;    // the next one last
    std::vector<Value> announced_;     // none or one
    std::vector<Struct> openStructs_;  // with the fields still to come, the next one last
};

// A new object in libthrift's pointer type.
template <typename T, typename... Arguments>
TavIDL::shared_ptr<T> make(Arguments&&... arguments) {
    return TavIDL::shared_ptr<T>(new T(std::forward<Arguments>(arguments)...));
}

// Calls process() like a server: through libthrift's class, in the form that it declares.
template <typename Processor>
auto processInForm(Processor& processor, const TavIDL::ProtocolPointer& input,
                   const TavIDL::ProtocolPointer& output, int)
    -> decltype(processor.process(input, output, nullptr)) {
    return processor.process(input, output, nullptr);
}
template <typename Processor>
bool processInForm(Processor& processor, const TavIDL::ProtocolPointer& input,
                   const TavIDL::ProtocolPointer& output, long) {
    return processor.process(input, output);
}
inline bool process(apache::thrift::TProcessor& processor, const TavIDL::ProtocolPointer& input,
                    const TavIDL::ProtocolPointer& output) {
    return processInForm(processor, input, output, 0);
}

// What `action` throws, as text: the type, for a TApplicationException the kind, and the
// message.
std::string failureOf(const std::function<void()>& action);

// Runs `path` once without failures, then once for each call that it makes to a protocol
// or a transport, with that call failing. Each time that failure must be thrown, and the
// log must end with the failed call.
void expectEveryFailureToPass(const std::function<void(Log&)>& path);

// Calls a record's write, or its read of `body`. The number of bytes that it returns
// must be the sum of what the calls returned. Returns those calls.
std::string checkedSum(const std::function<uint32_t(RecordingProtocol&)>& action,
                       const Struct& body = {});

// Checks a record's write completely: its calls, their sum, and that every failure passes
// through. Returns the calls.
template <typename Record>
std::string writing(const Record& record) {
    expectEveryFailureToPass([&](Log& log) {
        RecordingProtocol protocol(log);
        record.write(&protocol);
    });
    return checkedSum([&](RecordingProtocol& protocol) { return record.write(&protocol); });
}

// The same for its read, from `body`, which fills `record`.
template <typename Record>
std::string reading(Record& record, const Struct& body) {
    expectEveryFailureToPass([&](Log& log) {
        RecordingProtocol protocol(log);
        protocol.playRecord(body);
        Record copy = record;
        copy.read(&protocol);
    });
    return checkedSum([&](RecordingProtocol& protocol) { return record.read(&protocol); }, body);
}

// The flags of a record as digits, in the order of its fields.
template <typename Record>
std::string flagsOf(const Record& record) {
    static_assert(sizeof(bool) == 1, "a flag is a byte");
    const auto* flags = reinterpret_cast<const bool*>(&record.__isset);
    std::string digits;
    for (std::size_t i = 0; i < sizeof(record.__isset); ++i) {
        digits += flags[i] ? '1' : '0';
    }
    return digits;
}

}  // namespace recording

#endif
