#include <TavIDL/emp/TavEmpRecords.h>
#include <gtest/gtest.h>
#include <support/Recording.h>
#include <support/Samples.h>

using namespace recording;

TEST(TavEmpRecordsTest, OpenArgsAreWrittenCompletelyAndInOrder) {
    TavEmp_Open_args args;
    args.clientID = 21;
    args.name = "camera";
    args.version = "1.0";
    args.credential = "key";
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_Open_args
writeFieldBegin clientID 8 1, writeI32 21, writeFieldEnd
writeFieldBegin name 11 2, writeString 'camera', writeFieldEnd
writeFieldBegin version 11 3, writeString '1.0', writeFieldEnd
writeFieldBegin credential 11 4, writeString 'key', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, OpenPargsAreWrittenFromWhatTheyPointAt) {
    const int32_t clientID = 21;
    const std::string name = "camera";
    const std::string version = "1.0";
    const std::string credential = "key";
    TavEmp_Open_pargs args;
    args.clientID = &clientID;
    args.name = &name;
    args.version = &version;
    args.credential = &credential;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_Open_pargs
writeFieldBegin clientID 8 1, writeI32 21, writeFieldEnd
writeFieldBegin name 11 2, writeString 'camera', writeFieldEnd
writeFieldBegin version 11 3, writeString '1.0', writeFieldEnd
writeFieldBegin credential 11 4, writeString 'key', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, OpenArgsAreReadCompletely) {
    TavEmp_Open_args args;
    EXPECT_EQ(flagsOf(args), "0000");
    EXPECT_EQ(reading(args, {{1, 21}, {2, "camera"}, {3, "1.0"}, {4, "key"}}), R"(
readStructBegin
readFieldBegin 1 8, readI32 21, readFieldEnd
readFieldBegin 2 11, readString 'camera', readFieldEnd
readFieldBegin 3 11, readString '1.0', readFieldEnd
readFieldBegin 4 11, readString 'key', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.clientID, 21);
    EXPECT_EQ(args.name, "camera");
    EXPECT_EQ(args.version, "1.0");
    EXPECT_EQ(args.credential, "key");
    EXPECT_EQ(flagsOf(args), "1111");
}

TEST(TavEmpRecordsTest, OpenResultIsWrittenWhenItsFlagIsSet) {
    TavEmp_Open_result result;
    result.success = true;
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Open_result
writeFieldBegin success 2 0, writeBool true, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, OpenResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavEmp_Open_result result;
    result.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Open_result
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, OpenResultIsReadCompletely) {
    TavEmp_Open_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, true}}), R"(
readStructBegin
readFieldBegin 0 2, readBool true, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_TRUE(result.success);
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, OpenPresultIsReadIntoWhatItPointsAt) {
    bool value = false;
    TavEmp_Open_presult result;
    result.success = &value;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, true}}), R"(
readStructBegin
readFieldBegin 0 2, readBool true, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_TRUE(value);
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, CloseArgsAreWrittenCompletelyAndInOrder) {
    TavEmp_Close_args args;
    args.clientID = 22;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_Close_args
writeFieldBegin clientID 8 1, writeI32 22, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ClosePargsAreWrittenFromWhatTheyPointAt) {
    const int32_t clientID = 22;
    TavEmp_Close_pargs args;
    args.clientID = &clientID;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_Close_pargs
writeFieldBegin clientID 8 1, writeI32 22, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, CloseArgsAreReadCompletely) {
    TavEmp_Close_args args;
    EXPECT_EQ(flagsOf(args), "0");
    EXPECT_EQ(reading(args, {{1, 22}}), R"(
readStructBegin
readFieldBegin 1 8, readI32 22, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.clientID, 22);
    EXPECT_EQ(flagsOf(args), "1");
}

TEST(TavEmpRecordsTest, CloseResultIsWrittenWhenItsFlagIsSet) {
    TavEmp_Close_result result;
    result.success = -7;
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Close_result
writeFieldBegin success 8 0, writeI32 -7, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, CloseResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavEmp_Close_result result;
    result.success = -7;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Close_result
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, CloseResultIsReadCompletely) {
    TavEmp_Close_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, -7}}), R"(
readStructBegin
readFieldBegin 0 8, readI32 -7, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(result.success, -7);
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, ClosePresultIsReadIntoWhatItPointsAt) {
    int32_t value = 0;
    TavEmp_Close_presult result;
    result.success = &value;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, -7}}), R"(
