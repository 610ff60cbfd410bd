// The protocols that the library calls directly, in a program that shares their type information.
#include "calls.h"

#include <gtest/gtest.h>

struct Names {
    template <typename Protocol>
    static const char* GetName(int index) {
        constexpr const char* names[] = {"Binary", "Compact", "StaticBinary", "StaticCompact"};
        return names[index];
    }
};

template <typename Protocol>
class LibthriftsProtocolTest : public testing::Test {};
using Protocols =
    testing::Types<calls::Binary, calls::Compact, calls::StaticBinary, calls::StaticCompact>;
TYPED_TEST_SUITE(LibthriftsProtocolTest, Protocols, Names);

TYPED_TEST(LibthriftsProtocolTest, WritesARecordWithoutAVirtualCall) {
    EXPECT_EQ(calls::virtualCallsOfARecord<TypeParam>(), 0);
}

TYPED_TEST(LibthriftsProtocolTest, WritesAMessageWithVirtualCallsOnlyAtItsBeginningAndEnd) {
    EXPECT_LE(calls::virtualCallsOfAMessage<TypeParam>(), 2);
}

// Shows that virtual calls are counted: the record's begin and end; begin, value and end of three
// fields; and the stop.
TEST(DerivedProtocolTest, WritesARecordOnlyByVirtualCalls) {
    EXPECT_EQ(calls::virtualCallsOfARecord<calls::Adding>(), 2 + 3 * 3 + 1);
}
