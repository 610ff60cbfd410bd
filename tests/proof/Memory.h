#ifndef TESTS_PROOF_MEMORY_H
#define TESTS_PROOF_MEMORY_H

#include <cstddef>

#include "Side.h"

// A program that links this has its own malloc, which all of its libraries use, through operator
// new and in libthrift's direct calls. It counts allocations, and fails when it is asked to. With
// the sanitizers, which have a malloc, too, PROOF_WITHOUT_MALLOC leaves this one out, and all
// figures are 0.
namespace proof::memory {

enum class Failing { once, fromThereOn };

// Numbers this side's allocations from 1 on. The one with this number fails, alone or with all
// later ones. With 0, none fails.
void failAt(std::size_t number, Failing failing, Side side = Side::any);
// From here on, no allocation fails. Returns how many there were after failAt(), before this was
// first called.
std::size_t stopFailing();
// Whether an allocation has failed since failAt().
bool hasFailed();

// Allocated and not freed.
std::size_t blocks();
std::size_t bytes();

// The most bytes that were allocated at one time since resetPeak(). For programs with one thread.
std::size_t peak();
void resetPeak();

}  // namespace proof::memory

#endif
