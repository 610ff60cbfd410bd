#ifndef TAVCTL_CAPTURE_H
#define TAVCTL_CAPTURE_H

#include <chrono>
#include <fstream>
#include <mutex>
#include <string>

#include "connection.h"
#include "values.h"

// What spy writes and decode reads: lines of JSON. The first says how to read the others,
//
//     {"capture": 1, "protocol": "binary", "transport": "buffered"}
//
// each other one holds the bytes of one message, with credentials overwritten, as far as it could
// be decoded:
//
//     {"connection": 1, "from": "client", "ms": 12.5, "hex": "80010001..."}

namespace tavctl {

constexpr char kCaptureBegin[] = "{\"capture\":";

// The file that spy writes.
class CaptureFile {
public:
    // Throws a Failure. Nothing is written if `path` is empty.
    CaptureFile(const std::string& path, const Settings& settings);

    // A message; `line` has the members before "ms". Any thread may call it.
    void write(Json line, const std::string& bytes);

    // Whether everything was written.
    bool complete();

private:
    Failure cannotWrite() const;

    const std::string path_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::mutex mutex_;  // of what follows
    std::ofstream file_;
    bool complete_ = true;
};

// Takes the settings from the first line. Throws a Failure.
void readCaptureHead(const std::string& line, Settings& settings);

// The line as it is, with "bytes" instead of "hex". Throws a Failure.
Json readCaptureLine(const std::string& text, std::size_t number);

}  // namespace tavctl

#endif
