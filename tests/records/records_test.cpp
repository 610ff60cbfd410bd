#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <support/Recording.h>
#include <support/Samples.h>

#include <type_traits>
#include <utility>

using namespace recording;

namespace {

using Digest = std::vector<uint8_t>;

Digest md5(const std::string& text) {
    Digest digest(16);
    EXPECT_EQ(EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr), 1);
    return digest;
}

std::string upperCaseHex(const Digest& digest) {
    std::string text;
    for (const uint8_t byte : digest) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
    }
    return text;
}

}  // namespace

TEST(ConnectionInfoTest, IsWrittenCompletelyAndInOrder) {
    EXPECT_EQ(writing(someConnectionInfo()), R"(
writeStructBegin ConnectionInfo
writeFieldBegin callbackServicePort 8 1, writeI32 4711, writeFieldEnd
writeFieldBegin empServicePort 8 2, writeI32 4712, writeFieldEnd
writeFieldBegin empID 11 3, writeString 'emp-7', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(ConnectionInfoTest, IsWrittenCompletelyWithDefaultValues) {
    EXPECT_EQ(writing(ConnectionInfo()), R"(
writeStructBegin ConnectionInfo
writeFieldBegin callbackServicePort 8 1, writeI32 0, writeFieldEnd
writeFieldBegin empServicePort 8 2, writeI32 0, writeFieldEnd
writeFieldBegin empID 11 3, writeString '', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(ConnectionInfoTest, IsReadCompletely) {
    ConnectionInfo info;
    EXPECT_EQ(reading(info, {{1, 4711}, {2, 4712}, {3, "emp-7"}}), R"(
readStructBegin
readFieldBegin 1 8, readI32 4711, readFieldEnd
readFieldBegin 2 8, readI32 4712, readFieldEnd
readFieldBegin 3 11, readString 'emp-7', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(info.callbackServicePort, 4711);
    EXPECT_EQ(info.empServicePort, 4712);
    EXPECT_EQ(info.empID, "emp-7");
    EXPECT_EQ(flagsOf(info), "111");
}

TEST(ConnectionInfoTest, FieldsAreReadInAnyOrder) {
    ConnectionInfo info;
    reading(info, {{3, "emp-7"}, {1, 4711}, {2, 4712}});
    EXPECT_EQ(info, someConnectionInfo());
}

TEST(ConnectionInfoTest, AnEmptyStructLeavesAFreshRecordAsItWas) {
    ConnectionInfo info;
    EXPECT_EQ(reading(info, {}), R"(
readStructBegin
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(info.callbackServicePort, 0);
    EXPECT_EQ(info.empServicePort, 0);
    EXPECT_EQ(info.empID, "");
    EXPECT_EQ(flagsOf(info), "000");
}

TEST(ConnectionInfoTest, TheBytesOfAnEmptyStructAreThoseOfItsThreeCalls) {
    Log log;
    RecordingProtocol input(log);
    input.playRecord({});
    ConnectionInfo info;
    EXPECT_EQ(info.read(&input), 1U + 2U + 3U);
}

TEST(ConnectionInfoTest, APortThatArrivesAsAStringIsSkippedAndNotConverted) {
    ConnectionInfo info;
    EXPECT_EQ(reading(info, {{1, "4711"}}), R"(
readStructBegin
readFieldBegin 1 11, skip 11, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(info.callbackServicePort, 0);
    EXPECT_EQ(flagsOf(info), "000");
}

TEST(ConnectionInfoTest, AnUnknownFieldOfAnyTypeIsSkippedAndTheNextIsRead) {
    for (const int type : {2, 3, 4, 6, 8, 10, 11, 12, 13, 14, 15, 99}) {
        ConnectionInfo info;
        const std::string number = std::to_string(type);
        EXPECT_EQ(reading(info, {{4, somethingOf(static_cast<TType>(type))}, {3, "emp-7"}}),
                  "\nreadStructBegin\nreadFieldBegin 4 " + number + ", skip " + number +
                      R"(, readFieldEnd
readFieldBegin 3 11, readString 'emp-7', readFieldEnd
readFieldBegin stop
readStructEnd)");
        EXPECT_EQ(info.empID, "emp-7");
        EXPECT_EQ(flagsOf(info), "001");
    }
}

TEST(ConnectionInfoTest, FieldsWithIdsAtTheEndsOfTheRangeAreSkipped) {
    ConnectionInfo info;
    EXPECT_EQ(reading(info, {{-32768, 1}, {-1, 2}, {0, 3}, {257, 4}, {32767, 5}}), R"(
readStructBegin
readFieldBegin -32768 8, skip 8, readFieldEnd
readFieldBegin -1 8, skip 8, readFieldEnd
readFieldBegin 0 8, skip 8, readFieldEnd
readFieldBegin 257 8, skip 8, readFieldEnd
readFieldBegin 32767 8, skip 8, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(info, ConnectionInfo());
    EXPECT_EQ(flagsOf(info), "000");
}

TEST(ConnectionInfoTest, FieldsThatTheInputLacksKeepTheirValueAndFlag) {
    ConnectionInfo info = someConnectionInfo();
    info.__isset.empID = true;
    reading(info, {{2, 9}});
    EXPECT_EQ(info.callbackServicePort, 4711);
    EXPECT_EQ(info.empServicePort, 9);
    EXPECT_EQ(info.empID, "emp-7");
    EXPECT_EQ(flagsOf(info), "011");
}

TEST(ConnectionInfoTest, TheLastValueOfARepeatedFieldWins) {
    ConnectionInfo info;
    reading(info, {{1, 5}, {1, 6}});
    EXPECT_EQ(info.callbackServicePort, 6);
}

TEST(ConnectionInfoTest, IsWrittenTheSameSetOrNot) {
    ConnectionInfo info = someConnectionInfo();
    const std::string unset = writing(info);
    info.__isset.callbackServicePort = info.__isset.empServicePort = info.__isset.empID = true;
    EXPECT_EQ(writing(info), unset);
}

TEST(ConnectionInfoTest, FailingAtAnyCallKeepsTheFlagsOfTheFieldsReadSoFar) {
    // The begin of the record, then three calls a field, the stop and the end.
    const std::vector<std::string> flags = {"000", "000", "000", "100", "100", "100",
                                            "110", "110", "110", "111", "111", "111"};
    for (std::size_t n = 1; n <= flags.size(); ++n) {
        Log log;
        log.failAt(n);
        RecordingProtocol input(log);
        input.playRecord({{1, 4711}, {2, 4712}, {3, "emp-7"}});
        ConnectionInfo info;
        EXPECT_EQ(failureOf([&] { info.read(&input); }), log.failure());
        EXPECT_EQ(flagsOf(info), flags[n - 1]) << "call " << n << " failed";
    }
}

TEST(ConnectionInfoTest, FailingToSkipAFieldKeepsTheFlagsOfTheFieldsReadSoFar) {
    Log log;
    log.failAt(6);
    RecordingProtocol input(log);
    input.playRecord({{1, 4711}, {4, "later"}, {2, 4712}});
    ConnectionInfo info;
    EXPECT_EQ(failureOf([&] { info.read(&input); }), "TProtocolException 'call 6 fails'");
    EXPECT_EQ(log.text(), R"(
readStructBegin
readFieldBegin 1 8, readI32 4711, readFieldEnd
readFieldBegin 4 11, skip 11)");
    EXPECT_EQ(flagsOf(info), "100");
}

TEST(ConnectionInfoTest, ItsFingerprintIsTheMd5OfItsLayout) {
    const Digest digest = md5("{1:i32;2:i32;3:string;}");
    EXPECT_EQ(Digest(ConnectionInfo::binary_fingerprint, ConnectionInfo::binary_fingerprint + 16),
              digest);
    EXPECT_EQ(ConnectionInfo::ascii_fingerprint, upperCaseHex(digest));
    EXPECT_STREQ(ConnectionInfo::ascii_fingerprint, "4086F12A5C2D615560236565C542F3C3");
}

TEST(ConnectionInfoTest, EveryFieldMakesADifference) {
    const ConnectionInfo one = someConnectionInfo();
    EXPECT_TRUE(one == someConnectionInfo());
    EXPECT_FALSE(one != someConnectionInfo());
    ConnectionInfo other[3] = {one, one, one};
    other[0].callbackServicePort = 1;
    other[1].empServicePort = 1;
    other[2].empID = "x";
    for (const ConnectionInfo& different : other) {
        EXPECT_FALSE(one == different);
        EXPECT_TRUE(one != different);
    }
}

TEST(ConnectionInfoTest, FlagsMakeNoDifference) {
    ConnectionInfo info = someConnectionInfo();
    info.__isset.callbackServicePort = info.__isset.empServicePort = info.__isset.empID = true;
    EXPECT_TRUE(info == someConnectionInfo());
    EXPECT_FALSE(info != someConnectionInfo());
}

TEST(ConnectionInfoTest, CopiesHaveTheirOwnFieldsAndFlags) {
    ConnectionInfo original = someConnectionInfo();
    original.__isset.empServicePort = true;
    const ConnectionInfo copy = original;
    ConnectionInfo assigned;
    assigned = original;
    original.empID = "changed";
    EXPECT_EQ(copy, someConnectionInfo());
    EXPECT_EQ(assigned, someConnectionInfo());
    EXPECT_EQ(flagsOf(copy), "010");
    EXPECT_EQ(flagsOf(assigned), "010");
}

TEST(ConnectionInfoTest, AMovedFromRecordCanBeAssignedAndDestroyed) {
    ConnectionInfo source = someConnectionInfo();
    source.__isset.empID = true;
    const ConnectionInfo target = std::move(source);
    EXPECT_EQ(target, someConnectionInfo());
    EXPECT_EQ(flagsOf(target), "001");
    source = someConnectionInfo();
    EXPECT_EQ(source, someConnectionInfo());
    ConnectionInfo assigned;
    assigned = std::move(source);
    EXPECT_EQ(assigned, someConnectionInfo());
}

TEST(ConnectionInfoTest, MovingAndSwappingNeverThrow) {
    EXPECT_TRUE(std::is_nothrow_move_constructible<ConnectionInfo>::value);
    EXPECT_TRUE(std::is_nothrow_move_assignable<ConnectionInfo>::value);
    ConnectionInfo info;
    EXPECT_TRUE(noexcept(info.swap(info)));
    EXPECT_TRUE(noexcept(swap(info, info)));
}

TEST(ConnectionInfoTest, SwapExchangesFieldsAndFlags) {
    ConnectionInfo a = someConnectionInfo();
    a.__isset = {true, false, true};
    ConnectionInfo b;
    b.__isset = {false, true, false};
    swap(a, b);
    EXPECT_EQ(a, ConnectionInfo());
    EXPECT_EQ(flagsOf(a), "010");
    EXPECT_EQ(b, someConnectionInfo());
    EXPECT_EQ(flagsOf(b), "101");
}

TEST(ParamListTest, IsWrittenCompletelyAndInOrder) {
    EXPECT_EQ(writing(someParamList()), R"(
writeStructBegin ParamList
writeFieldBegin param1 11 1, writeString 'p1', writeFieldEnd
writeFieldBegin param2 11 2, writeString 'p2', writeFieldEnd
writeFieldBegin param3 11 3, writeString 'p3', writeFieldEnd
writeFieldBegin param4 11 4, writeString 'p4', writeFieldEnd
writeFieldBegin param5 11 5, writeString 'p5', writeFieldEnd
writeFieldBegin param6 11 6, writeString 'p6', writeFieldEnd
writeFieldBegin param7 11 7, writeString 'p7', writeFieldEnd
writeFieldBegin param8 11 8, writeString 'p8', writeFieldEnd
writeFieldBegin param9 11 9, writeString 'p9', writeFieldEnd
writeFieldBegin param10 11 10, writeString 'p10', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(ParamListTest, IsWrittenWithTenFieldsWhenOnlyTwoAreInUse) {
    ParamList list;
    list.param3 = "three";
    list.param10 = "ten";
    EXPECT_EQ(writing(list), R"(
writeStructBegin ParamList
writeFieldBegin param1 11 1, writeString '', writeFieldEnd
writeFieldBegin param2 11 2, writeString '', writeFieldEnd
writeFieldBegin param3 11 3, writeString 'three', writeFieldEnd
writeFieldBegin param4 11 4, writeString '', writeFieldEnd
writeFieldBegin param5 11 5, writeString '', writeFieldEnd
writeFieldBegin param6 11 6, writeString '', writeFieldEnd
writeFieldBegin param7 11 7, writeString '', writeFieldEnd
writeFieldBegin param8 11 8, writeString '', writeFieldEnd
writeFieldBegin param9 11 9, writeString '', writeFieldEnd
writeFieldBegin param10 11 10, writeString 'ten', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(ParamListTest, IsReadCompletely) {
    ParamList list;
    EXPECT_EQ(flagsOf(list), "0000000000");
    EXPECT_EQ(reading(list, {{1, "p1"},
                             {2, "p2"},
                             {3, "p3"},
                             {4, "p4"},
                             {5, "p5"},
                             {6, "p6"},
                             {7, "p7"},
                             {8, "p8"},
                             {9, "p9"},
                             {10, "p10"}}),
              R"(
readStructBegin
readFieldBegin 1 11, readString 'p1', readFieldEnd
readFieldBegin 2 11, readString 'p2', readFieldEnd
readFieldBegin 3 11, readString 'p3', readFieldEnd
readFieldBegin 4 11, readString 'p4', readFieldEnd
readFieldBegin 5 11, readString 'p5', readFieldEnd
readFieldBegin 6 11, readString 'p6', readFieldEnd
readFieldBegin 7 11, readString 'p7', readFieldEnd
readFieldBegin 8 11, readString 'p8', readFieldEnd
readFieldBegin 9 11, readString 'p9', readFieldEnd
readFieldBegin 10 11, readString 'p10', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(list.param1, "p1");
    EXPECT_EQ(list.param2, "p2");
    EXPECT_EQ(list.param3, "p3");
    EXPECT_EQ(list.param4, "p4");
    EXPECT_EQ(list.param5, "p5");
    EXPECT_EQ(list.param6, "p6");
    EXPECT_EQ(list.param7, "p7");
    EXPECT_EQ(list.param8, "p8");
    EXPECT_EQ(list.param9, "p9");
    EXPECT_EQ(list.param10, "p10");
    EXPECT_EQ(flagsOf(list), "1111111111");
}

TEST(ParamListTest, FieldTenLeavesTheOthersEmptyAndUnset) {
    ParamList list;
    reading(list, {{10, "ten"}});
    EXPECT_EQ(list.param10, "ten");
    EXPECT_EQ(list.param1 + list.param2 + list.param3 + list.param4 + list.param5 + list.param6 +
                  list.param7 + list.param8 + list.param9,
              "");
    EXPECT_EQ(flagsOf(list), "0000000001");
}

TEST(ParamListTest, FieldElevenIsSkippedAndNotStored) {
    ParamList list;
    EXPECT_EQ(reading(list, {{11, "eleven"}}), R"(
readStructBegin
readFieldBegin 11 11, skip 11, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(list, ParamList());
    EXPECT_EQ(flagsOf(list), "0000000000");
}

TEST(ParamListTest, FieldZeroAndNegativeFieldsAreSkipped) {
    ParamList list;
    EXPECT_EQ(reading(list, {{0, "zero"}, {-1, "minus one"}, {-32768, "least"}}), R"(
readStructBegin
readFieldBegin 0 11, skip 11, readFieldEnd
readFieldBegin -1 11, skip 11, readFieldEnd
readFieldBegin -32768 11, skip 11, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(list, ParamList());
    EXPECT_EQ(flagsOf(list), "0000000000");
}

TEST(ParamListTest, ANumberIsSkipped) {
    ParamList list;
    EXPECT_EQ(reading(list, {{3, 5}}), R"(
readStructBegin
readFieldBegin 3 8, skip 8, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(flagsOf(list), "0000000000");
}

TEST(ParamListTest, ItsFingerprintIsTheMd5OfItsLayout) {
    const Digest digest =
        md5("{1:string;2:string;3:string;4:string;5:string;6:string;7:string;8:string;9:string;"
            "10:string;}");
    EXPECT_EQ(Digest(ParamList::binary_fingerprint, ParamList::binary_fingerprint + 16), digest);
    EXPECT_EQ(ParamList::ascii_fingerprint, upperCaseHex(digest));
    EXPECT_STREQ(ParamList::ascii_fingerprint, "81E0FEFEB058D510E23D4883E8597F5D");
}

TEST(ParamListTest, EveryFieldMakesADifference) {
    const ParamList one = someParamList();
    EXPECT_TRUE(one == someParamList());
    EXPECT_FALSE(one != someParamList());
    for (std::string ParamList::*field :
         {&ParamList::param1, &ParamList::param2, &ParamList::param3, &ParamList::param4,
          &ParamList::param5, &ParamList::param6, &ParamList::param7, &ParamList::param8,
          &ParamList::param9, &ParamList::param10}) {
        ParamList different = one;
        different.*field = "x";
        EXPECT_FALSE(one == different);
        EXPECT_TRUE(one != different);
    }
}

TEST(ParamListTest, FlagsMakeNoDifference) {
    ParamList list = someParamList();
    list.__isset = {true, true, true, true, true, true, true, true, true, true};
    EXPECT_TRUE(list == someParamList());
    EXPECT_FALSE(list != someParamList());
}

TEST(ParamListTest, CopiesHaveTheirOwnFieldsAndFlags) {
    ParamList original = someParamList();
    original.__isset.param2 = true;
    const ParamList copy = original;
    ParamList assigned;
    assigned = original;
    original.param5 = "changed";
    EXPECT_EQ(copy, someParamList());
    EXPECT_EQ(assigned, someParamList());
    EXPECT_EQ(flagsOf(copy), "0100000000");
    EXPECT_EQ(flagsOf(assigned), "0100000000");
}

TEST(ParamListTest, AMovedFromRecordCanBeAssignedAndDestroyed) {
    ParamList source = someParamList();
    const ParamList target = std::move(source);
    EXPECT_EQ(target, someParamList());
    source = someParamList();
    EXPECT_EQ(source, someParamList());
    ParamList assigned;
    assigned = std::move(source);
    EXPECT_EQ(assigned, someParamList());
}

TEST(ParamListTest, MovingAndSwappingNeverThrow) {
    EXPECT_TRUE(std::is_nothrow_move_constructible<ParamList>::value);
    EXPECT_TRUE(std::is_nothrow_move_assignable<ParamList>::value);
    ParamList list;
    EXPECT_TRUE(noexcept(list.swap(list)));
    EXPECT_TRUE(noexcept(swap(list, list)));
}

TEST(ParamListTest, SwapExchangesFieldsAndFlags) {
    ParamList a = someParamList();
    a.__isset = {true, false, true, false, true, false, true, false, true, false};
    ParamList b;
    b.__isset = {false, true, true, false, false, true, true, false, false, true};
    swap(a, b);
    EXPECT_EQ(a, ParamList());
    EXPECT_EQ(flagsOf(a), "0110011001");
    EXPECT_EQ(b, someParamList());
    EXPECT_EQ(flagsOf(b), "1010101010");
}
