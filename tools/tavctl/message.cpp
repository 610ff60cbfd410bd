#include "message.h"

#include <algorithm>

#include "decoder.h"
#include "print.h"

namespace tavctl {

MessageReader::MessageReader(std::shared_ptr<TTransport> stream, Settings settings)
    : source_(std::make_shared<Source>(std::move(stream))), settings_(std::move(settings)) {
}

bool MessageReader::next(Json& message) {
    source_->beginMessage();
    // Files of JSON have their messages on lines.
    while (settings_.protocol == "json" && source_->stream.more() &&
           std::isspace(static_cast<unsigned char>(source_->stream.ahead()[0])) != 0) {
        uint8_t space = 0;
        source_->read(&space, 1);
        source_->beginMessage();
    }
    if (!source_->stream.more()) {
        return false;
    }
    message = {{"offset", source_->begin}, {"size", 0}};
    Decoder decoder(source_, settings_);
    try {
        decoder.decode(message);
    } catch (const apache::thrift::TException& failure) {
        guess_ = guess(source_->message + std::string(source_->stream.ahead().substr(0, 16)));
        message["broken"] = decoder.broken(failure);
    }
    message["size"] = source_->message.size();
    return true;
}

const std::string& MessageReader::bytes() const {
    return source_->message;
}

std::string MessageReader::mismatch() const {
    const std::string expected = settings_.protocol + " over " + settings_.transport;
    if (guess_.empty() || guess_ == expected) {
        return "";
    }
    return "it looks like " + guess_ +
           (guess_ == "TLS" ? ", which only its two ends can read" : ", not " + expected);
}

std::size_t MessageReader::skipRest() {
    uint8_t bytes[1 << 12];
    return source_->stream.read(bytes, sizeof bytes);
}

// --- For people

namespace {

std::string describedFields(const Json& fields, const std::string& indent) {
    std::size_t width = 0;
    for (const Json& field : fields) {
        width = std::max(width, field.value("name", "").size());
    }
    std::string lines;
    for (const Json& field : fields) {
        lines += indent + padded(std::to_string(field["id"].get<int>()), 2) + " " +
                 tinted(Tint::Name, padded(field.value("name", ""), width)) + "  " +
                 tinted(Tint::Dim, padded(field["type"], 6)) + " ";
        const Json& value = field["value"];
        if (field["type"] == "struct" && value.is_array()) {
            lines += "\n" + describedFields(value, indent + "   ");
        } else {
            lines += (value == kMasked  ? kMasked
                      : value.is_null() ? ""
                                        : shown(value)) +
                     tinted(Tint::Dim, field.value("meaning", "")) + "\n";
        }
    }
    return lines;
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
        Json fields = message["fields"];
        for (Json& field : fields) {
            if (message["type"] == "exception" && field["id"] == 2 && field["value"].is_number()) {
                field["meaning"] = "  " + kindOf(field["value"]);
            }
        }
        lines += describedFields(fields, indent + "  ");
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
    const auto begins = [&](std::size_t at, const char* prefix) {
        return bytes.size() > at && bytes.compare(at, std::strlen(prefix), prefix) == 0;
    };
    static const std::pair<const char*, const char*> kProtocolBegins[] = {
        {"\x80\x01", "binary"}, {"\x82", "compact"}, {"[1", "json"}};
    for (const auto& [begin, protocol] : kProtocolBegins) {
        if (begins(0, begin)) {
            return std::string(protocol) + " over buffered";
        }
        if (bytes[0] == '\0' && begins(4, begin)) {
            return std::string(protocol) + " over framed";
        }
    }
    static const std::pair<const char*, const char*> kOthers[] = {
        {"HTTP/", "HTTP"}, {"\x15\x03", "TLS"}, {"\x16\x03", "TLS"}, {"SSH-", "SSH"}};
    for (const auto& [begin, name] : kOthers) {
        if (begins(0, begin)) {
            return name;
        }
    }
    return "";
}

}  // namespace tavctl