readStructBegin
readFieldBegin 0 8, readI32 -7, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(value, -7);
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, ExecuteArgsAreWrittenCompletelyAndInOrder) {
    TavEmp_Execute_args args;
    args.clientID = 23;
    args.cmd = "zoom";
    args.param1 = "a";
    args.param2 = "b";
    args.param3 = "c";
    args.param4 = "d";
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_Execute_args
writeFieldBegin clientID 8 1, writeI32 23, writeFieldEnd
writeFieldBegin cmd 11 2, writeString 'zoom', writeFieldEnd
writeFieldBegin param1 11 3, writeString 'a', writeFieldEnd
writeFieldBegin param2 11 4, writeString 'b', writeFieldEnd
writeFieldBegin param3 11 5, writeString 'c', writeFieldEnd
writeFieldBegin param4 11 6, writeString 'd', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecutePargsAreWrittenFromWhatTheyPointAt) {
    const int32_t clientID = 23;
    const std::string cmd = "zoom";
    const std::string param1 = "a";
    const std::string param2 = "b";
    const std::string param3 = "c";
    const std::string param4 = "d";
    TavEmp_Execute_pargs args;
    args.clientID = &clientID;
    args.cmd = &cmd;
    args.param1 = &param1;
    args.param2 = &param2;
    args.param3 = &param3;
    args.param4 = &param4;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_Execute_pargs
writeFieldBegin clientID 8 1, writeI32 23, writeFieldEnd
writeFieldBegin cmd 11 2, writeString 'zoom', writeFieldEnd
writeFieldBegin param1 11 3, writeString 'a', writeFieldEnd
writeFieldBegin param2 11 4, writeString 'b', writeFieldEnd
writeFieldBegin param3 11 5, writeString 'c', writeFieldEnd
writeFieldBegin param4 11 6, writeString 'd', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteArgsAreReadCompletely) {
    TavEmp_Execute_args args;
    EXPECT_EQ(flagsOf(args), "000000");
    EXPECT_EQ(reading(args, {{1, 23}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}}), R"(
readStructBegin
readFieldBegin 1 8, readI32 23, readFieldEnd
readFieldBegin 2 11, readString 'zoom', readFieldEnd
readFieldBegin 3 11, readString 'a', readFieldEnd
readFieldBegin 4 11, readString 'b', readFieldEnd
readFieldBegin 5 11, readString 'c', readFieldEnd
readFieldBegin 6 11, readString 'd', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.clientID, 23);
    EXPECT_EQ(args.cmd, "zoom");
    EXPECT_EQ(args.param1, "a");
    EXPECT_EQ(args.param2, "b");
    EXPECT_EQ(args.param3, "c");
    EXPECT_EQ(args.param4, "d");
    EXPECT_EQ(flagsOf(args), "111111");
}

TEST(TavEmpRecordsTest, ExecuteResultIsWrittenWhenItsFlagIsSet) {
    TavEmp_Execute_result result;
    result.success = "done";
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Execute_result
writeFieldBegin success 11 0, writeString 'done', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavEmp_Execute_result result;
    result.success = "done";
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Execute_result
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteResultIsReadCompletely) {
    TavEmp_Execute_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, "done"}}), R"(
readStructBegin
readFieldBegin 0 11, readString 'done', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(result.success, "done");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, ExecutePresultIsReadIntoWhatItPointsAt) {
    std::string value;
    TavEmp_Execute_presult result;
    result.success = &value;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, "done"}}), R"(
readStructBegin
readFieldBegin 0 11, readString 'done', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(value, "done");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListArgsAreWrittenCompletelyAndInOrder) {
    TavEmp_ExecuteWithParamList_args args;
    args.clientID = 24;
    args.cmd = "scan";
    args.paramList = someParamList();
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_ExecuteWithParamList_args
writeFieldBegin clientID 8 1, writeI32 24, writeFieldEnd
writeFieldBegin cmd 11 2, writeString 'scan', writeFieldEnd
writeFieldBegin paramList 12 3
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
writeStructEnd, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListPargsAreWrittenFromWhatTheyPointAt) {
    const int32_t clientID = 24;
    const std::string cmd = "scan";
    const ParamList paramList = someParamList();
    TavEmp_ExecuteWithParamList_pargs args;
    args.clientID = &clientID;
    args.cmd = &cmd;
    args.paramList = &paramList;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavEmp_ExecuteWithParamList_pargs
writeFieldBegin clientID 8 1, writeI32 24, writeFieldEnd
writeFieldBegin cmd 11 2, writeString 'scan', writeFieldEnd
writeFieldBegin paramList 12 3
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
writeStructEnd, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListArgsAreReadCompletely) {
    TavEmp_ExecuteWithParamList_args args;
    EXPECT_EQ(flagsOf(args), "000");
    EXPECT_EQ(reading(args, {{1, 24},
                             {2, "scan"},
                             {3, Struct{{1, "p1"},
                                        {2, "p2"},
                                        {3, "p3"},
                                        {4, "p4"},
                                        {5, "p5"},
                                        {6, "p6"},
                                        {7, "p7"},
                                        {8, "p8"},
                                        {9, "p9"},
                                        {10, "p10"}}}}),
              R"(
readStructBegin
readFieldBegin 1 8, readI32 24, readFieldEnd
readFieldBegin 2 11, readString 'scan', readFieldEnd
readFieldBegin 3 12
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
readStructEnd, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.clientID, 24);
    EXPECT_EQ(args.cmd, "scan");
    EXPECT_EQ(args.paramList, someParamList());
    EXPECT_EQ(flagsOf(args.paramList), "1111111111");
    EXPECT_EQ(flagsOf(args), "111");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListResultIsWrittenWhenItsFlagIsSet) {
    TavEmp_ExecuteWithParamList_result result;
    result.success = "scanned";
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_ExecuteWithParamList_result
writeFieldBegin success 11 0, writeString 'scanned', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavEmp_ExecuteWithParamList_result result;
    result.success = "scanned";
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_ExecuteWithParamList_result
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListResultIsReadCompletely) {
    TavEmp_ExecuteWithParamList_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, "scanned"}}), R"(
