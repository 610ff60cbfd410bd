// Processors and clients read JSON that tavctl has checked: libthrift's reader ends the process, or
// reads out of bounds, if it gets what the check should have refused.

#include <json.h>

#include "Messages.h"

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
