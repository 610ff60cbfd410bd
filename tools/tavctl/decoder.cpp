#include "decoder.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "interface.h"
#include "wirenames.h"

namespace tavctl {

using apache::thrift::TException;
using apache::thrift::transport::TTransportException;
namespace protocol = apache::thrift::protocol;

namespace {

// No message of these services has more values, but each costs many times the byte that it may
// have on the wire.
constexpr int kValueLimit = 100000;

const Field* fieldOf(const std::vector<Field>& fields, int16_t id) {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.id == id; });
    return found == fields.end() ? nullptr : &*found;
}

// The fields that a message may have. Two services may have an operation of one name: a field
// whose names differ has both.
std::vector<Field> fieldsOf(const std::string& name, protocol::TMessageType type) {
    if (type == protocol::T_EXCEPTION) {
        return {{1, "message", {Kind::String}}, {2, "type", {Kind::I32}}};
    }
    std::vector<Field> fields;
    for (const Operation& operation : operations()) {
        if (operation.name != name) {
            continue;
        }
        const std::vector<Field> result = {{0, "success", operation.result}};
        for (const Field& field : type == protocol::T_REPLY ? result : operation.arguments) {
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

// JSON has only finite numbers.
Json withoutLoss(double number) {
    if (std::isfinite(number)) {
        return number;
    }
    uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof number);
    char hex[2 * sizeof bits + 1];
    (void)std::snprintf(hex, sizeof hex, "%016" PRIx64, bits);
    return {{"hex", hex}};
}

}  // namespace

Decoder::Decoder(std::shared_ptr<Source> source, const Settings& settings)
    : source_(std::move(source)),
      settings_(settings),
      protocol_(protocolOver(settings, source_)),
      json_(std::dynamic_pointer_cast<CheckedJson>(protocol_->getTransport())) {
}

void Decoder::decode(Json& message) {
    if (settings_.framed()) {
        readFrameLength();
    }
    item("the header");
    std::string name;
    protocol::TMessageType type{};
    int32_t seqid = 0;
    protocol_->readMessageBegin(name, type, seqid);
    message["operation"] = name;
    message["type"] = nameOf(type);
    message["seqid"] = seqid;
    message["fields"] = Json::array();
    readFields(message["fields"], fieldsOf(name, type), 0);
    item("the end of the message");
    protocol_->readMessageEnd();
    if (source_->framed() && !source_->frameEnded()) {
        item("the end of the frame");
        throw TException("the frame is longer than its message");
    }
}

Json Decoder::broken(const TException& failure) {
    hide(position(), source_->message.size());
    if (const auto* json = dynamic_cast<const BrokenJson*>(&failure)) {
        return {{"offset", begin_ + json->offset}, {"reason", json->what()}};
    }
    const auto* transport = dynamic_cast<const TTransportException*>(&failure);
    const std::string within = "in " + item_ + " that begins at byte " + std::to_string(begin_);
    if (transport != nullptr && transport->getType() == TTransportException::END_OF_FILE) {
        return {
            {"offset", source_->offset()},
            {"reason", (source_->frameEnded() ? "the frame ends " : "the bytes end ") + within}};
    }
    // libthrift may quote what it has read.
    return {{"offset", begin_},
            {"reason", (secret_ ? "not a credential" : failure.what()) + (" " + within)}};
}

// Remembers where the item that is read next begins.
void Decoder::item(std::string what) {
    item_ = std::move(what);
    begin_ = offset();
}

// How much of the message was read by the protocol.
std::size_t Decoder::position() const {
    return source_->message.size() - (json_ == nullptr ? 0 : json_->ahead());
}

void Decoder::hide(std::size_t begin, std::size_t end) {
    const auto bytes = source_->message.begin();
    std::fill(bytes + static_cast<std::ptrdiff_t>(begin), bytes + static_cast<std::ptrdiff_t>(end),
              '*');
}

void Decoder::readFrameLength() {
    item("the length of a frame");
    uint8_t head[4];
    source_->readAll(head, sizeof head);
    uint32_t length = 0;
    for (const uint8_t byte : head) {
        length = length << 8 | byte;
    }
    if (length > kMessageLimit) {
        throw TException("a frame of " + std::to_string(length) + " bytes is over the limit");
    }
    source_->beginFrame(length);
}

void Decoder::readFields(Json& fields, const std::vector<Field>& known, int depth) {
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
        const std::string nameOfType = nameOf(type);
        const Field* field = fieldOf(known, id);
        Json& place = fields.emplace_back(Json{{"id", id}});
        if (field != nullptr) {
            place["name"] = field->name;
        }
        place["type"] = nameOfType;
        Json& value = place["value"];
        Json shape;
        if (field != nullptr && field->secret()) {
            readSecret(value, type, depth);
        } else {
            readValue(value, shape, type, field == nullptr ? nullptr : field->type.record, depth);
        }
        place.update(shape.is_null() ? Json::object() : shape);
        item("the end of a field");
        protocol_->readFieldEnd();
    }
    item("the end of a structure");
    protocol_->readStructEnd();
}

