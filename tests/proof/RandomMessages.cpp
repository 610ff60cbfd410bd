#include "RandomMessages.h"

#include <thrift/TApplicationException.h>

#include <algorithm>
#include <utility>

namespace proof {

using namespace apache::thrift::protocol;

namespace {

// What a field of ours holds.
enum class Kind { flag, number, text, info, list };
using Fields = std::vector<std::pair<int16_t, Kind>>;

Fields ofKinds(std::initializer_list<Kind> kinds) {
    Fields fields;
    int16_t id = 1;
    for (const Kind kind : kinds) {
        fields.emplace_back(id++, kind);
    }
    return fields;
}

const Fields& argumentsOf(Call call) {
    static const std::vector<Fields> all = {
        ofKinds({Kind::text, Kind::text, Kind::text}),
        ofKinds({Kind::number, Kind::text, Kind::text, Kind::text, Kind::text, Kind::text}),
        ofKinds({Kind::info}),
        ofKinds({Kind::number, Kind::text, Kind::text, Kind::text}),
        ofKinds({Kind::number}),
        ofKinds({Kind::number, Kind::text, Kind::text, Kind::text, Kind::text, Kind::text}),
        ofKinds({Kind::number, Kind::text, Kind::list}),
        ofKinds({Kind::number, Kind::text, Kind::text}),
    };
    return all[static_cast<std::size_t>(call)];
}

const Fields& resultOf(Call call) {
    static const std::vector<Fields> all = {
        {{0, Kind::info}},   {{0, Kind::text}}, {{0, Kind::flag}}, {{0, Kind::flag}},
        {{0, Kind::number}}, {{0, Kind::text}}, {{0, Kind::text}}, {},
    };
    return all[static_cast<std::size_t>(call)];
}

const Fields& fieldsOfInfo() {
    static const Fields fields = ofKinds({Kind::number, Kind::number, Kind::text});
    return fields;
}

const Fields& fieldsOfList() {
    static const Fields fields =
        ofKinds({Kind::text, Kind::text, Kind::text, Kind::text, Kind::text, Kind::text, Kind::text,
                 Kind::text, Kind::text, Kind::text});
    return fields;
}

const Fields& fieldsOfException() {
    static const Fields fields = ofKinds({Kind::text, Kind::number});
    return fields;
}

// Writes one message by libthrift's own calls.
class Writer {
public:
    Writer(Random& random, TProtocol& output) : random_(random), output_(output) {}

    void message(const Operation& operation, TMessageType usualType, const Fields& usualBody) {
        const bool otherType = random_.happens(8);
        const auto type = otherType ? static_cast<TMessageType>(random_.below(6)) : usualType;
        output_.writeMessageBegin(name(operation), type, random_.number());
        record(type == T_EXCEPTION && usualType == T_REPLY ? fieldsOfException() : usualBody);
        output_.writeMessageEnd();
    }

private:
    std::string name(const Operation& operation) {
        if (random_.happens(85)) {
            return operation.name;
        }
        return random_.happens(60) ? kOperations[random_.below(kOperations.size())].name
                                   : random_.text();
    }

    void record(Fields fields) {
        if (random_.happens(5)) {
            std::reverse(fields.begin(), fields.end());
        }
        output_.writeStructBegin("");
        for (const auto& [id, kind] : fields) {
            if (random_.happens(10)) {
                unknownField(static_cast<int16_t>(random_.number()));
            }
            if (random_.happens(4)) {
                unknownField(id);  // mostly of another type
            }
            if (random_.happens(95)) {
                field(id, kind);
            }
            if (random_.happens(3)) {
                field(id, kind);
            }
        }
        if (random_.happens(5)) {
            unknownField(static_cast<int16_t>(fields.size() + 1));
        }
        output_.writeFieldStop();
        output_.writeStructEnd();
    }

    void field(int16_t id, Kind kind) {
        static const TType types[] = {T_BOOL, T_I32, T_STRING, T_STRUCT, T_STRUCT};
        output_.writeFieldBegin("", types[static_cast<std::size_t>(kind)], id);
        switch (kind) {
            case Kind::flag:
                output_.writeBool(random_.happens(50));
                break;
            case Kind::number:
                output_.writeI32(random_.number());
                break;
            case Kind::text:
                output_.writeString(skippableText());
                break;
            case Kind::info:
                record(fieldsOfInfo());
                break;
            case Kind::list:
                record(fieldsOfList());
        }
        output_.writeFieldEnd();
    }

    void unknownField(int16_t id) {
        if (random_.happens(2)) {
            output_.writeFieldBegin("", T_STRUCT, id);
            nested(static_cast<int>(58 + random_.below(8)));  // libthrift's limit is 64
        } else {
            const TType type = anyType();
            output_.writeFieldBegin("", type, id);
            any(type, 3);
        }
        output_.writeFieldEnd();
    }

    void nested(int levels) {
        output_.writeStructBegin("");
        if (levels > 1) {
            output_.writeFieldBegin("", T_STRUCT, 1);
            nested(levels - 1);
            output_.writeFieldEnd();
        }
        output_.writeFieldStop();
        output_.writeStructEnd();
    }

    // To skip a text that is "==" in JSON, libthrift 0.17 reads memory far away, and crashes.
    std::string skippableText() {
        std::string text = random_.text();
        return text == "==" ? "=" : text;
    }

