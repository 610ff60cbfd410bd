#include "sequence.h"

#include "print.h"

namespace tavctl {

namespace {

// At most 200 bytes of the text, and no part of a character: more would hide the other labels.
std::string cutOff(const std::string& text) {
    std::size_t end = 200;
    if (text.size() <= end) {
        return text;
    }
    while (end > 0 && (text[end] & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end) + "...";
}

// Mermaid would take some characters for its own syntax, or for HTML.
std::string label(const std::string& text) {
    std::string safe;
    for (const char c : cutOff(text)) {
        const bool special = std::string("#;<>\"&%`{}").find(c) != std::string::npos;
        safe += special ? "#" + std::to_string(static_cast<int>(c)) + ";" : std::string(1, c);
    }
    return safe;
}

std::string valuesOf(const Json& fields) {
    std::string all;
    for (const Json& field : fields) {
        const std::string name = field.value("name", "field " + field["id"].dump());
        const Json& value = field["value"];
        all += (all.empty() ? "" : ", ") + (name == "success" ? "" : name + "=") +
               (field["type"] == "struct" && value.is_array() ? "(" + valuesOf(value) + ")"
                : value == kMasked                            ? kMasked
                                                              : shown(value));
    }
    return all;
}

}  // namespace

std::string Sequence::participant(const std::string& name) {
    if (participants_.empty()) {
        print("sequenceDiagram\n");
    }
    std::string& id = participants_[name];
    if (id.empty()) {
        id = "p" + std::to_string(participants_.size());
        print("    participant " + id + " as " + label(escaped(name)) + "\n");
    }
    return id;
}

void Sequence::add(const Json& head, const Json& message) {
    const std::string connection = "client " + shown(head["connection"]);
    const std::string client = participant(head.value("client", connection));
    const std::string target = participant(head.value("target", "target"));
    const bool fromClient = head["from"] == "client";
    const std::string ends = fromClient ? client + "%" + target : target + "%" + client;
    const auto line = [&](const std::string& arrow, const std::string& text) {
        print("    " + std::string(ends).replace(ends.find('%'), 1, arrow) + ": " + label(text) +
              "\n");
    };
    if (message.contains("operation")) {
        const std::string type = message["type"];
        const std::string name = escaped(message["operation"]);
        const std::string values = valuesOf(message["fields"]);
        if (type == "reply") {
            line("-->>", name + ": " + values);
        } else if (type == "exception") {
            line("--x", name + ": " + values);
        } else {
            line("->>", name + "(" + values + ")");
        }
    }
    if (message.contains("broken")) {
        print("    Note over " + std::string(ends).replace(ends.find('%'), 1, ",") + ": " +
              label("breaks at byte " + shown(message["broken"]["offset"]) + ": " +
                    escaped(message["broken"]["reason"])) +
              "\n");
    }
}

}  // namespace tavctl
