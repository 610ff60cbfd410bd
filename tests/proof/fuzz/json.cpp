// Processors and clients read JSON that tavctl has checked: libthrift's reader ends the process, or
// reads out of bounds, if it gets what the check should have refused.

#include <json.h>

#include <algorithm>
#include <random>
#include <vector>

#include "Messages.h"

extern "C" std::size_t LLVMFuzzerMutate(uint8_t* bytes, std::size_t size, std::size_t most);

// Every second time, only replaces one of the numbers: libFuzzer alone rarely finds those at the
// limits of the types.
extern "C" std::size_t LLVMFuzzerCustomMutator(uint8_t* bytes, std::size_t size, std::size_t most,
                                               unsigned seed) {
    static const char* const kNumbers[] = {
        "-1",          "0",          "2",          "128",        "-129",
        "300",         "32768",      "-32769",     "2147483648", "-2147483649",
        "99999999999", "1e5",        "\"NaN\"",    "\"==\"",     "9223372036854775808",
        "1.5",         "4294967296", "\"\\u0000\""};
    std::minstd_rand dice(seed);
    std::string text(reinterpret_cast<const char*>(bytes), size);
    std::vector<std::size_t> begins;
    const std::string digits = "-.0123456789";
    for (std::size_t at = 1; at < size; ++at) {
        if (digits.find(text[at]) != std::string::npos &&
            digits.find(text[at - 1]) == std::string::npos) {
            begins.push_back(at);
        }
    }
    if (begins.empty() || dice() % 2 == 0) {
        return LLVMFuzzerMutate(bytes, size, most);
    }
    const std::size_t begin = begins[dice() % begins.size()];
    const std::size_t end = std::min(text.find_first_not_of(digits, begin), size);
    text.replace(begin, end - begin, kNumbers[dice() % std::size(kNumbers)]);
    text.resize(std::min(text.size(), most));
    std::copy(text.begin(), text.end(), bytes);
    return text.size();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    fuzz::Input input(bytes, size);
    const std::size_t choice = input.choose(3 + proof::kOperations.size() - 1);
    const auto protocol = tavctl::jsonProtocolOver(fuzz::bufferWith(input.rest()));
    if (choice < 3) {
        const auto output = std::make_shared<proof::TMemoryBuffer>();
        fuzz::serve(static_cast<proof::Service>(choice), *output, protocol,
                    tavctl::jsonProtocolOver(output));
    } else {
        fuzz::receive(proof::kOperations.at(choice - 3).call, protocol);
    }
    return 0;
}
