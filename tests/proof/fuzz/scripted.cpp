// Processors and clients read from a protocol that has no parser: each call returns what the bytes
// say, whether it makes sense or not. It checks that each call is allowed after the one before.

#include <thrift/protocol/TVirtualProtocol.h>

#include <vector>

#include "Messages.h"

namespace {

using namespace apache::thrift::protocol;
using fuzz::require;

const char* const kNames[] = {
    "OpenEmp", "Execute", "CloseEmp", "Open", "Close", "ExecuteWithParamList", "", "Callback"};

class Scripted : public TVirtualProtocol<Scripted> {
public:
    explicit Scripted(fuzz::Input& script)
        : TVirtualProtocol<Scripted>(std::make_shared<proof::TMemoryBuffer>()), script_(script) {}

    uint32_t readMessageBegin(std::string& name, TMessageType& type, int32_t& seqid) {
        step();
        require(open_.empty(), "a message begins in another");
        open_.push_back(Open::message);
        name = kNames[script_.choose(std::size(kNames))];
        type = static_cast<TMessageType>(script_.choose(6));
        seqid = script_.byte();
        return 1;
    }
    uint32_t readMessageEnd() {
        close(Open::message);
        return 1;
    }
    uint32_t readStructBegin(std::string&) {
        step();
        takeValue(T_STRUCT);
        open_.push_back(Open::record);
        return 1;
    }
    uint32_t readStructEnd() {
        close(Open::stopped);
        return 1;
    }
    uint32_t readFieldBegin(std::string&, TType& type, int16_t& id) {
        step();
        require(!open_.empty() && open_.back() == Open::record, "a field begins out of a record");
        // Types that the records have are more likely than others.
        constexpr TType kTypes[] = {
            T_STOP,   T_BOOL, T_I32,  T_STRING, T_STRUCT, T_I32,    T_STOP, T_STRING,
            T_STRING, T_MAP,  T_LIST, T_VOID,   T_BYTE,   T_DOUBLE, T_SET,  static_cast<TType>(99)};
        type = kTypes[script_.choose(std::size(kTypes))];
        id = static_cast<int16_t>(static_cast<int>(script_.choose(16)) - 2);
        if (type == T_STOP) {
            open_.back() = Open::stopped;
        } else {
            open_.push_back(Open::field);
            type_ = type;
        }
        return 1;
    }
    uint32_t readFieldEnd() {
        close(Open::readField);
        return 1;
    }
    uint32_t readBool(bool& value) {
        step();
        takeValue(T_BOOL);
        value = script_.choose(2) == 1;
        return 1;
    }
    using TVirtualProtocol<Scripted>::readBool;
    uint32_t readI32(int32_t& value) {
        step();
        takeValue(T_I32);
        value = script_.byte();
        return 1;
    }
    uint32_t readString(std::string& value) {
        step();
        takeValue(T_STRING);
        value.assign(script_.choose(32), 'x');
        return 1;
    }
    uint32_t skip(TType type) {
        step();
        takeValue(type);
        return 1;
    }

private:
    enum class Open { message, readMessage, record, stopped, field, readField };

    // Each call may fail, and does at the end of the script.
    void step() const {
        if (script_.ended()) {
            throw TProtocolException(TProtocolException::INVALID_DATA);
        }
    }

    // A value is the one of the field that was begun, or the record of the message.
    void takeValue(TType type) {
        require(!open_.empty(), "a value is read out of a message");
        if (open_.back() == Open::message) {
            require(type == T_STRUCT, "a message's record is read as something else");
            open_.back() = Open::readMessage;
        } else {
            require(open_.back() == Open::field, "a value is read out of a field");
            require(type == type_, "a field is read as another type");
            open_.back() = Open::readField;
        }
    }

    void close(Open what) {
        step();
        const bool isMessage = what == Open::message;
        require(!open_.empty() && open_.back() == (isMessage ? Open::readMessage : what),
                "something is ended that was not read");
        open_.pop_back();
    }

    fuzz::Input& script_;
    std::vector<Open> open_;
    TType type_ = T_STOP;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    fuzz::Input script(bytes, size);
    const std::size_t choice = script.choose(3 + proof::kOperations.size() - 1);
    const auto protocol = std::make_shared<Scripted>(script);
    if (choice < 3) {
        const auto output = std::make_shared<proof::TMemoryBuffer>();
        fuzz::serve(static_cast<proof::Service>(choice), *output, protocol,
                    proof::makeProtocol(proof::kEncodings[0], output));
    } else {
        fuzz::receive(proof::kOperations.at(choice - 3).call, protocol);
    }
    return 0;
}
