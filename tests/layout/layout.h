#ifndef TAVIDL_TESTS_LAYOUT_LAYOUT_H
#define TAVIDL_TESTS_LAYOUT_LAYOUT_H

#include <cxxabi.h>

#include <cstddef>
#include <cstring>
#include <typeinfo>

// The layout of classes in the C++ ABI of Linux: what a compiled program expects of the
// library.

template <typename Class, typename Member>
std::size_t offsetOf(Member Class::*member) {
    static_assert(sizeof(member) == sizeof(std::size_t), "a pointer to a member is its offset");
    std::size_t offset = 0;
    std::memcpy(&offset, &member, sizeof(offset));
    return offset;
}

inline std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// Whether members of these types follow each other without gaps, starting at `offset`.
// Sets `offset` to the end of the last.
template <typename... Members, typename Class>
bool inARow(std::size_t& offset, Members Class::*... members) {
    bool asExpected = true;
    const auto next = [&](std::size_t found, std::size_t size, std::size_t alignment) {
        offset = aligned(offset, alignment);
        asExpected = asExpected && found == offset;
        offset += size;
    };
    // NOLINTNEXTLINE(bugprone-sizeof-expression): of a pointer that is a member, too
    (next(offsetOf(members), sizeof(Members), alignof(Members)), ...);
    return asExpected;
}

// A pointer to a member function is a slot in the table of virtual functions, or an
// address. On ARM the second word says which, because code may be at odd addresses.
template <typename Function>
bool isVirtual(Function function) {
    std::size_t words[2] = {};
    static_assert(sizeof(words) == sizeof(function), "an address or a slot, and an adjustment");
    std::memcpy(words, &function, sizeof(words));
#if defined(__arm__) || defined(__aarch64__)
    return (words[1] & 1) != 0;
#else
    return (words[0] & 1) != 0;
#endif
}

constexpr std::size_t kNoSlot = static_cast<std::size_t>(-1);

// The slot of an operation; the destructor takes slots 0 and 1.
template <typename Function>
std::size_t slotOf(Function function) {
    if (!isVirtual(function)) {
        return kNoSlot;
    }
    std::size_t slot = 0;
    std::memcpy(&slot, &function, sizeof(slot));
    return slot / sizeof(void*);
}

// How many slots a class has: the next virtual operation would get that one.
template <typename Class>
std::size_t slotsOf() {
    struct Next : Class {
        virtual void next() {}
    };
    return slotOf(&Next::next);
}

template <typename Class>
bool hasNoBase() {
    return typeid(typeid(Class)) == typeid(abi::__class_type_info);
}

// Whether `Base` is the only base, public and virtual.
template <typename Base, typename Class>
bool derivesVirtuallyFrom() {
    const auto* info = dynamic_cast<const abi::__vmi_class_type_info*>(&typeid(Class));
    return info != nullptr && info->__base_count == 1 && info->__base_info[0].__is_virtual_p() &&
           info->__base_info[0].__is_public_p() &&
           *info->__base_info[0].__base_type == typeid(Base);
}

#endif
