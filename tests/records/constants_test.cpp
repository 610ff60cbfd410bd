#include <TavIDL/records/TAV_IDLConstants.h>
#include <gtest/gtest.h>

#include <type_traits>

TEST(TAV_IDLConstantsTest, IsEmpty) {
    EXPECT_TRUE(std::is_empty<TAV_IDLConstants>::value);
}

TEST(TAV_IDLConstantsTest, HasAGlobalInstanceThatCannotChange) {
    EXPECT_TRUE((std::is_same<decltype(g_TAV_IDL_constants), const TAV_IDLConstants>::value));
}
