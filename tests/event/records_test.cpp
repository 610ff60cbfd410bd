#include <TavIDL/event/TavEmpEventRecords.h>
#include <gtest/gtest.h>
#include <support/Recording.h>

using namespace recording;

TEST(TavEmpEventRecordsTest, CallbackArgsAreWrittenCompletelyAndInOrder) {
    TavEmpEvent_Callback_args args;
    args.eventType = 31;
    args.param1 = "moved";
    args.param2 = "north";
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmpEvent_Callback_args
writeFieldBegin eventType 8 1, writeI32 31, writeFieldEnd
writeFieldBegin param1 11 2, writeString 'moved', writeFieldEnd
writeFieldBegin param2 11 3, writeString 'north', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpEventRecordsTest, CallbackPargsAreWrittenFromWhatTheyPointAt) {
    const int32_t eventType = 31;
    const std::string param1 = "moved";
    const std::string param2 = "north";
    TavEmpEvent_Callback_pargs args;
    args.eventType = &eventType;
    args.param1 = &param1;
    args.param2 = &param2;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmpEvent_Callback_pargs
writeFieldBegin eventType 8 1, writeI32 31, writeFieldEnd
writeFieldBegin param1 11 2, writeString 'moved', writeFieldEnd
writeFieldBegin param2 11 3, writeString 'north', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpEventRecordsTest, CallbackArgsAreReadCompletely) {
    TavEmpEvent_Callback_args args;
    EXPECT_EQ(flagsOf(args), "000");
    EXPECT_EQ(reading(args, {{1, 31}, {2, "moved"}, {3, "north"}}), R"(
readStructBegin
readFieldBegin 1 8, readI32 31, readFieldEnd
readFieldBegin 2 11, readString 'moved', readFieldEnd
readFieldBegin 3 11, readString 'north', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.eventType, 31);
    EXPECT_EQ(args.param1, "moved");
    EXPECT_EQ(args.param2, "north");
    EXPECT_EQ(flagsOf(args), "111");
}

TEST(TavEmpEventRecordsTest, AnEventTypeThatArrivesAsAStringIsSkipped) {
    TavEmpEvent_Callback_args args;
    EXPECT_EQ(reading(args, {{1, "moved"}}), R"(
readStructBegin
readFieldBegin 1 11, skip 11, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.eventType, 0);
    EXPECT_EQ(flagsOf(args), "000");
}
