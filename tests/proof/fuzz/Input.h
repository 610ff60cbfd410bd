#ifndef TESTS_PROOF_FUZZ_INPUT_H
#define TESTS_PROOF_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

// What all targets share. Each is a program that libFuzzer calls with bytes: the first ones choose
// what is done with the rest. An exception that leaves a target ends the program, so libFuzzer
// reports it.
namespace fuzz {

class Input {
public:
    Input(const uint8_t* bytes, std::size_t size)
        : bytes_(reinterpret_cast<const char*>(bytes), size) {}

    // The next byte; 0 at the end.
    uint8_t byte() { return ended() ? 0 : static_cast<uint8_t>(bytes_[next_++]); }
    // A number below `count`, from the next byte.
    std::size_t choose(std::size_t count) { return byte() % count; }
    bool ended() const { return next_ == bytes_.size(); }
    std::string rest() {
        std::string rest = bytes_.substr(next_);
        next_ = bytes_.size();
        return rest;
    }

private:
    const std::string bytes_;
    std::size_t next_ = 0;
};

inline void require(bool holds, const std::string& what) {
    if (!holds) {
        std::cerr << "FAILED: " << what << std::endl;
        std::abort();
    }
}

}  // namespace fuzz

#endif
