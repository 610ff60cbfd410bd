// Times of whole calls over memory and of round trips over loopback, by Google Benchmark. A
// benchmark's name is what it measures, then the cell: contestant, operation and so on.

#include "loopback.h"
#include "memory.h"

#include <benchmark/benchmark.h>

#include <exception>
#include <iostream>

namespace {

using namespace bench;

constexpr std::size_t kLengths[] = {8, 100};
constexpr std::size_t kPlottedLengths[] = {0,    1,    4,     16,    64,     256,
                                           1024, 4096, 16384, 65536, 262144, 1048576};

void addCall(const std::string& what, const Contestant& contestant, Operation operation,
             Encoding encoding, std::size_t length) {
    const std::string name = what + nameOf(contestant, operation, encoding, length);
    benchmark::RegisterBenchmark(name.c_str(), [=, &contestant](benchmark::State& state) {
        MemoryExchange exchange(contestant, operation, encoding, length);
        exchange.call();  // buffers grow
        for ([[maybe_unused]] auto _ : state) {
            exchange.call();
        }
    });
}

void addRoundTrips(const char* contestant, Framing framing, const Connect& connect) {
    const std::string name = std::string("loopback ") + contestant + ' ' + nameOf(framing);
    const auto measure = [connect](benchmark::State& state) {
        try {
            const RoundTrip roundTrip = connect();
            for ([[maybe_unused]] auto _ : state) {
                roundTrip();
            }
        } catch (const std::exception& failure) {
            state.SkipWithError(failure.what());
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), measure)
        ->ThreadRange(1, 64)
        ->UseRealTime()
        ->MeasureProcessCPUTime();  // the client's and the server's
}

}  // namespace

int main(int count, char** arguments) try {
    for (const Operation operation : kOperations) {
        for (const Encoding encoding : kEncodings) {
            for (const std::size_t length : kLengths) {
                checkSameBytes(operation, encoding, length);
                for (const Contestant* contestant : kContestants) {
                    addCall("call ", *contestant, operation, encoding, length);
                }
            }
        }
    }
    for (const std::size_t length : kPlottedLengths) {
        checkSameBytes(Operation::brokerExecute, Encoding::binary, length);
        for (const Contestant* contestant : kContestants) {
            addCall("length ", *contestant, Operation::brokerExecute, Encoding::binary, length);
        }
    }
    for (const Framing framing : kFramings) {
        addRoundTrips("bare", framing, serveBareSockets(framing));
        for (const Contestant* contestant : kContestants) {
            addRoundTrips(contestant->name, framing, serve(*contestant, framing));
        }
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::ClearRegisteredBenchmarks();  // they own the servers
} catch (const std::exception& failure) {
    std::cerr << "bench_times: " << failure.what() << '\n';
    return 1;
}
