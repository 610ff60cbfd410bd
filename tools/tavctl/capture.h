#ifndef TAVCTL_CAPTURE_H
#define TAVCTL_CAPTURE_H

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

Json captureHead(const Settings& settings);

// Takes the settings from the first line. Throws a Failure.
void readCaptureHead(const std::string& line, Settings& settings);

// The line as it is, with "bytes" instead of "hex". Throws a Failure.
Json readCaptureLine(const std::string& text, std::size_t number);

}  // namespace tavctl

#endif
