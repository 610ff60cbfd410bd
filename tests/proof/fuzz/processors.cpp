// Processors read requests in binary and compact. All ways to call a protocol do the same.

#include "Messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    fuzz::Input input(bytes, size);
    const fuzz::Ways& ways = fuzz::waysOf(input.choose(2));
    const auto service = static_cast<proof::Service>(input.choose(3));
    const std::string requests = input.rest();

    std::string first;
    for (const proof::Encoding& encoding : ways) {
        const auto output = std::make_shared<proof::TMemoryBuffer>();
        const std::string log =
            fuzz::serve(service, *output, proof::makeProtocol(encoding, fuzz::bufferWith(requests)),
                        proof::makeProtocol(encoding, output));
        fuzz::require(&encoding == ways.data() || log == first,
                      std::string(encoding.name) + ": '" + log + "', not '" + first + "'");
        first = log;
    }
    return 0;
}
