// Clients read replies in binary and compact. All ways to call a protocol do the same.

#include "Messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    fuzz::Input input(bytes, size);
    const fuzz::Ways& ways = fuzz::waysOf(input.choose(2));
    // All but the one-way operation, which is the last.
    const auto call = proof::kOperations.at(input.choose(proof::kOperations.size() - 1)).call;
    const std::string replies = input.rest();

    std::string first;
    for (const proof::Encoding& encoding : ways) {
        const std::string log =
            fuzz::receive(call, proof::makeProtocol(encoding, fuzz::bufferWith(replies)));
        fuzz::require(&encoding == ways.data() || log == first,
                      std::string(encoding.name) + ": '" + log + "', not '" + first + "'");
        first = log;
    }
    return 0;
}
