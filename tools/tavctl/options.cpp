#include "options.h"

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "print.h"

namespace tavctl {

namespace {

// At most `limit` bytes, so that no input fills the memory.
std::string readAll(std::istream& input, std::size_t limit, const std::string& what) {
    std::string text(limit + 1, '\0');
    input.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(input.gcount()));
    if (text.size() > limit) {
        throw Failure(Exit::Usage,
                      what + " is longer than " + std::to_string(limit) + " bytes; give less");
    }
    return text;
}

}  // namespace

std::string takeAddress(std::vector<std::string>& words, bool given) {
    if (given) {
        std::string address = words.front();
        words.erase(words.begin());
        return address;
    }
    const char* address = std::getenv("TAVCTL_ADDRESS");
    if (address == nullptr) {
        throw Failure(Exit::Usage, "an ADDRESS is missing",
                      "give one, or set TAVCTL_ADDRESS in the environment");
    }
    return address;
}

std::string takeAddress(std::vector<std::string>& words) {
    // Operations have no colon, addresses have one. A word without one that is followed by an
    // operation is a mistake in the address.
    const bool isFollowed = words.size() > 1 && words[1].find('=') == std::string::npos;
    const bool given = !words.empty() && (words[0].find(':') != std::string::npos ||
                                          (isFollowed && std::getenv("TAVCTL_ADDRESS") == nullptr));
    std::string address = takeAddress(words, given);
    if (words.empty()) {
        throw Failure(Exit::Usage, "an OPERATION is missing", "see tavctl describe");
    }
    return address;
}

std::string secondsProblem(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    // A value that is not a number is in no range.
    return !text.empty() && *end == '\0' && value >= 0.001 && value <= 86400
               ? ""
               : "'" + text + "' is not a number of seconds from 0.001 to 86400";
}

std::string ListenAddress::get() const {
    return text.empty() ? "127.0.0.1:" + std::to_string(port) : text;
}

std::string Credential::get() const {
    constexpr std::size_t kLimit = 1 << 16;
    std::string text;
    if (file == "-") {
        text = readAll(std::cin, kLimit, "the credential");
    } else if (!file.empty()) {
        std::ifstream input(file, std::ios::binary);
        text = readAll(input, kLimit, "the credential");
        if (!input.is_open() || input.bad()) {
            throw Failure(Exit::Usage,
                          "cannot read the credential from '" + file +
                              "'; check that the file exists and that you may read it");
        }
    } else if (const char* variable = std::getenv("TAV_CREDENTIAL")) {
        text = variable;
    } else {
        throw Failure(Exit::Usage,
                      "this needs a credential; set TAV_CREDENTIAL in the environment, or use "
                      "--credential-file");
    }
    if (!file.empty() && !text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    keepSecret(text);
    return text;
}

void Credential::addTo(const Operation& operation, Json& arguments) const {
    for (const Field& field : operation.arguments) {
        if (!field.secret()) {
            continue;
        }
        Json& value = arguments[field.name];
        if (value.get_ref<const std::string&>().empty()) {
            value = get();
        } else {
            keepSecret(value);
        }
    }
}

std::string readInput() {
    return readAll(std::cin, kMessageLimit, "standard input");
}

}  // namespace tavctl
