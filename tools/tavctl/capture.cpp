#include "capture.h"

#include <algorithm>
#include <cmath>

#include "print.h"

namespace tavctl {

namespace {

Failure notWrittenBySpy(std::size_t number) {
    return {Exit::Broken, "line " + std::to_string(number) +
                              " is not one that tavctl spy writes; decode its hex digits alone"};
}

Json captureHead(const Settings& settings) {
    return {{"capture", 1}, {"protocol", settings.protocol}, {"transport", settings.transport}};
}

}  // namespace

CaptureFile::CaptureFile(const std::string& path, const Settings& settings) : path_(path) {
    if (path == "-") {
        throw Failure(Exit::Usage, "--write takes the name of a file",
                      "--json prints the messages to standard output");
    }
    if (!path.empty()) {
        file_.open(path, std::ios::binary);
        file_ << captureHead(settings).dump() << std::endl;
        if (!file_) {
            throw cannotWrite();
        }
    }
}

void CaptureFile::write(Json line, const std::string& bytes) {
    const std::chrono::duration<double, std::milli> time =
        std::chrono::steady_clock::now() - begin_;
    line["ms"] = std::round(time.count() * 10) / 10;
    line["hex"] = toHex(bytes);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (file_.is_open() && !(file_ << line.dump() << std::endl)) {
        // The processes that are spied on must not be affected.
        printError(cannotWrite());
        complete_ = false;
        file_.close();
    }
}

bool CaptureFile::complete() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return complete_;
}

Failure CaptureFile::cannotWrite() const {
    return {Exit::Broken, "cannot write to '" + path_ + "'",
            "check the path, and that there is room"};
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