readStructBegin
readFieldBegin 0 11, readString 'scanned', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(result.success, "scanned");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, ExecuteWithParamListPresultIsReadIntoWhatItPointsAt) {
    std::string value;
    TavEmp_ExecuteWithParamList_presult result;
    result.success = &value;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, "scanned"}}), R"(
readStructBegin
readFieldBegin 0 11, readString 'scanned', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(value, "scanned");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavEmpRecordsTest, CloseArgumentsWithoutFieldsYieldZero) {
    TavEmp_Close_args args;
    EXPECT_EQ(reading(args, {}), R"(
readStructBegin
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.clientID, 0);
    EXPECT_EQ(flagsOf(args), "0");
}

TEST(TavEmpRecordsTest, AParamListThatArrivesAsAStringIsSkippedCompletely) {
    TavEmp_ExecuteWithParamList_args args;
    EXPECT_EQ(reading(args, {{3, "no list"}}), R"(
readStructBegin
readFieldBegin 3 11, skip 11, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.paramList, ParamList());
    EXPECT_EQ(flagsOf(args.paramList), "0000000000");
    EXPECT_EQ(flagsOf(args), "000");
}

TEST(TavEmpRecordsTest, OpenTakesItsNameFromFieldTwoAndSkipsAStringInFieldOne) {
    TavEmp_Open_args args;
    EXPECT_EQ(reading(args, {{1, "not the name"}, {2, "camera"}}), R"(
readStructBegin
readFieldBegin 1 11, skip 11, readFieldEnd
readFieldBegin 2 11, readString 'camera', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.clientID, 0);
    EXPECT_EQ(args.name, "camera");
    EXPECT_EQ(flagsOf(args), "0100");
}

TEST(TavEmpRecordsTest, ACloseResultOfZeroIsWrittenWhenItsFlagIsSet) {
    TavEmp_Close_result result;
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavEmp_Close_result
writeFieldBegin success 8 0, writeI32 0, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavEmpRecordsTest, AnOpenResultThatArrivesAsANumberLeavesTheCallersBoolUntouched) {
    bool value = true;
    TavEmp_Open_presult result;
    result.success = &value;
    EXPECT_EQ(reading(result, {{0, 0}}), R"(
readStructBegin
readFieldBegin 0 8, skip 8, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_TRUE(value);
    EXPECT_EQ(flagsOf(result), "0");
}

TEST(TavEmpRecordsTest, AnUnknownFieldOfExecuteWithParamListIsSkippedAndTheRestIsRead) {
    TavEmp_ExecuteWithParamList_args args;
    EXPECT_EQ(reading(args, {{4, "later"}, {2, "scan"}}), R"(
readStructBegin
readFieldBegin 4 11, skip 11, readFieldEnd
readFieldBegin 2 11, readString 'scan', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.cmd, "scan");
    EXPECT_EQ(flagsOf(args), "010");
}

TEST(TavEmpRecordsTest, ExecuteArgsAndPargsDifferOnlyInTheirName) {
    TavEmp_Execute_args args;
    args.clientID = 23;
    args.cmd = "zoom";
    args.param1 = "a";
    args.param2 = "b";
    args.param3 = "c";
    args.param4 = "d";
    TavEmp_Execute_pargs pargs;
    pargs.clientID = &args.clientID;
    pargs.cmd = &args.cmd;
    pargs.param1 = &args.param1;
    pargs.param2 = &args.param2;
    pargs.param3 = &args.param3;
    pargs.param4 = &args.param4;
    std::string text = writing(args);
    const std::string name = "TavEmp_Execute_args";
    text.replace(text.find(name), name.size(), "TavEmp_Execute_pargs");
    EXPECT_EQ(text, writing(pargs));
}
