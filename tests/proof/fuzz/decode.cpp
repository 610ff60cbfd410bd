// `tavctl decode` as a whole: raw messages, hexadecimal digits and captures, in each protocol and
// transport. What it prints is lines of JSON, of text or of a diagram; none of them can move the
// cursor.

#include <print.h>
#include <sys/mman.h>
#include <unistd.h>
#include <verbs.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "Input.h"

namespace {

// A file in memory.
class File {
public:
    File() : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
        fuzz::require(descriptor_ >= 0, "memfd_create");
    }

    int descriptor() const { return descriptor_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

    void fill(const std::string& bytes) {
        clear();
        fuzz::require(
            ::write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "write");
        ::lseek(descriptor_, 0, SEEK_SET);
    }
    void clear() {
        fuzz::require(::ftruncate(descriptor_, 0) == 0, "ftruncate");
        ::lseek(descriptor_, 0, SEEK_SET);
    }
    std::string text() const {
        std::string text(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_END)), '\0');
        fuzz::require(
            ::pread(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
            "pread");
        return text;
    }

private:
    const int descriptor_;
};

File& standardOutput() {
    static File file;
    static const int moved = ::dup2(file.descriptor(), STDOUT_FILENO);
    fuzz::require(moved == STDOUT_FILENO, "dup2");
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    static File file;
    fuzz::Input input(bytes, size);
    tavctl::DecodeOptions options;
    options.path = file.path();
    options.settings.protocol = tavctl::kProtocols.at(input.choose(tavctl::kProtocols.size()));
    const std::size_t choice = input.choose(8);
    options.settings.transport = tavctl::kTransports.at(choice / 2 % 2);
    options.sequence = choice >= 4;
    tavctl::output.quiet = true;
    tavctl::output.json = choice % 2 == 1 && !options.sequence;

    file.fill(input.rest());
    standardOutput().clear();
    try {
        tavctl::decode(options);
    } catch (const tavctl::Failure& failure) {
        const std::string what = failure.what();
        fuzz::require(failure.status == tavctl::Exit::Broken ||
                          (failure.status == tavctl::Exit::Usage && what.find("cannot read") != 0),
                      what);
    }
    std::istringstream lines(standardOutput().text());
    for (std::string line; std::getline(lines, line);) {
        if (tavctl::output.json) {
            fuzz::require(nlohmann::json::accept(line), "this is not JSON: " + line);
        }
        // The control characters beyond ASCII are c2 80 to c2 9f.
        uint8_t before = 0;
        for (const char each : line) {
            const auto byte = static_cast<uint8_t>(each);
            const bool control =
                byte < ' ' || byte == 0x7f || (before == 0xc2 && byte >= 0x80 && byte < 0xa0);
            fuzz::require(!control, "this moves the cursor: " + line);
            before = byte;
        }
    }
    return 0;
}
