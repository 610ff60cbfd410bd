#include <thrift/transport/TBufferTransports.h>

#include <fstream>
#include <iostream>

#include "capture.h"
#include "failure.h"
#include "message.h"
#include "print.h"
#include "verbs.h"

namespace {

constexpr char kSpace[] = " \t\r\n";
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

// Raw bytes.
class Bytes : public apache::thrift::transport::TVirtualTransport<Bytes> {
public:
    explicit Bytes(std::istream& input) : input_(input) {}

    bool isOpen() const override { return true; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        input_.read(reinterpret_cast<char*>(bytes), count);
        return static_cast<uint32_t>(input_.gcount());
    }

private:
    std::istream& input_;
};

// Bytes as hexadecimal digits, with space anywhere between bytes.
class HexBytes : public apache::thrift::transport::TVirtualTransport<HexBytes> {
public:
    explicit HexBytes(std::istream& input) : input_(input) {}

    bool isOpen() const override { return true; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        uint32_t got = 0;
        std::string digits;
        char c = 0;
        while (got < count && input_.get(c)) {
            ++place_;
            if (digits.empty() && std::string(kSpace).find(c) != std::string::npos) {
                continue;
            }
            digits += c;
            if (digits.size() == 2) {
                bytes[got++] = static_cast<uint8_t>(byteFrom(digits));
                digits.clear();
            }
        }
        if (!digits.empty()) {
            byteFrom(digits);
        }
        return got;
    }

private:
    char byteFrom(const std::string& digits) const {
        try {
            return fromHex(digits)[0];
        } catch (const std::invalid_argument&) {
            throw Failure(Exit::Usage,
                          "there is no hexadecimal byte at character " +
                              std::to_string(place_ - digits.size()),
                          "use --format raw if these are raw bytes");
        }
    }

    std::istream& input_;
    uint64_t place_ = 0;
};

class Decoding {
public:
    explicit Decoding(Settings settings) : settings_(std::move(settings)) {}

    void stream(std::shared_ptr<TTransport> bytes) { decode(std::move(bytes), "", Json::object()); }

    void capture(std::istream& input) {
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
    static bool readLine(std::istream& input, std::string& line) {
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
std::string formatOf(std::istream& input) {
    const std::string digits = std::string(kHexDigits) + kSpace;
    std::string begin(64, '\0');
    input.read(begin.data(), static_cast<std::streamsize>(begin.size()));
    begin.resize(static_cast<std::size_t>(input.gcount()));
    input.clear();
    for (auto c = begin.rbegin(); c != begin.rend(); ++c) {
        input.putback(*c);
    }
    if (begin.compare(0, sizeof kCaptureBegin - 1, kCaptureBegin) == 0) {
        return "capture";
    }
    return begin.find_first_not_of(digits) == std::string::npos ? "hex" : "raw";
}

int decode(const Settings& settings, const std::string& path, std::string format) {
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file) {
            throw Failure(Exit::Usage, "cannot read '" + path + "'",
                          "check that the file is there and yours to read");
        }
    }
    std::istream& input = path == "-" ? std::cin : file;
    if (format == "auto") {
        format = formatOf(input);
    }
    Decoding decoding(settings);
    if (format == "capture") {
        decoding.capture(input);
    } else if (format == "hex") {
        decoding.stream(std::make_shared<HexBytes>(input));
    } else {
        decoding.stream(std::make_shared<Bytes>(input));
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
