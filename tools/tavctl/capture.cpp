#include "capture.h"

#include <algorithm>

namespace tavctl {

namespace {

Failure notWrittenBySpy(std::size_t number) {
    return {Exit::Broken, "line " + std::to_string(number) +
                              " is not one that tavctl spy writes; decode its hex digits alone"};
}

}  // namespace

Json captureHead(const Settings& settings) {
    return {{"capture", 1}, {"protocol", settings.protocol}, {"transport", settings.transport}};
}

void readCaptureHead(const std::string& line, Settings& settings) try {
    const Json head = parseJson(line, "");
    settings.protocol = head.at("protocol");
    settings.transport = head.at("transport");
    if (head != captureHead(settings) ||
        std::count(kProtocols.begin(), kProtocols.end(), settings.protocol) == 0 ||
        std::count(kTransports.begin(), kTransports.end(), settings.transport) == 0) {
        throw notWrittenBySpy(1);
    }
} catch (const std::exception&) {
    throw notWrittenBySpy(1);
}

Json readCaptureLine(const std::string& text, std::size_t number) try {
    Json line = parseJson(text, "");
    (void)line.at("connection");
    (void)line.at("from").get_ref<const std::string&>();
    line["bytes"] = fromHex(line.at("hex"));
    line.erase("hex");
    return line;
} catch (const std::exception&) {
    throw notWrittenBySpy(number);
}

}  // namespace tavctl
