// Counts the instructions of whole calls (under callgrind; this marks where a call begins
// and ends) and their allocations. One line per cell.

#include "memory.h"

#include <valgrind/callgrind.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>

namespace {
unsigned long allocations = 0;
}

// All code in the process allocates with these, including libthrift and the library.
void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

int main(int count, char** arguments) try {
    constexpr int kWarmUp = 3;  // buffers grow, names are bound
    for (int i = 1; i < count; ++i) {
        const std::size_t length = std::strtoul(arguments[i], nullptr, 10);
        for (const bench::Operation operation : bench::kOperations) {
            for (const bench::Encoding encoding : bench::kEncodings) {
                bench::checkSameBytes(operation, encoding, length);
                for (const bench::Contestant* contestant : bench::kContestants) {
                    bench::MemoryExchange exchange(*contestant, operation, encoding, length);
                    for (int n = 0; n < kWarmUp; ++n) {
                        exchange.call();
                    }
                    const std::string call = nameOf(*contestant, operation, encoding, length);
                    allocations = 0;
                    CALLGRIND_ZERO_STATS;
                    exchange.call();
                    CALLGRIND_DUMP_STATS_AT(call.c_str());
                    std::cout << call << ' ' << allocations << '\n';
                }
            }
        }
    }
} catch (const std::exception& failure) {
    std::cerr << "bench_counts: " << failure.what() << '\n';
    return 1;
}
