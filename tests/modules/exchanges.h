#ifndef TESTS_MODULES_EXCHANGES_H
#define TESTS_MODULES_EXCHANGES_H

#include "module.h"

// What each protocol should exchange, as text.
namespace exchanges {

inline std::string text(const Exchange& exchange) {
    std::string text;
    for (const std::string* message : {&exchange.request, &exchange.reply}) {
        for (const char character : *message) {
            const auto byte = static_cast<unsigned char>(character);
            text += "0123456789abcdef"[byte / 16];
            text += "0123456789abcdef"[byte % 16];
        }
        text += ' ';
    }
    return text + std::to_string(exchange.result);
}

constexpr const char* kBinary =
    "8001000100000005436c6f7365000000000800010000000100 "
    "8001000200000005436c6f7365000000000800000000000200 2";
// Adds 1000 to each number that it writes.
constexpr const char* kAdding =
    "8001000100000005436c6f736500000000080001000003e900 "
    "8001000200000005436c6f736500000000080000000007d200 2002";
constexpr const char* kCompact = "82210005436c6f7365150200 82410005436c6f736505000400 2";

}  // namespace exchanges

#endif
