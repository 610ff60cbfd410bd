#include "capture.h"

#include <algorithm>

#include "failure.h"

namespace {

[[noreturn]] void refuse(std::size_t number) {
    throw Failure(Exit::Broken,
                  "line " + std::to_string(number) +
                      " is none that tavctl spy has written; decode it alone, as hex");
}

bool isText(const Json& line, const char* key) {
    return line.is_object() && line.contains(key) && line[key].is_string();
}

Json parseLine(const std::string& line, std::size_t number) {
    try {
        return parseJson(line, "");
    } catch (const Failure&) {
        refuse(number);
    }
}

}  // namespace

Json captureHead(const Settings& settings) {
    return {{"capture", 1}, {"protocol", settings.protocol}, {"transport", settings.transport}};
}

void readCaptureHead(const std::string& line, Settings& settings) {
    const Json head = parseLine(line, 1);
    if (!isText(head, "protocol") || !isText(head, "transport")) {
        refuse(1);
    }
    settings.protocol = head["protocol"];
    settings.transport = head["transport"];
    const auto known = [](const std::vector<std::string>& names, const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (head != captureHead(settings) || !known(kProtocols, settings.protocol) ||
        !known(kTransports, settings.transport)) {
        refuse(1);
    }
}

Json readCaptureLine(const std::string& text, std::size_t number) {
    Json line = parseLine(text, number);
    if (!isText(line, "hex") || !isText(line, "from") || !line.contains("connection")) {
        refuse(number);
    }
    try {
        line["bytes"] = fromHex(line["hex"]);
    } catch (const std::invalid_argument&) {
        refuse(number);
    }
    line.erase("hex");
    return line;
}
