#include "message.h"

#include <thrift/TApplicationException.h>
#include <thrift/transport/TBufferTransports.h>

#include <algorithm>
#include <cstdint>

#include "interface.h"
#include "print.h"

using apache::thrift::TException;
using apache::thrift::transport::TMemoryBuffer;
using apache::thrift::transport::TTransportException;
using apache::thrift::transport::TVirtualTransport;
namespace protocol = apache::thrift::protocol;

namespace {

// More values than this are no message of these services, but would cost memory: each takes
// many times the byte that it may have on the wire.
constexpr int kValueLimit = 100000;

std::string typeName(protocol::TType type) {
    switch (type) {
        case protocol::T_BOOL:
            return "bool";
        case protocol::T_BYTE:
            return "byte";
        case protocol::T_DOUBLE:
            return "double";
        case protocol::T_I16:
            return "i16";
        case protocol::T_I32:
            return "i32";
        case protocol::T_I64:
            return "i64";
        case protocol::T_STRING:
            return "string";
        case protocol::T_STRUCT:
            return "struct";
        case protocol::T_MAP:
            return "map";
        case protocol::T_SET:
            return "set";
        case protocol::T_LIST:
            return "list";
        default:
            return "";
    }
}

std::string messageTypeName(protocol::TMessageType type) {
    switch (type) {
        case protocol::T_CALL:
            return "call";
        case protocol::T_REPLY:
            return "reply";
        case protocol::T_EXCEPTION:
            return "exception";
        case protocol::T_ONEWAY:
            return "oneway";
    }
    return "type " + std::to_string(static_cast<int>(type));
}

// The fields that a message may have. Two services may have an operation of one name: where their
// fields differ in name, both names are told.
std::vector<Field> fieldsOf(const std::string& name, protocol::TMessageType type) {
    if (type == protocol::T_EXCEPTION) {
        return {{1, "message", {Kind::String}}, {2, "type", {Kind::I32}}};
    }
    std::vector<Field> fields;
    for (const Operation& operation : operations()) {
        if (operation.name != name) {
            continue;
        }
        std::vector<Field> ofOne = operation.arguments;
        if (type == protocol::T_REPLY) {
            ofOne.assign(1, {0, "success", operation.result});
        }
        for (const Field& field : ofOne) {
            const auto known = std::find_if(fields.begin(), fields.end(), [&](const Field& other) {
                return other.id == field.id;
            });
            if (known == fields.end()) {
                fields.push_back(field);
            } else if (known->name != field.name) {
                known->name += "/" + field.name;
            }
        }
    }
    return fields;
}

}  // namespace

// The stream, read ahead in one buffer. Knows the offset of each byte, keeps those of the message
// at work, and bounds them.
class MessageReader::Source : public TVirtualTransport<Source> {
public:
    explicit Source(std::shared_ptr<TTransport> stream) : stream_(std::move(stream)) {}

    std::string message;  // so far
    uint64_t begin = 0;   // of the message

    uint64_t offset() const { return begin + message.size(); }
    bool isOpen() const override { return true; }

    void beginMessage() {
        begin = offset();
        message.clear();
    }

    // Whether there is another byte; it is in next().
    bool more() {
        if (next_ == ahead_.size()) {
            char bytes[1 << 16];
            const uint32_t count = stream_->read(reinterpret_cast<uint8_t*>(bytes), sizeof bytes);
            ahead_.assign(bytes, count);
            next_ = 0;
        }
        return next_ < ahead_.size();
    }
    char next() const { return ahead_[next_]; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        if (!more()) {
            return 0;
        }
        const std::size_t got = std::min<std::size_t>(count, ahead_.size() - next_);
        if (message.size() + got > kMessageLimit) {
            throw TTransportException(
                TTransportException::CORRUPTED_DATA,
                "the message is longer than " + std::to_string(kMessageLimit) + " bytes");
        }
        std::copy_n(&ahead_[next_], got, bytes);
        message.append(ahead_, next_, got);
        next_ += got;
        return static_cast<uint32_t>(got);
    }

    // What was read ahead, up to the few bytes that guess() looks at.
    std::string ahead() const { return ahead_.substr(next_, 16); }

    // Drops what was read ahead.
    std::size_t skipAhead() {
        more();
        const std::size_t size = ahead_.size() - next_;
        next_ = ahead_.size();
        return size;
    }

private:
    std::shared_ptr<TTransport> stream_;
    std::string ahead_;
    std::size_t next_ = 0;
};

// Decodes one message. What it has read stays when it throws.
class MessageReader::Decoder {
public:
    Decoder(std::shared_ptr<Source> source, const Settings& settings)
        : source_(std::move(source)), settings_(settings) {}

