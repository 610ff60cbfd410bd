// One side of a peer's calls:
//
//   bench_peer_NAME serve ADDRESS    prints the address and serves until it is killed
//   bench_peer_NAME call ADDRESS     prints a line; then reads numbers, makes that many calls, and
//                                    prints another line
#include "peer.h"

#include <exception>
#include <iostream>
#include <stdexcept>

namespace peers {

std::string_view execute(std::int32_t caller, const Strings& strings) {
    if (caller != kArguments.caller || strings != kArguments.strings) {
        throw std::invalid_argument("the server got other arguments than the client passed");
    }
    return kAnswer;
}

void announce(const std::string& address, unsigned port) {
    constexpr std::string_view anyPort = ":0";
    std::string reached = address;
    if (reached.size() > anyPort.size() &&
        reached.compare(reached.size() - anyPort.size(), anyPort.size(), anyPort) == 0) {
        reached.replace(reached.size() - 1, 1, std::to_string(port));
    }
    std::cout << reached << std::endl;
}

static void call(const std::string& address) {
    const Call execute = connect(address);
    std::cout << "ready" << std::endl;
    for (long calls = 0; std::cin >> calls;) {
        for (long i = 0; i < calls; ++i) {
            if (execute(kArguments) != kAnswer) {
                throw std::runtime_error("the client got another answer than the server gave");
            }
        }
        std::cout << "done" << std::endl;
    }
}

}  // namespace peers

int main(int argc, char** argv) {
    const std::string verb = argc == 3 ? argv[1] : "";
    try {
        if (verb == "serve") {
            peers::serve(argv[2]);
        } else if (verb == "call") {
            peers::call(argv[2]);
        } else {
            std::cerr << "usage: " << argv[0] << " serve|call ADDRESS\n";
            return 2;
        }
    } catch (const std::exception& failure) {
        std::cerr << argv[0] << ' ' << verb << ": " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
