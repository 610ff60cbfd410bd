#include "Memory.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace {

std::atomic<std::size_t> blockCount{0};
std::atomic<std::size_t> byteCount{0};
std::atomic<std::size_t> bytePeak{0};
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> failingNumber{0};
std::atomic<bool> failingOn{false};
std::atomic<bool> counting{false};
std::atomic<bool> failed{false};
std::atomic<proof::Side> countedSide{proof::Side::any};

}  // namespace

#ifndef PROOF_WITHOUT_MALLOC

// The C library's own functions, under the names that it has for programs that replace them.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace {

bool mustFail() {
    if (!counting || !proof::isOn(countedSide)) {
        return false;
    }
    const std::size_t number = ++allocations;
    const std::size_t first = failingNumber;
    const bool fails = first != 0 && (number == first || (failingOn && number > first));
    if (fails) {
        failed = true;
        errno = ENOMEM;
    }
    return fails;
}

void* allocated(void* block) {
    if (block != nullptr) {
        ++blockCount;
        byteCount += malloc_usable_size(block);
        bytePeak = std::max<std::size_t>(bytePeak, byteCount);
    }
    return block;
}

void freed(void* block) {
    if (block != nullptr) {
        --blockCount;
        byteCount -= malloc_usable_size(block);
    }
}

}  // namespace

extern "C" {
// The C library's names of the parameters are reserved.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

void* malloc(std::size_t size) {
    return mustFail() ? nullptr : allocated(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return mustFail() ? nullptr : allocated(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
    if (mustFail()) {
        return nullptr;
    }
    freed(block);
    void* const moved = __libc_realloc(block, size);
    return allocated(moved == nullptr && size != 0 ? block : moved);
}

void free(void* block) {
    freed(block);
    __libc_free(block);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
}  // extern "C"

#endif

namespace proof::memory {

void failAt(std::size_t number, Failing failing, Side side) {
    allocations = 0;
    failed = false;
    countedSide = side;
    failingNumber = number;
    failingOn = failing == Failing::fromThereOn;
    counting = true;
}

std::size_t stopFailing() {
    counting = false;
    failingNumber = 0;
    return allocations;
}

bool hasFailed() {
    return failed;
}

std::size_t blocks() {
    return blockCount;
}

std::size_t bytes() {
    return byteCount;
}

std::size_t peak() {
    return bytePeak;
}

void resetPeak() {
    bytePeak = byteCount.load();
}

}  // namespace proof::memory
