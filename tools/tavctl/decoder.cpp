#include "decoder.h"

#include <arpa/inet.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "interface.h"
#include "json.h"
#include "message.h"
#include "source.h"
#include "wirenames.h"

namespace tavctl {

using apache::thrift::TException;
using apache::thrift::transport::TTransportException;
namespace protocol = apache::thrift::protocol;

namespace {

// No message of these services has more values, but each costs many times the byte that it may
// have on the wire.
constexpr int kValueLimit = 100000;

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

MessageReader::MessageReader(std::shared_ptr<TTransport> stream, const Settings& settings)
    : source_(std::make_shared<Source>(std::move(stream))),
      wire_(settings.protocol + " over " + settings.transport),
      framed_(settings.framed()),
      protocol_(protocolOver(settings, source_)),
      json_(std::dynamic_pointer_cast<CheckedJson>(protocol_->getTransport())) {
}

bool MessageReader::next(Json& message) {
    source_->beginMessage();
    // Files of JSON have their messages on lines.
    while (json_ != nullptr && source_->stream.more() &&
           std::isspace(static_cast<unsigned char>(source_->stream.ahead()[0])) != 0) {
        uint8_t space = 0;
        source_->read(&space, 1);
        source_->beginMessage();
    }
    if (!source_->stream.more()) {
        return false;
    }
    values_ = 0;
    message = {{"offset", source_->begin}, {"size", 0}};
    try {
        decode(message);
    } catch (const TException& failure) {
        guess_ = guess(source_->message + std::string(source_->stream.ahead().substr(0, 16)));
        message["broken"] = broken(failure);
    }
    message["size"] = source_->message.size();
    return true;
}

const std::string& MessageReader::bytes() const {
    return source_->message;
}

std::string MessageReader::mismatch() const {
    const std::string other =
        guess_ == "TLS" ? ", which only its two ends can read" : ", not " + wire_;
    return guess_.empty() || guess_ == wire_ ? "" : "it looks like " + guess_ + other;
}

std::size_t MessageReader::skipRest() {
    uint8_t bytes[1 << 12];
    return source_->stream.read(bytes, sizeof bytes);
}

void MessageReader::decode(Json& message) {
    if (framed_) {
        readFrameLength();
    }
    item("the header");
    std::string name;
    protocol::TMessageType type{};
    int32_t seqid = 0;
    protocol_->readMessageBegin(name, type, seqid);
    message.update(
        {{"operation", name}, {"type", nameOf(type)}, {"seqid", seqid}, {"fields", Json::array()}});
    const std::vector<Field> exception = {{1, "message", {Kind::String}}, {2, "type", {Kind::I32}}};
    readFields(
        message["fields"],
        type == protocol::T_EXCEPTION ? exception : fieldsOf(name, type == protocol::T_REPLY), 0);
    item("the end of the message");
    protocol_->readMessageEnd();
    if (framed_ && !source_->frameEnded()) {
        item("the end of the frame");
        throw TException("the frame is longer than its message");
    }
}

Json MessageReader::broken(const TException& failure) {
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
void MessageReader::item(const std::string& what) {
    item_ = what;
    begin_ = source_->begin + position();
}

// How much of the message was read by the protocol.
std::size_t MessageReader::position() const {
    return source_->message.size() - (json_ == nullptr ? 0 : json_->ahead());
}

void MessageReader::hide(std::size_t begin, std::size_t end) {
    source_->message.replace(begin, end - begin, end - begin, '*');
}

void MessageReader::readFrameLength() {
    item("the length of a frame");
    uint32_t length = 0;
    source_->readAll(reinterpret_cast<uint8_t*>(&length), sizeof length);
    length = ntohl(length);
    if (length > kMessageLimit) {
        throw TException("a frame of " + std::to_string(length) + " bytes is over the limit");
    }
    source_->beginFrame(length);
}

void MessageReader::readFields(Json& fields, const std::vector<Field>& known, int depth) {
    std::string name;
    item("a struct");
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
    protocol_->readStructEnd();
}

// Overwrites the credential. A string's bytes are the last ones of its item; in JSON they are
// between quotes, and what is not a string may have none.
void MessageReader::readSecret(Json& value, TType type, int depth) {
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

void MessageReader::readValue(Json& value, Json& shape, TType type, const Record* record,
                              int depth) {
    if (++values_ > kValueLimit) {
        throw TException("more values than a message may have");
    }
    const std::string name = nameOf(type);
    item((name[0] == 'i' ? "an " : "a ") + name);
    switch (type) {
        case protocol::T_BOOL:
            return readPlain<bool>(value, &TProtocol::readBool);
        case protocol::T_BYTE:
            return readPlain(value, &TProtocol::readByte);
        case protocol::T_I16:
            return readPlain(value, &TProtocol::readI16);
        case protocol::T_I32:
            return readPlain(value, &TProtocol::readI32);
        case protocol::T_I64:
            return readPlain(value, &TProtocol::readI64);
        case protocol::T_DOUBLE:
            readPlain(value, &TProtocol::readDouble);
            value = withoutLoss(value.get<double>());
            return;
        case protocol::T_STRING:
            return readPlain(value, &TProtocol::readString);
        case protocol::T_STRUCT:
            value = Json::array();
            return readFields(value, record == nullptr ? std::vector<Field>() : record->fields,
                              depth + 1);
        default:
            return readContainer(value, shape, type, depth + 1);
    }
}

template <typename T>
void MessageReader::readPlain(Json& value, uint32_t (TProtocol::*read)(T&)) {
    T plain{};
    (*protocol_.*read)(plain);
    value = std::move(plain);
}

// A map's elements are pairs. `shape` gets the types that the elements have, each of them if these
// are containers too.
void MessageReader::readContainer(Json& value, Json& shape, TType container, int depth) {
    const bool isMap = container == protocol::T_MAP;
    value = Json::array();
    TType keyType{};
    TType type{};
    uint32_t size = 0;
    // All protocols read a set as they read a list.
    isMap ? protocol_->readMapBegin(keyType, type, size) : protocol_->readListBegin(type, size);
    // The protocols limit the number of elements.
    if (depth > kDepthLimit) {
        throw TException("nested too deeply");
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
    isMap ? protocol_->readMapEnd() : protocol_->readListEnd();
}

}  // namespace tavctl