    void decode(Json& message) {
        item("the length of a frame");
        if (settings_.framed()) {
            readFrame();
        }
        protocol_ = protocolOver(settings_, settings_.framed()
                                                ? std::static_pointer_cast<TTransport>(frame_)
                                                : std::static_pointer_cast<TTransport>(source_));
        item("the header");
        std::string name;
        protocol::TMessageType type{};
        int32_t seqid = 0;
        protocol_->readMessageBegin(name, type, seqid);
        message["operation"] = name;
        message["type"] = messageTypeName(type);
        message["seqid"] = seqid;
        message["fields"] = Json::array();
        readFields(message["fields"], fieldsOf(name, type), 0);
        item("the end of the message");
        protocol_->readMessageEnd();
        if (frameCut_) {
            item("a frame");
            throw TTransportException(TTransportException::END_OF_FILE);
        }
        if (frame_ != nullptr && frame_->available_read() != 0) {
            item("the end of the frame");
            throw TException("the frame is longer than its message");
        }
    }

    // The offset of the first byte that is wrong or missing, and why.
    Json broken(const TException& failure) const {
        const auto* transport = dynamic_cast<const TTransportException*>(&failure);
        const bool ended =
            transport != nullptr && transport->getType() == TTransportException::END_OF_FILE;
        const std::string within = "in " + item_ + " that begins at byte " + std::to_string(begin_);
        if (ended) {
            return {{"offset", source_->offset()},
                    {"reason", std::string(frame_ == nullptr || frameCut_ ? "the bytes end "
                                                                          : "the frame ends ") +
                                   within}};
        }
        // libthrift may quote what it has read.
        const bool secret = !secrets_.empty() && !secrets_.back().whole;
        return {{"offset", begin_},
                {"reason", (secret ? "no credential" : failure.what()) + (" " + within)}};
    }

    // Overwrites what must not be shown. A string's bytes lie at the end of its item; in JSON
    // between quotes, and what is no string may have none. What comes in a frame after a break may
    // be anything.
    void mask(std::string& bytes) const {
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(offset() - source_->begin),
                  bytes.end(), '*');
        for (const Secret& secret : secrets_) {
            auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(secret.begin - source_->begin);
            auto end = secret.whole ? bytes.begin() +
                                          static_cast<std::ptrdiff_t>(secret.end - source_->begin)
                                    : bytes.end();
            if (settings_.protocol == "json") {
                begin = std::find(begin, end, '"');
                begin += begin == end ? 0 : 1;
                const auto quote = std::find(std::make_reverse_iterator(end),
                                             std::make_reverse_iterator(begin), '"');
                end = secret.whole && quote.base() != begin ? quote.base() - 1 : end;
            } else if (secret.whole) {
                begin = end - secret.size;
            }
            std::fill(begin, end, '*');
        }
    }

