#include <support/Recording.h>

#include <gtest/gtest.h>
#include <thrift/protocol/TProtocolException.h>
#include <thrift/transport/TTransportException.h>

#include <algorithm>
#include <stdexcept>

namespace recording {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::TProtocolException;
using apache::thrift::transport::TTransportException;
namespace protocol = apache::thrift::protocol;

namespace {

bool beginsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool isOneOf(const std::string& what, std::initializer_list<const char*> prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const char* prefix) { return beginsWith(what, prefix); });
}

// Values and field ends are on the line of the preceding field begin.
bool continuesLine(const std::string& what) {
    return isOneOf(what, {"writeBool", "writeI32", "writeString", "writeFieldEnd", "readBool",
                          "readI32", "readString", "readFieldEnd", "skip"});
}

bool isTransports(const std::string& what) {
    return isOneOf(what, {"peek", "open", "close", "flush", "readEnd", "writeEnd"});
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

std::string describe(const char* type, const std::exception& failure) {
    return std::string(type) + " " + quoted(failure.what());
}

}  // namespace

uint32_t Log::call(const std::string& speaker, const std::string& what) {
    const bool inRecord = !last_.empty() && !beginsWith(last_, "readMessageBegin");
    if (inRecord && continuesLine(what) && speaker == speaker_) {
        text_ += ", " + what;
    } else {
        text_ += "\n" + speaker + what;
    }
    speaker_ = speaker;
    last_ = what;
    ends_.push_back(text_.size());
    if (calls() == failing_) {
        const std::string message = "call " + std::to_string(failing_) + " fails";
        failure_ = isTransports(what) ? "TTransportException" : "TProtocolException";
        failure_ += " " + quoted(message);
        if (isTransports(what)) {
            throw TTransportException(TTransportException::END_OF_FILE, message);
        }
        throw TProtocolException(TProtocolException::INVALID_DATA, message);
    }
    if (action_) {
        action_(calls());
    }
    return static_cast<uint32_t>(calls());
}

void Log::note(const std::string& what) {
    text_ += "\n" + what;
    speaker_ = "nobody, so that the next call begins a line";
}

Value::Value(bool flag) : type(protocol::T_BOOL), number(flag ? 1 : 0) {
}
Value::Value(int32_t value) : type(protocol::T_I32), number(value) {
}
Value::Value(const char* value) : type(protocol::T_STRING), text(value) {
}
Value::Value(std::vector<Field> value) : type(protocol::T_STRUCT), fields(std::move(value)) {
}

Value somethingOf(TType type) {
    Value value(0);
    value.type = type;
    return value;
}

RecordingProtocol::RecordingProtocol(Log& log, const std::string& speaker)
    : Base(make<RecordingTransport>(log, speaker)), log_(log), speaker_(speaker) {
}

void RecordingProtocol::playMessage(Message message) {
    messages_.insert(messages_.begin(), std::move(message));
}

bool RecordingProtocol::playedToItsEnd() const {
    return messages_.empty() && announced_.empty() && openStructs_.empty();
}

Value RecordingProtocol::take(TType type) {
    if (announced_.empty() || announced_.back().type != type) {
        throw std::logic_error("there is no value of type " + std::to_string(type) + " to read");
    }
    Value value = std::move(announced_.back());
    announced_.pop_back();
    return value;
}

uint32_t RecordingProtocol::writeMessageBegin(const std::string& name, TMessageType type,
                                              int32_t seqid) {
    return call("writeMessageBegin " + quoted(name) + " " + std::to_string(type) + " " +
                std::to_string(seqid));
}

uint32_t RecordingProtocol::writeMessageEnd() {
    return call("writeMessageEnd");
}

uint32_t RecordingProtocol::writeStructBegin(const char* name) {
    return call(std::string("writeStructBegin ") + name);
}

uint32_t RecordingProtocol::writeStructEnd() {
    return call("writeStructEnd");
}

uint32_t RecordingProtocol::writeFieldBegin(const char* name, TType type, int16_t id) {
    return call(std::string("writeFieldBegin ") + name + " " + std::to_string(type) + " " +
                std::to_string(id));
}

uint32_t RecordingProtocol::writeFieldEnd() {
    return call("writeFieldEnd");
}

uint32_t RecordingProtocol::writeFieldStop() {
    return call("writeFieldStop");
}

uint32_t RecordingProtocol::writeBool(bool value) {
    return call(value ? "writeBool true" : "writeBool false");
}

