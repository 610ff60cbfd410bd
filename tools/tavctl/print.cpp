#include "print.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <mutex>
#include <string_view>
#include <utility>

#include "stop.h"

namespace tavctl {

Output output;

namespace {

// Never destroyed: a thread that ends last may still print.
std::string& secret = *new std::string;

bool colored(int descriptor) {
    const char* noColor = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(descriptor) != 0 && (noColor == nullptr || *noColor == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string masked(std::string text) {
    if (secret.empty()) {
        return text;
    }
    for (std::size_t at = 0; (at = text.find(secret, at)) != std::string::npos;
         at += std::strlen(kMasked)) {
        text.replace(at, secret.size(), kMasked);
    }
    return text;
}

// Terminals obey these characters: DEL, the control characters beyond ASCII, and those that end a
// line or turn the direction in which it is shown.
bool isObeyed(std::string_view character) {
    constexpr std::pair<std::string_view, std::string_view> kRanges[] = {{"\u007f", "\u009f"},
                                                                         {"\u061c", "\u061c"},
                                                                         {"\u200e", "\u200f"},
                                                                         {"\u2028", "\u202e"},
                                                                         {"\u2066", "\u2069"}};
    return std::any_of(std::begin(kRanges), std::end(kRanges), [&](const auto& range) {
        return range.first <= character && character <= range.second;
    });
}

// One line of JSON without control characters.
std::string dumped(const Json& value) {
    const std::string utf8 = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string line;
    for (std::size_t at = 0, size = 0; at < utf8.size(); at += size) {
        const auto first = static_cast<unsigned char>(utf8[at]);
        size = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        const std::string_view character = std::string_view(utf8).substr(at, size);
        if (isObeyed(character)) {
            const std::string code = Json(character).dump(-1, ' ', true);  // in quotes
            line.append(code, 1, code.size() - 2);
        } else {
            line += character;
        }
    }
    return line;
}

// Ready to be dumped: no secret, and no string that is not UTF-8.
Json presentable(const Json& value) {
    if (value.is_string()) {
        const std::string text = masked(value);
        try {
            (void)Json(text).dump();
        } catch (const Json::type_error&) {
            return {{"hex", toHex(text)}};
        }
        return text;
    }
    if (!value.is_structured()) {
        return value;
    }
    Json copy = value;
    for (auto& part : copy) {
        part = presentable(part);
    }
    return copy;
}

// One write for all of it, so that threads do not mix their lines. Returns 0, or errno.
int writeAll(int descriptor, const std::string& text) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// To the millisecond.
std::string timeIn(tm* (*zone)(const time_t*, tm*), const char* format, const char* end) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    zone(&now.tv_sec, &parts);
    char text[64];
    const std::size_t size = strftime(text, sizeof text, format, &parts);
    (void)snprintf(text + size, sizeof text - size, ".%03ld%s", now.tv_nsec / 1000000, end);
    return text;
}

}  // namespace

void keepSecret(const std::string& credential) {
    secret = credential;
}

std::string tinted(Tint tint, const std::string& text) {
    static const bool colors = colored(STDOUT_FILENO);
    constexpr const char* kCodes[] = {"36", "1", "32", "31", "2"};
    if (!colors) {
        return text;
    }
    return std::string("\033[") + kCodes[static_cast<int>(tint)] + "m" + text + "\033[0m";
}

std::string shown(const Json& value) {
    const Json safe = presentable(value);
    if (value.is_string() && !safe.is_string()) {
        return "hex:" + safe["hex"].get<std::string>();
    }
    return dumped(safe);
}

std::string escaped(const std::string& text) {
    std::string line = dumped(masked(text));
    line = line.substr(1, line.size() - 2);
    for (std::size_t at = 0; (at = line.find("\\\"", at)) != std::string::npos; ++at) {
        line.erase(at, 1);
    }
    return line;
}

std::string padded(const std::string& text, std::size_t width) {
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

std::string described(const Json& result) {
    if (!result.is_object()) {
        return tinted(Tint::Value, shown(result)) + "\n";
    }
    std::size_t width = 0;
    for (const auto& field : result.items()) {
        width = std::max(width, field.key().size());
    }
    std::string lines;
    for (const auto& field : result.items()) {
        lines += tinted(Tint::Name, padded(field.key(), width)) + "  " +
                 tinted(Tint::Value, shown(field.value())) + "\n";
    }
    return lines;
}

void print(const std::string& lines) {
    const int error = writeAll(STDOUT_FILENO, lines);
    if (error == 0 || output.lost.exchange(true)) {
        return;
    }
    if (error != EPIPE) {  // nobody reads it: that is not an error
        printError({Exit::Broken,
                    std::string("cannot write to standard output: ") + std::strerror(error),
                    "write it elsewhere"});
    }
    // A reason to end, but cleanly.
    stop::request();
}

void printJson(const Json& object) {
    print(dumped(presentable(object)) + "\n");
}

void show(const Json& object, const std::string& lines) {
    if (output.json) {
        printJson(object);
    } else {
        print(lines);
    }
}

void showEvent(const Json& event) {
    show({{"event", event}, {"time", utcTime()}},
         tinted(Tint::Dim, localTime()) + "  " +
             tinted(Tint::Good, "event " + shown(event["eventType"])) + "  " +
             shown(event["param1"]) + "  " + shown(event["param2"]) + "\n");
}

std::string localTime() {
    return timeIn(localtime_r, "%T", "");
}

std::string utcTime() {
    return timeIn(gmtime_r, "%FT%T", "Z");
}

void note(const std::string& text) {
    if (!output.quiet) {
        writeAll(STDERR_FILENO, "tavctl: " + escaped(text) + "\n");
    }
}

int printError(const Failure& failure) {
    const int status = static_cast<int>(failure.status);
    constexpr std::size_t kLimit = 4000;  // peers may have much to say
    std::string line = masked(failure.line());
    if (line.size() > kLimit) {
        line = line.substr(0, kLimit) + "...";
    }
    if (output.json) {
        Json error = {{"error", line}, {"status", status}};
        if (!failure.exceptionKind.empty()) {
            error["exception"] = {{"kind", failure.exceptionKind},
                                  {"text", masked(failure.exceptionText).substr(0, kLimit)}};
        }
        line = dumped(error);
    } else {
        line = (colored(STDERR_FILENO) ? "\033[31mtavctl:\033[0m " : "tavctl: ") + escaped(line);
    }
    writeAll(STDERR_FILENO, line + "\n");
    return status;
}

}  // namespace tavctl
