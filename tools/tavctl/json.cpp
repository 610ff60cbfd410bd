#include "json.h"

#include <thrift/protocol/TJSONProtocol.h>

#include <algorithm>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

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
const std::vector<std::string> kTypes = {"tf",  "i8",  "i16", "i32", "i64", "dbl",
                                         "str", "rec", "map", "lst", "set"};

// What arrays begin with.
const std::map<std::string, std::vector<std::string>> kHeads = {
    {"message", {"version", "str", "message type", "sequence number", "rec"}},
    {"lst", {"type", "number of elements"}},
    {"set", {"type", "number of elements"}},
    {"map", {"type", "type", "number of elements", "pairs"}}};

// Follows the parser through a message. What libthrift reads is then what the text says.
class Checker : public nlohmann::json_sax<json> {
public:
    explicit Checker(std::istringstream& text) : text_(text) {}

    bool null() override { return value(nullptr); }
    bool boolean(bool) override { return value(nullptr); }
    bool number_integer(number_integer_t number) override { return value(number); }
    bool number_unsigned(number_unsigned_t number) override { return value(number); }
    bool number_float(number_float_t number, const string_t&) override { return value(number); }
    bool string(string_t& text) override { return value(text); }
    bool binary(binary_t&) override { return value(nullptr); }

    bool start_object(std::size_t) override { return start({"rec", "field", "pairs"}); }
    bool start_array(std::size_t) override { return start({"message", "lst", "set", "map"}); }
    bool end_object() override { return end(); }
    bool end_array() override { return end(); }

    bool key(string_t& key) override {
        Level& level = levels_.back();
        if (level.kind == "field") {
            check("type", key);
            level.types = {key};
        } else {
            const std::string type = level.kind == "rec" ? "i16" : level.types.front();
            // Only numbers and text can be keys; "NaN" and its like are numbers.
            const json number = json::parse(key, nullptr, false);
            check(type, type == "str" || number.is_discarded() ? json(key) : number);
        }
        begin_ = position();
        return true;
    }

    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception&) override {
        throw BrokenJson(position == 0 ? 0 : position - 1, "this is not JSON");
    }

private:
    struct Level {
        std::string kind;
        std::vector<std::string> types;  // of its elements
        std::size_t size = 0;            // as it says
        std::size_t index = 0;
    };

    // How far the parser has read.
    std::size_t position() { return static_cast<std::size_t>(text_.tellg()); }

    [[noreturn]] void refuse(const std::string& reason) const {
        const std::string& text = text_.str();
        throw BrokenJson(std::min(text.find_first_not_of(",: \t\r\n", begin_), text.size()),
                         reason);
    }

    // What the next value has to be.
    std::string expected() {
        if (levels_.empty()) {
            return "message";
        }
        Level& level = levels_.back();
        const std::size_t index = level.index++;
        const auto head = kHeads.find(level.kind);
        if (head != kHeads.end() && index < head->second.size()) {
            return head->second[index];
        }
        if (level.kind == "message" || level.kind == "map") {
            refuse("this " + level.kind + " has too many values");
        }
        return level.kind == "rec" ? "field" : level.types.back();
    }

    void check(const std::string& type, const json& value) const {
        const auto integer = kIntegers.find(type);
        if (integer != kIntegers.end()) {
            const auto [min, max] = integer->second;
            if (!value.is_number_integer() ||
                (value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX) ||
                value.get<int64_t>() < min || value.get<int64_t>() > max) {
                refuse("this must be a whole number from " + std::to_string(min) + " to " +
                       std::to_string(max) + ", as " + type);
            }
            return;
        }
        const bool right = type == "type"  ? std::count(kTypes.begin(), kTypes.end(), value) != 0
                           : type == "dbl" ? value.is_number() || value == "NaN" ||
                                                 value == "Infinity" || value == "-Infinity"
                                           : type == "str" && value.is_string();
        if (!right) {
            refuse("this must be a " + type);
        }
    }

    bool value(const json& value) {
        const std::string type = expected();
        check(type, value);
        if (type == "type") {
            levels_.back().types.push_back(value);
        } else if (type == "number of elements") {
            levels_.back().size = value;
        }
        begin_ = position();
        return true;
    }

    bool start(const std::vector<std::string>& kinds) {
        const std::string kind = expected();
        if (std::count(kinds.begin(), kinds.end(), kind) == 0) {
            refuse("this must be a " + kind);
        }
        Level level{kind, {}};
        if (kind == "pairs") {
            level.types = levels_.back().types;
            level.size = levels_.back().size;
        }
        levels_.push_back(level);
        begin_ = position();
        return true;
    }

    bool end() {
        const Level& level = levels_.back();
        const auto head = kHeads.find(level.kind);
        const std::size_t size = (head == kHeads.end() ? 0 : head->second.size()) +
                                 (level.kind == "map"     ? 0
                                  : level.kind == "field" ? 1
                                                          : level.size);
        if (level.kind != "rec" && level.index != size) {
            begin_ = position() - 1;  // the bracket
            refuse("this " + level.kind + " has the wrong number of values");
        }
        levels_.pop_back();
        begin_ = position();
        return true;
    }

    std::istringstream& text_;
    std::size_t begin_ = 0;  // of what comes next, but for separators
    std::vector<Level> levels_;
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
    std::istringstream text(ascii);
    Checker checker(text);
    json::sax_parse(text, &checker);
    checked_ = text_.size();
}

TavIDL::ProtocolPointer jsonProtocolOver(std::shared_ptr<CheckedJson::TTransport> stream) {
    return std::make_shared<Protocol>(std::make_shared<CheckedJson>(std::move(stream)));
}

}  // namespace tavctl
