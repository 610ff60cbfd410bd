#include "message.h"

#include <algorithm>

#include "connection.h"
#include "print.h"

namespace tavctl {

std::string describedFields(const Json& fields, const std::string& indent) {
    std::size_t width = 0;
    for (const Json& field : fields) {
        width = std::max(width, field.value("name", "").size());
    }
    std::string lines;
    for (const Json& field : fields) {
        lines += indent + padded(std::to_string(field["id"].get<int>()), 2) + " " +
                 tinted(Tint::Name, padded(field.value("name", ""), width)) + "  ";
        if (!field.contains("value")) {
            lines += field["type"].get<std::string>() + "\n";
            continue;
        }
        lines += tinted(Tint::Dim, padded(field["type"], 6)) + " ";
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
            // A broken message can end before the value.
            if (message["type"] == "exception" && field["id"] == 2 && field["type"] == "i32" &&
                field["value"].is_number()) {
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
        return bytes.size() >= at && bytes.compare(at, std::strlen(prefix), prefix) == 0;
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
