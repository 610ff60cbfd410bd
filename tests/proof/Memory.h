#ifndef TESTS_PROOF_MEMORY_H
#define TESTS_PROOF_MEMORY_H

#include <cstddef>

#include "Side.h"

// A program that links this has a malloc of its own, which all of its libraries use: operator new
// and libthrift's own calls alike. It counts, and fails when it is asked to. With the sanitizers,
// which have a malloc too, PROOF_WITHOUT_MALLOC leaves this one out, and all figures are 0.
namespace proof::memory {

enum class Failing { once, fromThereOn };

// Numbers this side's allocations from 1 on. The one with this number fails, or it and all after
// it; 0: none.
void failAt(std::size_t number, Failing failing, Side side = Side::any);
// No allocation fails any more. Returns how many there were after failAt(), before the first of
// these calls.
std::size_t stopFailing();
// Whether one has failed since failAt().
bool hasFailed();

// Allocated and not freed.
std::size_t blocks();
std::size_t bytes();

// The most bytes that there were since resetPeak(). For programs with one thread.
std::size_t peak();
void resetPeak();

}  // namespace proof::memory

#endif
