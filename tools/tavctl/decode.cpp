#include <fcntl.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TFDTransport.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "capture.h"
#include "conversations.h"
#include "decoder.h"
#include "lookahead.h"
#include "message.h"
#include "pcap.h"
#include "print.h"
#include "sequence.h"
#include "verbs.h"

namespace tavctl {

using apache::thrift::transport::TFDTransport;

namespace {

constexpr std::string_view kSpace = " \t\r\n";

// The bytes of a file or of standard input ("-"), as they come.
std::shared_ptr<TTransport> inputFrom(const std::string& path) {
    const int descriptor = path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    // Reading nothing fails like reading something does.
    if (descriptor < 0 || ::read(descriptor, nullptr, 0) < 0) {
        throw Failure(Exit::Usage,
                      "cannot read " + (path == "-" ? "standard input" : "'" + path + "'") + ": " +
                          std::strerror(errno),
                      "check that the file exists and that you may read it");
    }
    return std::make_shared<TFDTransport>(descriptor, TFDTransport::CLOSE_ON_DESTROY);
}

// Bytes as hexadecimal digits, with space anywhere between bytes.
class HexBytes : public apache::thrift::transport::TVirtualTransport<HexBytes> {
public:
    explicit HexBytes(std::shared_ptr<Lookahead> text) : text_(std::move(text)) {}

    // What there is; it waits only if that is nothing.
    uint32_t read(uint8_t* bytes, uint32_t count) {
        uint32_t got = 0;
        char c = 0;
        while (got < count && (got == 0 || !text_->ahead().empty()) && text_->get(c)) {
            ++place_;
            if (digits_.empty() && kSpace.find(c) != std::string_view::npos) {
                continue;
            }
            digits_ += c;
            if (digits_.size() == 2) {
                bytes[got++] = takeByte();
            }
        }
        if (got == 0 && !digits_.empty()) {
            takeByte();  // half a byte
        }
        return got;
    }

private:
    uint8_t takeByte() try {
        const char byte = fromHex(digits_)[0];
        digits_.clear();
        return static_cast<uint8_t>(byte);
    } catch (const std::invalid_argument&) {
        throw Failure(Exit::Usage,
                      "this is not a hexadecimal byte, at character " +
                          std::to_string(place_ - digits_.size()),
                      "use --format raw if these are raw bytes");
    }

    const std::shared_ptr<Lookahead> text_;
    std::string digits_;
    uint64_t place_ = 0;
};

// A line of a capture. The longest is a message, in hex.
bool readLine(Lookahead& input, std::string& line) {
    constexpr std::size_t kLimit = 2 * kMessageLimit + 1000;
    line.clear();
    char c = 0;
    while (input.get(c) && c != '\n') {
        line += c;
        if (line.size() > kLimit) {
            throw Failure(Exit::Broken, "a line is too long for one that tavctl spy wrote");
        }
    }
    return !line.empty();
}

// Prints messages, and remembers the first that breaks.
class Decoding {
public:
    Decoding(Settings settings, bool sequence)
        : settings_(std::move(settings)), isSequence_(sequence) {}

    // `head` stands before each message.
    void stream(std::shared_ptr<TTransport> bytes, const Json& head = Json::object()) {
        MessageReader reader(std::move(bytes), settings_);
        Json message;
        while (reader.next(message)) {
            take(head, message, reader.mismatch());
            if (message.contains("broken")) {
                return;
            }
        }
    }

    void capture(Lookahead& input) {
        std::string line;
        readLine(input, line);
        readCaptureHead(line, settings_);
        for (std::size_t number = 2; readLine(input, line); ++number) {
            Json head = readCaptureLine(line, number);
            std::string bytes = head["bytes"];
            head.erase("bytes");
            stream(
                std::make_shared<apache::thrift::transport::TMemoryBuffer>(
                    reinterpret_cast<uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size())),
                head);
        }
    }

    void pcap(Lookahead& input) {
        decodePcap(input, settings_,
                   [this](const Json& head, const Json& message, const std::string& mismatch) {
                       take(head, message, mismatch);
                   });
    }

    // The status: of the first message that breaks.
    int finish() const {
        if (!broken_.empty()) {
            throw Failure(Exit::Broken, broken_, hint_);
        }
        return 0;
    }

private:
    void take(const Json& head, const Json& message, const std::string& mismatch) {
        ++count_;
        if (isSequence_) {
            sequence_.add(head, message);
        } else {
            Json line = head;
            line.update(message);
            show(line, headLine(head) + described(message, head.empty() ? "" : "  "));
        }
        if (message.contains("broken")) {
            note(message["broken"], mismatch);
        }
    }

    static std::string headLine(const Json& head) {
        if (head.empty()) {
            return "";
        }
        const std::string from = head["from"];
        std::string line = "[" + shown(head["connection"]) + "] " + from;
        if (head.contains(from)) {
            line += " " + head[from].get<std::string>();
        }
        return tinted(Tint::Dim, line) + "\n";
    }

    void note(const Json& broken, const std::string& mismatch) {
        if (broken_.empty()) {
            broken_ = "message " + std::to_string(count_) + " breaks at byte " +
                      broken["offset"].dump() + ": " + broken["reason"].get<std::string>();
            hint_ = mismatch.empty()
                        ? "check --protocol and --transport, or how the bytes were taken"
                        : mismatch;
        }
    }

    Settings settings_;
    const bool isSequence_;
    Sequence sequence_;
    int count_ = 0;
    std::string broken_;
    std::string hint_;
};

// By the first bytes: messages of no protocol consist of hexadecimal digits alone.
std::string formatOf(Lookahead& input) {
    constexpr std::size_t kEnough = 64;
    const std::string digits = "0123456789abcdefABCDEF" + std::string(kSpace);
    const std::string_view begin = kCaptureBegin;
    const auto isHex = [&] { return input.ahead().find_first_not_of(digits) == std::string::npos; };
    const auto isCapture = [&] {
        return input.ahead().substr(0, begin.size()) == begin.substr(0, input.ahead().size());
    };
    while (input.ahead().size() < kEnough && (isHex() || isCapture()) && input.receive()) {
    }
    if (isPcap(input.ahead())) {
        return "pcap";
    }
    if (isCapture() && !input.ahead().empty()) {
        return "capture";
    }
    return isHex() ? "hex" : "raw";
}

}  // namespace

int decode(const DecodeOptions& options) {
    const auto input = std::make_shared<Lookahead>(inputFrom(options.path));
    const std::string format = options.format == "auto" ? formatOf(*input) : options.format;
    if (options.sequence && format != "pcap" && format != "capture") {
        throw Failure(Exit::Usage, "--sequence takes a capture, of spy or of tcpdump");
    }
    Decoding decoding(options.settings, options.sequence);
    if (format == "capture") {
        decoding.capture(*input);
    } else if (format == "pcap") {
        decoding.pcap(*input);
    } else if (format == "hex") {
        decoding.stream(std::make_shared<HexBytes>(input));
    } else {
        decoding.stream(input);
    }
    return decoding.finish();
}

}  // namespace tavctl
