#include "json.h"

#include <thrift/protocol/TJSONProtocol.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "connection.h"

namespace tavctl {

using apache::thrift::transport::TTransportException;
using nlohmann::json;

namespace {

// A structure takes two levels of JSON, for itself and for the type of each field. The message
// around it, and the value of the innermost field, take three.
constexpr int kJsonDepthLimit = 2 * kDepthLimit + 3;

using Range = std::pair<int64_t, int64_t>;

template <typename T>
constexpr Range rangeOf() {
    return {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
}

const std::map<std::string, Range> kIntegers = {{"tf", {0, 1}},
                                                {"i8", rangeOf<int8_t>()},
                                                {"i16", rangeOf<int16_t>()},
                                                {"i32", rangeOf<int32_t>()},
                                                {"i64", rangeOf<int64_t>()},
                                                {"version", {1, 1}},
                                                {"message type", {1, 4}},
                                                {"sequence number", {INT32_MIN, UINT32_MAX}},
                                                {"number of elements", {0, kContainerLimit}}};
const std::set<std::string> kTypes = {"tf",  "i8",  "i16", "i32", "i64", "dbl",
                                      "str", "rec", "map", "lst", "set"};

constexpr char kNotJson[] = "this is not JSON";

// Reads a message as libthrift will, which skips no space. What libthrift reads is then what the
// text says. The brackets of the text match in number, and its quotes.
class Checker {
public:
    explicit Checker(const std::string& text) : text_(text) {}

    void message() {
        take('[', "this must be a message");
        value("version");
        for (const char* part : {"str", "message type", "sequence number", "rec"}) {
            take(',', wrongSize("message"));
            value(part);
        }
        take(']', wrongSize("message"));
    }

private:
    static std::string wrongSize(const std::string& kind) {
        return "this " + kind + " has the wrong number of values";
    }

    void take(char c, const std::string& otherwise) {
        if (text_[at_] != c) {
            throw BrokenJson(at_, otherwise);
        }
        ++at_;
    }

    // The number or the string, with its quotes, that comes next.
    std::string token() const {
        if (text_[at_] != '"') {
            return text_.substr(at_, text_.find_first_of(",:]}", at_) - at_);
        }
        std::size_t end = at_ + 1;
        while (text_[end] != '"') {
            end += text_[end] == '\\' ? 2U : 1U;
        }
        return text_.substr(at_, end + 1 - at_);
    }

    // Takes a number or a string, and returns it without quotes. Keys have them in any case.
    std::string scalar(const std::string& type, bool isKey = false) {
        const std::string written = token();
        const json parsed = json::parse(written, nullptr, false);
        const bool quoted = parsed.is_string();
        std::string text = quoted ? parsed.get<std::string>() : written;
        const auto integer = kIntegers.find(type);
        if (integer != kIntegers.end()) {
            const auto [min, max] = integer->second;
            const char* const end = text.data() + text.size();
            int64_t number = 0;
            const auto [next, error] = std::from_chars(text.data(), end, number);
            if (parsed.is_discarded() || quoted != isKey || next != end || error != std::errc() ||
                number < min || number > max) {
                throw BrokenJson(at_, "this must be a whole number from " + std::to_string(min) +
                                          " to " + std::to_string(max) + ", as " + type);
            }
        } else if (type == "dbl") {
            const bool special = text == "NaN" || text == "Infinity" || text == "-Infinity";
            const bool number = json::parse(text, nullptr, false).is_number() && quoted == isKey;
            check(number || (special && quoted), type);
        } else {
            check(quoted && (type == "str" || (type == "type" && kTypes.count(text) != 0)), type);
        }
        at_ += written.size();
        return text;
    }

    void check(bool right, const std::string& type) const {
        if (!right) {
            throw BrokenJson(at_, "this must be a " + type);
        }
    }

    void value(const std::string& type) {
        if (type == "rec") {
            record();
        } else if (type == "map" || type == "lst" || type == "set") {
            container(type);
        } else {
            scalar(type);
        }
    }

    void record() {
        take('{', "this must be a rec");
        for (bool first = true; text_[at_] != '}'; first = false) {
            if (!first) {
                take(',', kNotJson);
            }
            scalar("i16", true);
            take(':', kNotJson);
            take('{', "this must be a field");
            const std::string type = scalar("type");
            take(':', kNotJson);
            value(type);
            take('}', wrongSize("field"));
        }
        ++at_;
    }

    void container(const std::string& kind) {
        const bool isMap = kind == "map";
        take('[', "this must be a " + kind);
        const std::string keyType = scalar("type");
        take(',', wrongSize(kind));
        std::string type = keyType;
        if (isMap) {
            type = scalar("type");
            take(',', wrongSize(kind));
        }
        const int size = std::stoi(scalar("number of elements"));
        if (isMap) {
            take(',', wrongSize(kind));
            take('{', "this must be pairs");
        }
        for (int i = 0; i < size; ++i) {
            if (i > 0 || !isMap) {
                take(',', wrongSize(kind));
            }
            if (isMap) {
                scalar(keyType, true);
                take(':', kNotJson);
            }
            value(type);
        }
        if (isMap) {
            take('}', wrongSize(kind));
        }
        take(']', wrongSize(kind));
    }

    const std::string& text_;
    std::size_t at_ = 0;
};

class Protocol : public apache::thrift::protocol::TJSONProtocol {
public:
    using TJSONProtocol::TJSONProtocol;

    // What is skipped libthrift decodes as base64, and reads out of bounds if it is padding alone.
    uint32_t readBinary_virt(std::string& text) override { return readString(text); }
    uint32_t skip_virt(apache::thrift::protocol::TType type) override {
        return apache::thrift::protocol::skip(static_cast<TProtocol&>(*this), type);
    }
};

}  // namespace

uint32_t CheckedJson::read(uint8_t* bytes, uint32_t count) {
    if (next_ == checked_) {
        receive();
    }
    const std::size_t got = text_.copy(reinterpret_cast<char*>(bytes), count, next_);
    next_ += got;
    return static_cast<uint32_t>(got);
}

void CheckedJson::receive() {
    text_.clear();
    checked_ = next_ = 0;
    int depth = 0;
    bool quoted = false;
    bool escaped = false;
    do {
        uint8_t byte = 0;
        if (stream_->read(&byte, 1) == 0) {
            throw TTransportException(TTransportException::END_OF_FILE);
        }
        text_ += static_cast<char>(byte);
        if (quoted) {
            quoted = escaped || byte != '"';
            escaped = !escaped && byte == '\\';
        } else {
            quoted = byte == '"';
            depth += byte == '[' || byte == '{' ? 1 : byte == ']' || byte == '}' ? -1 : 0;
        }
        if (depth > kJsonDepthLimit) {
            throw BrokenJson(text_.size() - 1, "nested too deeply");
        }
    } while (depth > 0);

    // Text of old peers may not be UTF-8. The parser would refuse it, libthrift does not.
    std::string ascii = text_;
    std::replace_if(
        ascii.begin(), ascii.end(), [](char c) { return (c & 0x80) != 0; }, 'x');
    Checker(ascii).message();
    checked_ = text_.size();
}

TavIDL::ProtocolPointer jsonProtocolOver(std::shared_ptr<CheckedJson::TTransport> stream) {
    return std::make_shared<Protocol>(std::make_shared<CheckedJson>(std::move(stream)));
}

}  // namespace tavctl