private:
    struct Secret {
        uint64_t begin;
        uint64_t end;
        std::ptrdiff_t size;
        bool whole;
    };

    uint64_t offset() const {
        return source_->offset() - (frame_ == nullptr ? 0 : frame_->available_read());
    }

    // Remembers where the item that is read next begins.
    void item(const char* what) {
        item_ = what;
        begin_ = offset();
    }

    void readFrame() {
        uint8_t head[4];
        source_->readAll(head, sizeof head);
        const uint32_t length = static_cast<uint32_t>(head[0]) << 24 |
                                static_cast<uint32_t>(head[1]) << 16 |
                                static_cast<uint32_t>(head[2]) << 8 | head[3];
        if (length > kMessageLimit) {
            throw TException("a frame of " + std::to_string(length) + " bytes is over the limit");
        }
        item("a frame");
        // No room is made before the bytes are there.
        std::string& bytes = frameBytes_;
        uint8_t part[4096];
        while (bytes.size() < length) {
            const uint32_t count = source_->read(
                part,
                std::min<uint32_t>(sizeof part, length - static_cast<uint32_t>(bytes.size())));
            if (count == 0) {
                frameCut_ = true;  // what there is of it is decoded nevertheless
                break;
            }
            bytes.append(reinterpret_cast<const char*>(part), count);
        }
        frame_ = std::make_shared<TMemoryBuffer>(reinterpret_cast<uint8_t*>(bytes.data()),
                                                 static_cast<uint32_t>(bytes.size()));
    }

    void readFields(Json& fields, const std::vector<Field>& known, int depth) {
        std::string name;
        item("a structure");
        if (depth > kDepthLimit) {
            throw TException("nested too deeply");
        }
        protocol_->readStructBegin(name);
        for (;;) {
            protocol::TType type{};
            int16_t id = 0;
            item("a field");
            protocol_->readFieldBegin(name, type, id);
            if (type == protocol::T_STOP) {
                break;
            }
            if (typeName(type).empty()) {
                throw TException("there is no type " + std::to_string(static_cast<int>(type)));
            }
            const auto field = std::find_if(known.begin(), known.end(),
                                            [&](const Field& other) { return other.id == id; });
            const bool isKnown = field != known.end();
            fields.push_back({{"id", id}});
            Json& place = fields.back();
            if (isKnown) {
                place["name"] = field->name;
            }
            place["type"] = typeName(type);
            Json& value = place["value"];
            if (isKnown && field->secret()) {
                readSecret(value, type, depth);
            } else {
                readValue(value, type, isKnown ? field->type.record : nullptr, depth);
            }
            item("the end of a field");
            protocol_->readFieldEnd();
        }
        item("the end of a structure");
        protocol_->readStructEnd();
    }

    void readSecret(Json& value, protocol::TType type, int depth) {
        value = kMasked;
        secrets_.push_back({offset(), 0, 0, false});
        Json unseen;
        readValue(unseen, type, nullptr, depth);
        Secret& secret = secrets_.back();
        secret.whole = true;
        secret.end = offset();
        secret.size = unseen.is_string()
                          ? static_cast<std::ptrdiff_t>(unseen.get_ref<std::string&>().size())
                          : static_cast<std::ptrdiff_t>(secret.end - secret.begin);
    }

    void readValue(Json& value, protocol::TType type, const Record* record, int depth) {
        if (++values_ > kValueLimit) {
            throw TException("more values than a message may have");
        }
        switch (type) {
            case protocol::T_BOOL:
                return readPlain<bool>(value, "a bool", &protocol::TProtocol::readBool);
            case protocol::T_BYTE:
                return readPlain<int8_t>(value, "a byte", &protocol::TProtocol::readByte);
            case protocol::T_I16:
                return readPlain<int16_t>(value, "an i16", &protocol::TProtocol::readI16);
            case protocol::T_I32:
                return readPlain<int32_t>(value, "an i32", &protocol::TProtocol::readI32);
            case protocol::T_I64:
                return readPlain<int64_t>(value, "an i64", &protocol::TProtocol::readI64);
            case protocol::T_DOUBLE:
                return readPlain<double>(value, "a double", &protocol::TProtocol::readDouble);
            case protocol::T_STRING:
                return readPlain<std::string>(value, "a string", &protocol::TProtocol::readString);
            case protocol::T_STRUCT:
                value = Json::array();
                return readFields(value, record == nullptr ? std::vector<Field>() : record->fields,
                                  depth + 1);
            case protocol::T_MAP:
                return readMap(value, depth + 1);
            case protocol::T_SET:
            case protocol::T_LIST:
                return readList(value, type, depth + 1);
            default:
                throw TException("there is no type " + std::to_string(static_cast<int>(type)));
        }
    }

    template <typename T>
    void readPlain(Json& value, const char* what, uint32_t (protocol::TProtocol::*read)(T&)) {
        item(what);
        T plain{};
        (*protocol_.*read)(plain);
        value = std::move(plain);
    }

    // Of a map, a list or a set. Elements need no bytes in some encodings, but places here.
    void checkSize(uint32_t size, int depth) const {
        if (size > kContainerLimit || depth > kDepthLimit) {
            throw TException("a container of " + std::to_string(size) +
                             " elements is over the limit, or nested too deeply");
        }
    }

    void readList(Json& value, protocol::TType container, int depth) {
        item("the head of a list or set");
        value = Json::array();
        protocol::TType type{};
        uint32_t size = 0;
        const bool isList = container == protocol::T_LIST;
        isList ? protocol_->readListBegin(type, size) : protocol_->readSetBegin(type, size);
        checkSize(size, depth);
        for (uint32_t i = 0; i < size; ++i) {
            value.push_back(nullptr);
            readValue(value.back(), type, nullptr, depth);
        }
        isList ? protocol_->readListEnd() : protocol_->readSetEnd();
    }

    void readMap(Json& value, int depth) {
        item("the head of a map");
        value = Json::array();
        protocol::TType keyType{};
        protocol::TType valueType{};
        uint32_t size = 0;
        protocol_->readMapBegin(keyType, valueType, size);
        checkSize(size, depth);
        for (uint32_t i = 0; i < size; ++i) {
            value.push_back(Json::array({nullptr, nullptr}));
            readValue(value.back()[0], keyType, nullptr, depth);
            readValue(value.back()[1], valueType, nullptr, depth);
        }
        protocol_->readMapEnd();
    }

    std::shared_ptr<Source> source_;
    const Settings& settings_;
    std::string frameBytes_;
    std::shared_ptr<TMemoryBuffer> frame_;
    bool frameCut_ = false;
    std::shared_ptr<protocol::TProtocol> protocol_;
    std::string item_;
    uint64_t begin_ = 0;
    int values_ = 0;
    std::vector<Secret> secrets_;
};

