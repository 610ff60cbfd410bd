#include <TavIDL/broker/TavBrokerRecords.h>
#include <gtest/gtest.h>
#include <support/Recording.h>
#include <support/Samples.h>

using namespace recording;

TEST(TavBrokerRecordsTest, OpenEmpArgsAreWrittenCompletelyAndInOrder) {
    TavBroker_OpenEmp_args args;
    args.name = "camera";
    args.version = "1.0";
    args.credential = "key";
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavBroker_OpenEmp_args
writeFieldBegin name 11 1, writeString 'camera', writeFieldEnd
writeFieldBegin version 11 2, writeString '1.0', writeFieldEnd
writeFieldBegin credential 11 3, writeString 'key', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, OpenEmpPargsAreWrittenFromWhatTheyPointAt) {
    const std::string name = "camera";
    const std::string version = "1.0";
    const std::string credential = "key";
    TavBroker_OpenEmp_pargs args;
    args.name = &name;
    args.version = &version;
    args.credential = &credential;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavBroker_OpenEmp_pargs
writeFieldBegin name 11 1, writeString 'camera', writeFieldEnd
writeFieldBegin version 11 2, writeString '1.0', writeFieldEnd
writeFieldBegin credential 11 3, writeString 'key', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, OpenEmpArgsAreReadCompletely) {
    TavBroker_OpenEmp_args args;
    EXPECT_EQ(flagsOf(args), "000");
    EXPECT_EQ(reading(args, {{1, "camera"}, {2, "1.0"}, {3, "key"}}), R"(
readStructBegin
readFieldBegin 1 11, readString 'camera', readFieldEnd
readFieldBegin 2 11, readString '1.0', readFieldEnd
readFieldBegin 3 11, readString 'key', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.name, "camera");
    EXPECT_EQ(args.version, "1.0");
    EXPECT_EQ(args.credential, "key");
    EXPECT_EQ(flagsOf(args), "111");
}

TEST(TavBrokerRecordsTest, OpenEmpResultIsWrittenWhenItsFlagIsSet) {
    TavBroker_OpenEmp_result result;
    result.success = someConnectionInfo();
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_OpenEmp_result
writeFieldBegin success 12 0
writeStructBegin ConnectionInfo
writeFieldBegin callbackServicePort 8 1, writeI32 4711, writeFieldEnd
writeFieldBegin empServicePort 8 2, writeI32 4712, writeFieldEnd
writeFieldBegin empID 11 3, writeString 'emp-7', writeFieldEnd
writeFieldStop
writeStructEnd, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, OpenEmpResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavBroker_OpenEmp_result result;
    result.success = someConnectionInfo();
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_OpenEmp_result
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, OpenEmpResultIsReadCompletely) {
    TavBroker_OpenEmp_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}), R"(
readStructBegin
readFieldBegin 0 12
readStructBegin
readFieldBegin 1 8, readI32 4711, readFieldEnd
readFieldBegin 2 8, readI32 4712, readFieldEnd
readFieldBegin 3 11, readString 'emp-7', readFieldEnd
readFieldBegin stop
readStructEnd, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(result.success, someConnectionInfo());
    EXPECT_EQ(flagsOf(result.success), "111");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavBrokerRecordsTest, OpenEmpPresultIsReadIntoWhatItPointsAt) {
    ConnectionInfo value;
    TavBroker_OpenEmp_presult result;
    result.success = &value;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}), R"(