// Overwrites the credential. A string's bytes are the last ones of its item; in JSON they are
// between quotes, and what is not a string may have none.
void Decoder::readSecret(Json& value, TType type, int depth) {
    value = kMasked;
    auto begin = position();
    Json unseen;
    secret_ = true;
    try {
        Json shape;
        readValue(unseen, shape, type, nullptr, depth);
    } catch (...) {
        hide(begin, source_->message.size());
        throw;
    }
    secret_ = false;
    auto end = position();
    if (json_ != nullptr) {
        const std::string text = source_->message.substr(begin, end - begin);
        const auto quote = text.find('"');
        end = quote == std::string::npos ? end : begin + text.rfind('"');
        begin += quote == std::string::npos ? 0 : quote + 1;
    } else if (unseen.is_string()) {
        begin = end - unseen.get_ref<std::string&>().size();
    }
    hide(begin, end);
}

void Decoder::readValue(Json& value, Json& shape, TType type, const Record* record, int depth) {
    if (++values_ > kValueLimit) {
        throw TException("more values than a message may have");
    }
    switch (type) {
        case protocol::T_BOOL:
            item("a bool");
            return readPlain<bool>(value, &TProtocol::readBool);
        case protocol::T_BYTE:
            item("a byte");
            return readPlain<int8_t>(value, &TProtocol::readByte);
        case protocol::T_I16:
            item("an i16");
            return readPlain<int16_t>(value, &TProtocol::readI16);
        case protocol::T_I32:
            item("an i32");
            return readPlain<int32_t>(value, &TProtocol::readI32);
        case protocol::T_I64:
            item("an i64");
            return readPlain<int64_t>(value, &TProtocol::readI64);
        case protocol::T_DOUBLE:
            item("a double");
            readPlain<double>(value, &TProtocol::readDouble);
            value = withoutLoss(value.get<double>());
            return;
        case protocol::T_STRING:
            item("a string");
            return readPlain<std::string>(value, &TProtocol::readString);
        case protocol::T_STRUCT:
            value = Json::array();
            return readFields(value, record == nullptr ? std::vector<Field>() : record->fields,
                              depth + 1);
        default:
            (void)nameOf(type);
            return readContainer(value, shape, type, depth + 1);
    }
}

template <typename T>
void Decoder::readPlain(Json& value, uint32_t (TProtocol::*read)(T&)) {
    T plain{};
    (*protocol_.*read)(plain);
    value = std::move(plain);
}

// A map's elements are pairs. `shape` gets the types that the elements have, each of them if these
// are containers too.
void Decoder::readContainer(Json& value, Json& shape, TType container, int depth) {
    const bool isMap = container == protocol::T_MAP;
    const bool isList = container == protocol::T_LIST;
    item(isMap ? "the head of a map" : "the head of a list or set");
    value = Json::array();
    TType keyType{};
    TType type{};
    uint32_t size = 0;
    isMap    ? protocol_->readMapBegin(keyType, type, size)
    : isList ? protocol_->readListBegin(type, size)
             : protocol_->readSetBegin(type, size);
    // Elements need no bytes in some encodings, but memory here.
    if (size > kContainerLimit || depth > kDepthLimit) {
        throw TException("a container of " + std::to_string(size) +
                         " elements is over the limit, or nested too deeply");
    }
    // An empty one may come without types.
    const auto nameIfAny = [&](TType of) {
        return size == 0 && of == protocol::T_STOP ? Json() : Json(nameOf(of));
    };
    shape["of"] = isMap ? Json::array({nameIfAny(keyType), nameIfAny(type)}) : nameIfAny(type);
    for (uint32_t i = 0; i < size; ++i) {
        Json* element = &value.emplace_back();
        Json keyShape;
        Json elementShape;
        if (isMap) {
            *element = {nullptr, nullptr};
            readValue((*element)[0], keyShape, keyType, nullptr, depth);
            element = &(*element)[1];
        }
        readValue(*element, elementShape, type, nullptr, depth);
        if (keyShape.is_object() || elementShape.is_object()) {
            shape["each"].push_back(isMap ? Json::array({keyShape, elementShape}) : elementShape);
        }
    }
    isMap ? protocol_->readMapEnd() : isList ? protocol_->readListEnd() : protocol_->readSetEnd();
}

}  // namespace tavctl
