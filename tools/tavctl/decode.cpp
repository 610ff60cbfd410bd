#include <fcntl.h>
#include <thrift/transport/TBufferTransports.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "capture.h"
#include "failure.h"
#include "message.h"
#include "print.h"
#include "verbs.h"

namespace {

constexpr char kSpace[] = " \t\r\n";
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

// The bytes of a file or of standard input ("-"), as they come.
class Input : public apache::thrift::transport::TVirtualTransport<Input> {
public:
    explicit Input(const std::string& path)
        : name_(path == "-" ? "standard input" : "'" + path + "'"),
          descriptor_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (descriptor_ < 0) {
            refuse();
        }
    }

    bool isOpen() const override { return true; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        if (ahead().empty()) {
            readAhead();
        }
        const auto got = static_cast<uint32_t>(ahead().copy(reinterpret_cast<char*>(bytes), count));
        next_ += got;
        return got;
    }

    bool get(char& c) { return read(reinterpret_cast<uint8_t*>(&c), 1) == 1; }

    // What has been read, but not taken.
    std::string_view ahead() const { return std::string_view(buffer_).substr(next_); }

    // Reads more of it. Returns false at the end.
    bool readAhead() {
        char bytes[1 << 16];
        ssize_t count = 0;
        do {
            count = ::read(descriptor_, bytes, sizeof bytes);
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            refuse();
        }
        buffer_.erase(0, next_).append(bytes, static_cast<std::size_t>(count));
        next_ = 0;
        return count > 0;
    }

private:
    [[noreturn]] void refuse() const {
        throw Failure(Exit::Usage, "cannot read " + name_ + ": " + std::strerror(errno),
                      "check that it is a file, there, and yours to read");
    }

    const std::string name_;
    const int descriptor_;
    std::string buffer_;
    std::size_t next_ = 0;
};

// Bytes as hexadecimal digits, with space anywhere between bytes.
class HexBytes : public apache::thrift::transport::TVirtualTransport<HexBytes> {
public:
    explicit HexBytes(std::shared_ptr<Input> input) : input_(std::move(input)) {}

    bool isOpen() const override { return true; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        uint32_t got = 0;
        char c = 0;
        // What there is; it waits only if that is nothing.
        while (got < count && (got == 0 || !input_->ahead().empty()) && input_->get(c)) {
            ++place_;
            if (digits_.empty() && std::string(kSpace).find(c) != std::string::npos) {
                continue;
            }
            digits_ += c;
            if (digits_.size() == 2) {
                bytes[got++] = takeByte();
            }
        }
        if (got == 0 && !digits_.empty()) {
            takeByte();
        }
        return got;
    }

private:
    uint8_t takeByte() {
        try {
            const char byte = fromHex(digits_)[0];
            digits_.clear();
            return static_cast<uint8_t>(byte);
        } catch (const std::invalid_argument&) {
            throw Failure(Exit::Usage,
                          "there is no hexadecimal byte at character " +
                              std::to_string(place_ - digits_.size()),
                          "use --format raw if these are raw bytes");
        }
    }

    std::shared_ptr<Input> input_;
    std::string digits_;
    uint64_t place_ = 0;
};

class Decoding {
public:
    explicit Decoding(Settings settings) : settings_(std::move(settings)) {}

    void stream(std::shared_ptr<TTransport> bytes) { decode(std::move(bytes), "", Json::object()); }

    void capture(Input& input) {
        std::string line;
        readLine(input, line);
        readCaptureHead(line, settings_);
        for (std::size_t number = 2; readLine(input, line); ++number) {
            Json head = readCaptureLine(line, number);
            std::string bytes = head["bytes"];
            head.erase("bytes");
            decode(
                std::make_shared<apache::thrift::transport::TMemoryBuffer>(
                    reinterpret_cast<uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size())),
                tinted(Tint::Dim,
                       "[" + shown(head["connection"]) + "] " + head["from"].get<std::string>()) +
                    "\n",
                head);
        }
    }

    // The status: of the first message that breaks.
    int finish() const {
        if (!broken_.empty()) {
            throw Failure(Exit::Broken, broken_, hint_);
        }
        return 0;
    }

private:
    // The longest is a message, in hex.
    static bool readLine(Input& input, std::string& line) {
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

    void decode(std::shared_ptr<TTransport> bytes, const std::string& headLine, const Json& head) {
        MessageReader reader(std::move(bytes), settings_);
        Json message;
        bool broken = false;
        while (!broken && reader.next(message)) {
            ++count_;
            broken = message.contains("broken");
            if (output.json) {
                Json line = head;
                line.update(message);
                printJson(line);
            } else {
                print(headLine + described(message, headLine.empty() ? "" : "  "));
            }
            if (broken && broken_.empty()) {
                broken_ = "message " + std::to_string(count_) + " breaks at byte " +
                          message["broken"]["offset"].dump() + ": " +
                          message["broken"]["reason"].get<std::string>();
                hint_ = reader.mismatch();
                if (hint_.empty()) {
                    hint_ = "check --protocol and --transport, or how the bytes were taken";
                }
            }
        }
    }

    Settings settings_;
    int count_ = 0;
    std::string broken_;
    std::string hint_;
};

// By the first bytes: messages of no protocol consist of hexadecimal digits alone.
std::string formatOf(Input& input) {
    constexpr std::size_t kEnough = 64;
    const std::string digits = std::string(kHexDigits) + kSpace;
    const std::string_view begin = kCaptureBegin;
    const auto isHex = [&] { return input.ahead().find_first_not_of(digits) == std::string::npos; };
    const auto isCapture = [&] {
        return input.ahead().substr(0, begin.size()) == begin.substr(0, input.ahead().size());
    };
    while (input.ahead().size() < kEnough && (isHex() || isCapture()) && input.readAhead()) {
    }
    if (isCapture() && !input.ahead().empty()) {
        return "capture";
    }
    return isHex() ? "hex" : "raw";
}

int decode(const Settings& settings, const std::string& path, std::string format) {
    const auto input = std::make_shared<Input>(path);
    if (format == "auto") {
        format = formatOf(*input);
    }
    Decoding decoding(settings);
    if (format == "capture") {
        decoding.capture(*input);
    } else if (format == "hex") {
        decoding.stream(std::make_shared<HexBytes>(input));
    } else {
        decoding.stream(input);
    }
    return decoding.finish();
}

}  // namespace

void addDecode(CLI::App& app, Run& run) {
    struct Options {
        Settings settings;
        std::string path = "-";
        std::string format = "auto";
    };
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(app, "decode", "Print the messages in a file or standard input",
                             "tavctl decode capture.json");
    verb->add_option("file", options->path, "What to read; standard input if left out")
        ->option_text("[FILE]");
    verb->add_option("--format", options->format,
                     "raw, hex, or capture as spy writes it; found out if left out")
        ->check(CLI::IsMember({"auto", "raw", "hex", "capture"}))
        ->option_text("NAME");
    addProtocolOptions(verb, options->settings);
    verb->callback([options, &run] {
        run = [options] { return decode(options->settings, options->path, options->format); };
    });
}