MessageReader::MessageReader(std::shared_ptr<TTransport> source, Settings settings)
    : source_(std::make_shared<Source>(std::move(source))), settings_(std::move(settings)) {
}

MessageReader::~MessageReader() = default;

bool MessageReader::next(Json& message) {
    source_->beginMessage();
    // Files of JSON have their messages on lines.
    while (settings_.protocol == "json" && source_->more() &&
           std::string(" \t\r\n").find(source_->next()) != std::string::npos) {
        uint8_t space = 0;
        source_->read(&space, 1);
        source_->beginMessage();
    }
    if (!source_->more()) {
        return false;
    }
    message = {{"offset", source_->begin}, {"size", 0}};
    Decoder decoder(source_, settings_);
    try {
        decoder.decode(message);
    } catch (const TException& failure) {
        message["broken"] = decoder.broken(failure);
        broken_ = true;
    }
    message["size"] = source_->message.size();
    decoder.mask(source_->message);
    return true;
}

const std::string& MessageReader::bytes() const {
    return source_->message;
}

std::string MessageReader::mismatch() const {
    const std::string expected = settings_.protocol + " over " + settings_.transport;
    const std::string known = broken_ ? guess(source_->message + source_->ahead()) : "";
    if (known.empty() || known == expected) {
        return "";
    }
    return "it looks like " + known +
           (known == "TLS" ? ", which only its two ends can read" : ", not " + expected);
}

std::size_t MessageReader::skipRest() {
    return source_->skipAhead();
}

// --- For people

namespace {

void describeValue(std::string& lines, const std::string& type, const Json& value,
                   const std::string& indent);

void describeFields(std::string& lines, const Json& fields, const std::string& indent) {
    std::size_t width = 0;
    for (const Json& field : fields) {
        width = std::max(width, field.value("name", "").size());
    }
    for (const Json& field : fields) {
        lines += indent + padded(std::to_string(field["id"].get<int>()), 2) + " " +
                 tinted(Tint::Name, padded(field.value("name", ""), width)) + "  " +
                 tinted(Tint::Dim, padded(field["type"], 6)) + " ";
        describeValue(lines, field["type"], field["value"], indent + "   ");
    }
}

void describeValue(std::string& lines, const std::string& type, const Json& value,
                   const std::string& indent) {
    if (type == "struct" && value.is_array()) {
        lines += "\n";
        describeFields(lines, value, indent);
    } else {
        lines += (value == kMasked ? kMasked : value.is_null() ? "" : shown(value)) + "\n";
    }
}

}  // namespace

std::string described(const Json& message, const std::string& indent) {
    std::string lines = indent;
    if (message.contains("operation")) {
        const std::string type = message["type"];
        lines += tinted(type == "exception" ? Tint::Bad : Tint::Value,
                        escaped(message["operation"]) + " " + type) +
                 tinted(Tint::Dim, " seqid " + message["seqid"].dump());
    } else {
        lines += "no message";
    }
    lines +=
        tinted(Tint::Dim, ", " + message["size"].dump() + " bytes at " + message["offset"].dump()) +
        "\n";
    if (message.contains("fields")) {
        describeFields(lines, message["fields"], indent + "  ");
    }
    if (message.contains("broken")) {
        const Json& broken = message["broken"];
        lines += indent + "  " +
                 tinted(Tint::Bad, "breaks at byte " + broken["offset"].dump() + ": " +
                                       escaped(broken["reason"])) +
                 "\n";
    }
    return lines;
}

std::string guess(const std::string& bytes) {
    const auto byte = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0x100;
    };
    const auto protocolAt = [&](std::size_t i) -> std::string {
        if (byte(i) == 0x80 && byte(i + 1) == 0x01) {
            return "binary";
        }
        if (byte(i) == 0x82) {
            return "compact";
        }
        return byte(i) == '[' && byte(i + 1) == '1' ? "json" : "";
    };
    const std::string unframed = protocolAt(0);
    if (!unframed.empty()) {
        return unframed + " over buffered";
    }
    const std::string framed = protocolAt(4);
    if (!framed.empty() && byte(0) == 0) {
        return framed + " over framed";
    }
    if (bytes.compare(0, 5, "HTTP/") == 0) {
        return "HTTP";
    }
    if ((byte(0) == 0x15 || byte(0) == 0x16) && byte(1) == 0x03) {
        return "TLS";
    }
    return bytes.compare(0, 4, "SSH-") == 0 ? "SSH" : "";
}
