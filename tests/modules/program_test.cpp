#include "calls.h"
#include "exchanges.h"

#include <gtest/gtest.h>

TEST(ProgramTest, ExchangesTheSameBytesWithAnyTypeInformation) {
    using exchanges::text;
    EXPECT_EQ(text(calls::exchange<calls::Binary>()), exchanges::kBinary);
    EXPECT_EQ(text(calls::exchange<calls::Adding>()), exchanges::kAdding);
    EXPECT_EQ(text(calls::exchange<calls::Compact>()), exchanges::kCompact);
    EXPECT_EQ(text(calls::exchange<calls::StaticBinary>()), exchanges::kBinary);
    EXPECT_EQ(text(calls::exchange<calls::StaticCompact>()), exchanges::kCompact);
}
