#ifndef TESTS_PROOF_RANDOMMESSAGES_H
#define TESTS_PROOF_RANDOMMESSAGES_H

#include <cstdint>
#include <random>
#include <string>

#include "Conversations.h"

namespace proof {

class Random {
public:
    explicit Random(uint64_t seed) : engine_(seed) {}

    // One of 0 to `end` - 1.
    std::size_t below(std::size_t end) { return static_cast<std::size_t>(engine_() % end); }
    bool happens(unsigned percent) { return below(100) < percent; }
    // Often small, sometimes any.
    int32_t number();
    // Any bytes, rarely many.
    std::string text();
    Values values();

private:
    std::mt19937_64 engine_;
};

// A message for the processor or the client of `operation`: fields are missing, repeated, unknown,
// in another order or of another type; the header may be wrong; then bytes may be changed.
std::string randomRequest(Random& random, const Operation& operation, const Encoding& encoding);
std::string randomReply(Random& random, const Operation& operation, const Encoding& encoding);

}  // namespace proof

#endif