readStructBegin
readFieldBegin 0 12
readStructBegin
readFieldBegin 1 8, readI32 4711, readFieldEnd
readFieldBegin 2 8, readI32 4712, readFieldEnd
readFieldBegin 3 11, readString 'emp-7', readFieldEnd
readFieldBegin stop
readStructEnd, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(value, someConnectionInfo());
    EXPECT_EQ(flagsOf(value), "111");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavBrokerRecordsTest, ExecuteArgsAreWrittenCompletelyAndInOrder) {
    TavBroker_Execute_args args;
    args.fromPort = 5001;
    args.cmd = "zoom";
    args.param1 = "a";
    args.param2 = "b";
    args.param3 = "c";
    args.param4 = "d";
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavBroker_Execute_args
writeFieldBegin fromPort 8 1, writeI32 5001, writeFieldEnd
writeFieldBegin cmd 11 2, writeString 'zoom', writeFieldEnd
writeFieldBegin param1 11 3, writeString 'a', writeFieldEnd
writeFieldBegin param2 11 4, writeString 'b', writeFieldEnd
writeFieldBegin param3 11 5, writeString 'c', writeFieldEnd
writeFieldBegin param4 11 6, writeString 'd', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, ExecutePargsAreWrittenFromWhatTheyPointAt) {
    const int32_t fromPort = 5001;
    const std::string cmd = "zoom";
    const std::string param1 = "a";
    const std::string param2 = "b";
    const std::string param3 = "c";
    const std::string param4 = "d";
    TavBroker_Execute_pargs args;
    args.fromPort = &fromPort;
    args.cmd = &cmd;
    args.param1 = &param1;
    args.param2 = &param2;
    args.param3 = &param3;
    args.param4 = &param4;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavBroker_Execute_pargs
writeFieldBegin fromPort 8 1, writeI32 5001, writeFieldEnd
writeFieldBegin cmd 11 2, writeString 'zoom', writeFieldEnd
writeFieldBegin param1 11 3, writeString 'a', writeFieldEnd
writeFieldBegin param2 11 4, writeString 'b', writeFieldEnd
writeFieldBegin param3 11 5, writeString 'c', writeFieldEnd
writeFieldBegin param4 11 6, writeString 'd', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, ExecuteArgsAreReadCompletely) {
    TavBroker_Execute_args args;
    EXPECT_EQ(flagsOf(args), "000000");
    EXPECT_EQ(reading(args, {{1, 5001}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}}), R"(
readStructBegin
readFieldBegin 1 8, readI32 5001, readFieldEnd
readFieldBegin 2 11, readString 'zoom', readFieldEnd
readFieldBegin 3 11, readString 'a', readFieldEnd
readFieldBegin 4 11, readString 'b', readFieldEnd
readFieldBegin 5 11, readString 'c', readFieldEnd
readFieldBegin 6 11, readString 'd', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.fromPort, 5001);
    EXPECT_EQ(args.cmd, "zoom");
    EXPECT_EQ(args.param1, "a");
    EXPECT_EQ(args.param2, "b");
    EXPECT_EQ(args.param3, "c");
    EXPECT_EQ(args.param4, "d");
    EXPECT_EQ(flagsOf(args), "111111");
}

TEST(TavBrokerRecordsTest, ExecuteResultIsWrittenWhenItsFlagIsSet) {
    TavBroker_Execute_result result;
    result.success = "done";
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_Execute_result
writeFieldBegin success 11 0, writeString 'done', writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, ExecuteResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavBroker_Execute_result result;
    result.success = "done";
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_Execute_result
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, ExecuteResultIsReadCompletely) {
    TavBroker_Execute_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, "done"}}), R"(