    TType anyType() {
        static const TType types[] = {T_BOOL,   T_BYTE,   T_I16,  T_I32, T_I64, T_DOUBLE,
                                      T_STRING, T_STRUCT, T_LIST, T_SET, T_MAP};
        return types[random_.below(std::size(types))];
    }

    void any(TType type, int depth) {
        switch (type) {
            case T_BOOL:
                output_.writeBool(random_.happens(50));
                return;
            case T_BYTE:
                output_.writeByte(static_cast<int8_t>(random_.below(10)));
                return;
            case T_I16:
                output_.writeI16(static_cast<int16_t>(random_.number()));
                return;
            case T_I32:
                output_.writeI32(random_.number());
                return;
            case T_I64:
                output_.writeI64(random_.number() * int64_t{1'000'003});
                return;
            case T_DOUBLE:
                output_.writeDouble(random_.number() / 8.0);
                return;
            case T_STRING:
                output_.writeString(skippableText());
                return;
            case T_STRUCT:
                anyRecord(depth);
                return;
            default:
                container(type, depth);
        }
    }

    void anyRecord(int depth) {
        output_.writeStructBegin("");
        for (uint64_t left = depth > 0 ? random_.below(4) : 0; left > 0; --left) {
            const TType type = anyType();
            output_.writeFieldBegin("", type, static_cast<int16_t>(random_.number()));
            any(type, depth - 1);
            output_.writeFieldEnd();
        }
        output_.writeFieldStop();
        output_.writeStructEnd();
    }

    void container(TType type, int depth) {
        const auto size = static_cast<uint32_t>(depth > 0 ? random_.below(4) : 0);
        const TType element = anyType();
        const auto elements = [&] {
            for (uint32_t i = 0; i < size; ++i) {
                any(element, depth - 1);
            }
        };
        if (type == T_LIST) {
            output_.writeListBegin(element, size);
            elements();
            output_.writeListEnd();
        } else if (type == T_SET) {
            output_.writeSetBegin(element, size);
            elements();
            output_.writeSetEnd();
        } else {
            output_.writeMapBegin(T_STRING, element, size);  // JSON wants strings as keys
            for (uint32_t i = 0; i < size; ++i) {
                output_.writeString(skippableText());
                any(element, depth - 1);
            }
            output_.writeMapEnd();
        }
    }

    Random& random_;
    TProtocol& output_;
};

// If libthrift's JSON expects a number and there are no digits, it uses uninitialized memory, and a
// byte above 255 ends the process. So digits are only exchanged with digits, bytes have only one,
// and types (i8, i32) keep theirs. proof_messages flips the bits of JSON, too.
void exchangeDigit(Random& random, std::string& message) {
    static const char* const kDigits = "0123456789";
    const std::size_t at = message.find_first_of(kDigits, random.below(message.size()));
    const std::size_t before = message.find_last_not_of(kDigits, at);
    if (at != std::string::npos && before != std::string::npos && message[before] != 'i') {
        message[at] = kDigits[random.below(10)];
    }
}

void mutate(Random& random, Wire wire, std::string& message) {
    for (uint64_t left = random.below(3) + 1; left > 0 && !message.empty(); --left) {
        const std::size_t at = random.below(message.size());
        if (random.happens(15)) {
            message.resize(at);
        } else if (wire == Wire::json) {
            exchangeDigit(random, message);
        } else if (random.happens(50)) {
            message[at] = static_cast<char>(message[at] ^ (1 << random.below(8)));
        } else if (random.happens(50)) {
            message.erase(at, random.below(4) + 1);
        } else {
            message.insert(at, 1, static_cast<char>(random.below(256)));
        }
    }
}

std::string randomMessage(Random& random, const Operation& operation, const Encoding& encoding,
                          TMessageType type, const Fields& body) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    Writer(random, *makeProtocol(encoding, buffer)).message(operation, type, body);
    std::string message = buffer->getBufferAsString();
    if (random.happens(25)) {
        mutate(random, encoding.wire, message);
    }
    return message;
}

}  // namespace

int32_t Random::number() {
    const uint64_t any = engine_();
    return happens(60) ? static_cast<int32_t>(any % 100) : static_cast<int32_t>(any);
}

std::string Random::text() {
    const std::size_t length = happens(95) ? below(24) : below(happens(95) ? 200 : 5000);
    std::string text(length, ' ');
    const bool printable = happens(70);
    uint64_t bits = 0;
    for (std::size_t i = 0; i < length; ++i) {
        bits = i % 8 == 0 ? engine_() : bits >> 8;
        text[i] = static_cast<char>(printable ? 32 + (bits & 255) % 95 : bits & 255);
    }
    return text;
}

Values Random::values() {
    Values values;
    values.number = number();
    values.secondNumber = number();
    values.flag = happens(50);
    for (std::string& text : values.texts) {
        text = this->text();
    }
    return values;
}

std::string randomRequest(Random& random, const Operation& operation, const Encoding& encoding) {
    return randomMessage(random, operation, encoding,
                         operation.call == Call::callback && random.happens(50) ? T_ONEWAY : T_CALL,
                         argumentsOf(operation.call));
}

std::string randomReply(Random& random, const Operation& operation, const Encoding& encoding) {
    return randomMessage(random, operation, encoding, T_REPLY, resultOf(operation.call));
}

}  // namespace proof