uint32_t RecordingProtocol::writeI32(int32_t value) {
    return call("writeI32 " + std::to_string(value));
}

uint32_t RecordingProtocol::writeString(const std::string& value) {
    return call("writeString " + quoted(value));
}

uint32_t RecordingProtocol::readMessageBegin(std::string& name, TMessageType& type,
                                             int32_t& seqid) {
    if (messages_.empty()) {
        throw std::logic_error("there is no message to read");
    }
    const Message& message = messages_.back();
    const uint32_t bytes = call("readMessageBegin " + quoted(message.name) + " " +
                                std::to_string(message.type) + " " + std::to_string(message.seqid));
    name = message.name;
    type = static_cast<TMessageType>(message.type);
    seqid = message.seqid;
    announced_.assign(1, Value(message.body));
    messages_.pop_back();
    return bytes;
}

uint32_t RecordingProtocol::readMessageEnd() {
    return call("readMessageEnd");
}

uint32_t RecordingProtocol::readStructBegin(std::string& name) {
    const uint32_t bytes = call("readStructBegin");
    name = "AnyName";
    Struct fields = take(protocol::T_STRUCT).fields;
    std::reverse(fields.begin(), fields.end());
    openStructs_.push_back(std::move(fields));
    return bytes;
}

uint32_t RecordingProtocol::readStructEnd() {
    const uint32_t bytes = call("readStructEnd");
    openStructs_.pop_back();
    return bytes;
}

uint32_t RecordingProtocol::readFieldBegin(std::string& name, TType& type, int16_t& id) {
    Struct& fields = openStructs_.back();
    name = "anyName";
    if (fields.empty()) {
        // Like some protocols, leaves the id unchanged.
        type = protocol::T_STOP;
        return call("readFieldBegin stop");
    }
    id = fields.back().id;
    type = fields.back().value.type;
    const uint32_t bytes =
        call("readFieldBegin " + std::to_string(id) + " " + std::to_string(type));
    announced_.assign(1, fields.back().value);
    fields.pop_back();
    return bytes;
}

uint32_t RecordingProtocol::readFieldEnd() {
    return call("readFieldEnd");
}

uint32_t RecordingProtocol::readBool(bool& value) {
    const bool read = take(protocol::T_BOOL).number != 0;
    const uint32_t bytes = call(read ? "readBool true" : "readBool false");
    value = read;
    return bytes;
}

uint32_t RecordingProtocol::readI32(int32_t& value) {
    const int32_t read = take(protocol::T_I32).number;
    const uint32_t bytes = call("readI32 " + std::to_string(read));
    value = read;
    return bytes;
}

uint32_t RecordingProtocol::readString(std::string& value) {
    const std::string read = take(protocol::T_STRING).text;
    const uint32_t bytes = call("readString " + quoted(read));
    value = read;
    return bytes;
}

uint32_t RecordingProtocol::skip(TType type) {
    take(type);
    return call("skip " + std::to_string(type));
}

std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (TApplicationException& failure) {  // its getType() is const from 0.10 on
        return "TApplicationException " + std::to_string(failure.getType()) + " " +
               quoted(failure.what());
    } catch (const TTransportException& failure) {
        return describe("TTransportException", failure);
    } catch (const TProtocolException& failure) {
        return describe("TProtocolException", failure);
    } catch (const std::exception& failure) {
        return describe("std::exception", failure);
    } catch (int number) {
        return "int " + std::to_string(number);
    }
    return "nothing";
}

void expectEveryFailureToPass(const std::function<void(Log&)>& path) {
    Log untouched;
    failureOf([&] { path(untouched); });
    ASSERT_GT(untouched.calls(), 0U);
    for (std::size_t n = 1; n <= untouched.calls(); ++n) {
        Log log;
        log.failAt(n);
        const std::string failure = failureOf([&] { path(log); });
        EXPECT_EQ(failure, log.failure());
        EXPECT_EQ(log.text(), untouched.textUntil(n));
    }
}

std::string checkedSum(const std::function<uint32_t(RecordingProtocol&)>& action,
                       const Struct& body) {
    Log log;
    RecordingProtocol protocol(log);
    protocol.playRecord(body);
    const uint32_t bytes = action(protocol);
    const auto calls = static_cast<uint32_t>(log.calls());
    EXPECT_EQ(bytes, calls * (calls + 1) / 2) << "calls return 1, 2, 3 and so on";
    return log.text();
}

}  // namespace recording