readStructBegin
readFieldBegin 0 11, readString 'done', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(result.success, "done");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavBrokerRecordsTest, ExecutePresultIsReadIntoWhatItPointsAt) {
    std::string value;
    TavBroker_Execute_presult result;
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

TEST(TavBrokerRecordsTest, CloseEmpArgsAreWrittenCompletelyAndInOrder) {
    TavBroker_CloseEmp_args args;
    args.connectionInfo = someConnectionInfo();
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavBroker_CloseEmp_args
writeFieldBegin connectionInfo 12 1
writeStructBegin ConnectionInfo
writeFieldBegin callbackServicePort 8 1, writeI32 4711, writeFieldEnd
writeFieldBegin empServicePort 8 2, writeI32 4712, writeFieldEnd
writeFieldBegin empID 11 3, writeString 'emp-7', writeFieldEnd
writeFieldStop
writeStructEnd, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, CloseEmpPargsAreWrittenFromWhatTheyPointAt) {
    const ConnectionInfo connectionInfo = someConnectionInfo();
    TavBroker_CloseEmp_pargs args;
    args.connectionInfo = &connectionInfo;
    EXPECT_EQ(writing(args), R"(
writeStructBegin TavBroker_CloseEmp_pargs
writeFieldBegin connectionInfo 12 1
writeStructBegin ConnectionInfo
writeFieldBegin callbackServicePort 8 1, writeI32 4711, writeFieldEnd
writeFieldBegin empServicePort 8 2, writeI32 4712, writeFieldEnd
writeFieldBegin empID 11 3, writeString 'emp-7', writeFieldEnd
writeFieldStop
writeStructEnd, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, CloseEmpArgsAreReadCompletely) {
    TavBroker_CloseEmp_args args;
    EXPECT_EQ(flagsOf(args), "0");
    EXPECT_EQ(reading(args, {{1, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}), R"(
readStructBegin
readFieldBegin 1 12
readStructBegin
readFieldBegin 1 8, readI32 4711, readFieldEnd
readFieldBegin 2 8, readI32 4712, readFieldEnd
readFieldBegin 3 11, readString 'emp-7', readFieldEnd
readFieldBegin stop
readStructEnd, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.connectionInfo, someConnectionInfo());
    EXPECT_EQ(flagsOf(args.connectionInfo), "111");
    EXPECT_EQ(flagsOf(args), "1");
}

TEST(TavBrokerRecordsTest, CloseEmpResultIsWrittenWhenItsFlagIsSet) {
    TavBroker_CloseEmp_result result;
    result.success = true;
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_CloseEmp_result
writeFieldBegin success 2 0, writeBool true, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, CloseEmpResultIsWrittenEmptyWhenItsFlagIsNotSet) {
    TavBroker_CloseEmp_result result;
    result.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_CloseEmp_result
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, CloseEmpResultIsReadCompletely) {
    TavBroker_CloseEmp_result result;
    EXPECT_EQ(flagsOf(result), "0");
    EXPECT_EQ(reading(result, {{0, true}}), R"(
readStructBegin
readFieldBegin 0 2, readBool true, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_TRUE(result.success);
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavBrokerRecordsTest, CloseEmpPresultIsReadIntoWhatItPointsAt) {
    bool value = false;
    TavBroker_CloseEmp_presult result;
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

TEST(TavBrokerRecordsTest, ExecuteArgumentsWithOnlyFieldTwoSetOnlyTheCommand) {
    TavBroker_Execute_args args;
    reading(args, {{2, "zoom"}});
    EXPECT_EQ(args.cmd, "zoom");
    EXPECT_EQ(args.fromPort, 0);
    EXPECT_EQ(args.param1 + args.param2 + args.param3 + args.param4, "");
    EXPECT_EQ(flagsOf(args), "010000");
}

TEST(TavBrokerRecordsTest, AnOpenEmpNameThatArrivesAsANumberIsSkipped) {
    TavBroker_OpenEmp_args args;
    EXPECT_EQ(reading(args, {{1, 5}, {2, "1.0"}}), R"(
readStructBegin
readFieldBegin 1 8, skip 8, readFieldEnd
readFieldBegin 2 11, readString '1.0', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.name, "");
    EXPECT_EQ(flagsOf(args), "010");
}

TEST(TavBrokerRecordsTest, AnUnknownFieldOfExecuteArgumentsIsSkippedAndTheRestIsRead) {
    TavBroker_Execute_args args;
    EXPECT_EQ(reading(args, {{7, "later"}, {6, "d"}}), R"(
readStructBegin
readFieldBegin 7 11, skip 11, readFieldEnd
readFieldBegin 6 11, readString 'd', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.param4, "d");
    EXPECT_EQ(flagsOf(args), "000001");
}

TEST(TavBrokerRecordsTest, AnUnknownFieldOfAResultIsSkippedAndTheRestIsRead) {
    std::string value;
    TavBroker_Execute_presult result;
    result.success = &value;
    EXPECT_EQ(reading(result, {{1, "later"}, {0, "done"}}), R"(
readStructBegin
readFieldBegin 1 11, skip 11, readFieldEnd
readFieldBegin 0 11, readString 'done', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(value, "done");
    EXPECT_EQ(flagsOf(result), "1");
}

TEST(TavBrokerRecordsTest, AFalseCloseEmpResultIsWrittenWhenItsFlagIsSet) {
    TavBroker_CloseEmp_result result;
    result.__isset.success = true;
    EXPECT_EQ(writing(result), R"(
writeStructBegin TavBroker_CloseEmp_result
writeFieldBegin success 2 0, writeBool false, writeFieldEnd
writeFieldStop
writeStructEnd)");
}

TEST(TavBrokerRecordsTest, AnExecuteResultOfAnotherTypeLeavesTheCallersStringUntouched) {
    std::string value = "before";
    TavBroker_Execute_presult result;
    result.success = &value;
    EXPECT_EQ(reading(result, {{0, 5}}), R"(
readStructBegin
readFieldBegin 0 8, skip 8, readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(value, "before");
    EXPECT_EQ(flagsOf(result), "0");
}

TEST(TavBrokerRecordsTest, TheLastValueOfARepeatedFieldWins) {
    TavBroker_OpenEmp_args args;
    EXPECT_EQ(reading(args, {{1, "first"}, {1, "second"}}), R"(
readStructBegin
readFieldBegin 1 11, readString 'first', readFieldEnd
readFieldBegin 1 11, readString 'second', readFieldEnd
readFieldBegin stop
readStructEnd)");
    EXPECT_EQ(args.name, "second");
}

TEST(TavBrokerRecordsTest, CloseEmpArgsAndPargsDifferOnlyInTheirName) {
    TavBroker_CloseEmp_args args;
    args.connectionInfo = someConnectionInfo();
    TavBroker_CloseEmp_pargs pargs;
    pargs.connectionInfo = &args.connectionInfo;
    std::string text = writing(args);
    const std::string name = "TavBroker_CloseEmp_args";
    text.replace(text.find(name), name.size(), "TavBroker_CloseEmp_pargs");
    EXPECT_EQ(text, writing(pargs));
}

TEST(TavBrokerRecordsTest, ArgumentsAreWrittenSetOrNot) {
    TavBroker_OpenEmp_args args;
    const std::string unset = writing(args);
    args.__isset.name = args.__isset.version = args.__isset.credential = true;
    EXPECT_EQ(writing(args), unset);
}

TEST(TavBrokerRecordsTest, AnOpenEmpResultKeepsFieldsThatTheReplyLacks) {
    ConnectionInfo value = someConnectionInfo();
    value.__isset.empID = true;
    TavBroker_OpenEmp_presult result;
    result.success = &value;
    reading(result, {{0, Struct{{2, 9}}}});
    EXPECT_EQ(value.callbackServicePort, 4711);
    EXPECT_EQ(value.empServicePort, 9);
    EXPECT_EQ(value.empID, "emp-7");
    EXPECT_EQ(flagsOf(value), "011");
}

TEST(TavBrokerRecordsTest, ArgumentsThatTheInputLacksKeepTheirValueAndFlag) {
    TavBroker_OpenEmp_args args;
    args.version = "before";
    args.__isset.version = true;
    reading(args, {});
    EXPECT_EQ(args.version, "before");
    EXPECT_EQ(flagsOf(args), "010");
}

TEST(TavBrokerRecordsTest, ANestedRecordThatFailsHalfwayKeepsItsFlagsAndLeavesTheOuterOnesClear) {
    Log log;
    log.failAt(8);  // the read of the nested record's second number
    RecordingProtocol protocol(log);
    protocol.playRecord({{1, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}});
    TavBroker_CloseEmp_args args;
    EXPECT_EQ(failureOf([&] { args.read(&protocol); }), "TProtocolException 'call 8 fails'");
    EXPECT_EQ(log.text(), R"(
readStructBegin
readFieldBegin 1 12
readStructBegin
readFieldBegin 1 8, readI32 4711, readFieldEnd
readFieldBegin 2 8, readI32 4712)");
    EXPECT_EQ(flagsOf(args), "0");
    EXPECT_EQ(flagsOf(args.connectionInfo), "100");
    EXPECT_EQ(args.connectionInfo.callbackServicePort, 4711);
    EXPECT_EQ(args.connectionInfo.empServicePort, 0);
}

TEST(TavBrokerRecordsTest, FailingAtAnyCallKeepsTheFlagsOfTheFieldsReadSoFar) {
    const Struct body = {{1, 5001}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}};
    // The begin of the record, then three calls per field: begin, value, end.
    const std::vector<std::string> flags = {
        "000000", "000000", "000000", "100000", "100000", "100000", "110000",
        "110000", "110000", "111000", "111000", "111000", "111100", "111100",
        "111100", "111110", "111110", "111110", "111111", "111111", "111111"};
    for (std::size_t n = 1; n <= flags.size(); ++n) {
        Log log;
        log.failAt(n);
        RecordingProtocol protocol(log);
        protocol.playRecord(body);
        TavBroker_Execute_args args;
        EXPECT_EQ(failureOf([&] { args.read(&protocol); }), log.failure());
        EXPECT_EQ(flagsOf(args), flags[n - 1]) << "call " << n << " failed";
    }
}
