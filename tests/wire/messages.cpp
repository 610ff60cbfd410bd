#include "messages.h"

#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string bytesOf(const std::string& hex) {
    std::string bytes;
    std::istringstream words(hex);
    for (std::string word; words >> word;) {
        std::size_t used = 0;
        const int value = std::stoi(word, &used, 16);
        if (used != 2 || word.size() != 2) {
            throw std::invalid_argument("not a byte: " + word);
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::map<std::string, std::string> readMessages(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::map<std::string, std::string> messages;
    std::string name;  // of the message that is being read
    for (std::string line; std::getline(file, line);) {
        if (endsWith(line, ", binary:") || endsWith(line, ", compact:") ||
            endsWith(line, ", json:")) {
            name = line.substr(0, line.size() - 1);
            if (!messages.emplace(name, "").second) {
                throw std::runtime_error("twice in " + path + ": " + name);
            }
        } else if (!name.empty() && line.compare(0, 4, "    ") == 0) {
            const std::string content = line.substr(4);
            messages[name] +=
                endsWith(name, ", json") ? content : bytesOf(content.substr(0, content.find("  ")));
        } else if (!line.empty()) {
            name.clear();
        }
    }
    return messages;
}

std::string asText(const std::string& encoding, const std::string& message) {
    if (encoding == "json") {
        return message;
    }
    std::string text;
    for (const char byte : message) {
        const auto value = static_cast<uint8_t>(byte);
        text += text.empty() ? "" : " ";
        text += "0123456789abcdef"[value >> 4];
        text += "0123456789abcdef"[value & 15];
    }
    return text;
}
