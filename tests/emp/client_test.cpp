#include <TavIDL/emp/TavEmp.h>
#include <gtest/gtest.h>
#include <support/Recording.h>
#include <support/Samples.h>

using namespace recording;

namespace {

class TavEmpClientTest : public testing::Test {
protected:
    Log log;
    TavIDL::shared_ptr<RecordingProtocol> input = make<RecordingProtocol>(log, "in.");
    TavIDL::shared_ptr<RecordingProtocol> output = make<RecordingProtocol>(log, "out.");
    TavEmpClient client{input, output};
};

const std::string kOpenRequest = R"(
out.writeMessageBegin 'Open' 1 0
out.writeStructBegin TavEmp_Open_pargs
out.writeFieldBegin clientID 8 1, writeI32 21, writeFieldEnd
out.writeFieldBegin name 11 2, writeString 'camera', writeFieldEnd
out.writeFieldBegin version 11 3, writeString '1.0', writeFieldEnd
out.writeFieldBegin credential 11 4, writeString 'key', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

const std::string kOpenReply = R"(
in.readMessageBegin 'Open' 2 7
in.readStructBegin
in.readFieldBegin 0 2, readBool true, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)";

const std::string kCloseRequest = R"(
out.writeMessageBegin 'Close' 1 0
out.writeStructBegin TavEmp_Close_pargs
out.writeFieldBegin clientID 8 1, writeI32 22, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

const std::string kCloseReply = R"(
in.readMessageBegin 'Close' 2 7
in.readStructBegin
in.readFieldBegin 0 8, readI32 -7, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)";

const std::string kExecuteRequest = R"(
out.writeMessageBegin 'Execute' 1 0
out.writeStructBegin TavEmp_Execute_pargs
out.writeFieldBegin clientID 8 1, writeI32 23, writeFieldEnd
out.writeFieldBegin cmd 11 2, writeString 'zoom', writeFieldEnd
out.writeFieldBegin param1 11 3, writeString 'a', writeFieldEnd
out.writeFieldBegin param2 11 4, writeString 'b', writeFieldEnd
out.writeFieldBegin param3 11 5, writeString 'c', writeFieldEnd
out.writeFieldBegin param4 11 6, writeString 'd', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

const std::string kExecuteReply = R"(
in.readMessageBegin 'Execute' 2 7
in.readStructBegin
in.readFieldBegin 0 11, readString 'done', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)";

const std::string kExecuteWithParamListRequest = R"(
out.writeMessageBegin 'ExecuteWithParamList' 1 0
out.writeStructBegin TavEmp_ExecuteWithParamList_pargs
out.writeFieldBegin clientID 8 1, writeI32 24, writeFieldEnd
out.writeFieldBegin cmd 11 2, writeString 'scan', writeFieldEnd
out.writeFieldBegin paramList 12 3
out.writeStructBegin ParamList
out.writeFieldBegin param1 11 1, writeString 'p1', writeFieldEnd
out.writeFieldBegin param2 11 2, writeString 'p2', writeFieldEnd
out.writeFieldBegin param3 11 3, writeString 'p3', writeFieldEnd
out.writeFieldBegin param4 11 4, writeString 'p4', writeFieldEnd
out.writeFieldBegin param5 11 5, writeString 'p5', writeFieldEnd
out.writeFieldBegin param6 11 6, writeString 'p6', writeFieldEnd
out.writeFieldBegin param7 11 7, writeString 'p7', writeFieldEnd
out.writeFieldBegin param8 11 8, writeString 'p8', writeFieldEnd
out.writeFieldBegin param9 11 9, writeString 'p9', writeFieldEnd
out.writeFieldBegin param10 11 10, writeString 'p10', writeFieldEnd
out.writeFieldStop
out.writeStructEnd, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

const std::string kExecuteWithParamListReply = R"(
in.readMessageBegin 'ExecuteWithParamList' 2 7
in.readStructBegin
in.readFieldBegin 0 11, readString 'scanned', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)";

}  // namespace

TEST_F(TavEmpClientTest, SendOpenWritesOneRequest) {
    client.send_Open(21, "camera", "1.0", "key");
    EXPECT_EQ(log.text(), kOpenRequest);
}

TEST_F(TavEmpClientTest, RecvOpenReadsOneReply) {
    input->playMessage({"Open", 2, 7, {{0, true}}});
    EXPECT_TRUE(client.recv_Open());
    EXPECT_EQ(log.text(), kOpenReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavEmpClientTest, OpenSendsAndReceives) {
    input->playMessage({"Open", 2, 7, {{0, true}}});
    EXPECT_TRUE(client.Open(21, "camera", "1.0", "key"));
    EXPECT_EQ(log.text(), kOpenRequest + kOpenReply);
}

TEST_F(TavEmpClientTest, SendCloseWritesOneRequest) {
    client.send_Close(22);
    EXPECT_EQ(log.text(), kCloseRequest);
}

TEST_F(TavEmpClientTest, RecvCloseReadsOneReply) {
    input->playMessage({"Close", 2, 7, {{0, -7}}});
    EXPECT_EQ(client.recv_Close(), -7);
    EXPECT_EQ(log.text(), kCloseReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavEmpClientTest, CloseSendsAndReceives) {
    input->playMessage({"Close", 2, 7, {{0, -7}}});
    EXPECT_EQ(client.Close(22), -7);
    EXPECT_EQ(log.text(), kCloseRequest + kCloseReply);
}

TEST_F(TavEmpClientTest, SendExecuteWritesOneRequest) {
    client.send_Execute(23, "zoom", "a", "b", "c", "d");
    EXPECT_EQ(log.text(), kExecuteRequest);
}

TEST_F(TavEmpClientTest, RecvExecuteReadsOneReply) {
    input->playMessage({"Execute", 2, 7, {{0, "done"}}});
    std::string result;
    client.recv_Execute(result);
    EXPECT_EQ(result, "done");
    EXPECT_EQ(log.text(), kExecuteReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavEmpClientTest, ExecuteSendsAndReceives) {
    input->playMessage({"Execute", 2, 7, {{0, "done"}}});
    std::string result;
    client.Execute(result, 23, "zoom", "a", "b", "c", "d");
    EXPECT_EQ(result, "done");
    EXPECT_EQ(log.text(), kExecuteRequest + kExecuteReply);
}

TEST_F(TavEmpClientTest, SendExecuteWithParamListWritesOneRequest) {
    client.send_ExecuteWithParamList(24, "scan", someParamList());
    EXPECT_EQ(log.text(), kExecuteWithParamListRequest);
}

TEST_F(TavEmpClientTest, RecvExecuteWithParamListReadsOneReply) {
    input->playMessage({"ExecuteWithParamList", 2, 7, {{0, "scanned"}}});
    std::string result;
    client.recv_ExecuteWithParamList(result);
    EXPECT_EQ(result, "scanned");
    EXPECT_EQ(log.text(), kExecuteWithParamListReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavEmpClientTest, ExecuteWithParamListSendsAndReceives) {
    input->playMessage({"ExecuteWithParamList", 2, 7, {{0, "scanned"}}});
    std::string result;
    client.ExecuteWithParamList(result, 24, "scan", someParamList());
    EXPECT_EQ(result, "scanned");
    EXPECT_EQ(log.text(), kExecuteWithParamListRequest + kExecuteWithParamListReply);
}

TEST_F(TavEmpClientTest, OpenReturnsFalseFromTheEmp) {
    input->playMessage({"Open", 2, 0, {{0, false}}});
    EXPECT_FALSE(client.Open(21, "camera", "1.0", "key"));
}

TEST_F(TavEmpClientTest, ACloseResultOfTypeStringIsSkippedAndMissing) {
    input->playMessage({"Close", 2, 0, {{0, "-7"}}});
    EXPECT_EQ(failureOf([&] { client.recv_Close(); }),
              "TApplicationException 5 'Close failed: unknown result'");
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Close' 2 0
in.readStructBegin
in.readFieldBegin 0 11, skip 11, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)");
}

TEST_F(TavEmpClientTest, ADefaultParamListIsSentWithAllItsTenFields) {
    client.send_ExecuteWithParamList(24, "scan", ParamList());
    EXPECT_EQ(log.text(), R"(
out.writeMessageBegin 'ExecuteWithParamList' 1 0
out.writeStructBegin TavEmp_ExecuteWithParamList_pargs
out.writeFieldBegin clientID 8 1, writeI32 24, writeFieldEnd
out.writeFieldBegin cmd 11 2, writeString 'scan', writeFieldEnd
out.writeFieldBegin paramList 12 3
out.writeStructBegin ParamList
out.writeFieldBegin param1 11 1, writeString '', writeFieldEnd
out.writeFieldBegin param2 11 2, writeString '', writeFieldEnd
out.writeFieldBegin param3 11 3, writeString '', writeFieldEnd
out.writeFieldBegin param4 11 4, writeString '', writeFieldEnd
out.writeFieldBegin param5 11 5, writeString '', writeFieldEnd
out.writeFieldBegin param6 11 6, writeString '', writeFieldEnd
out.writeFieldBegin param7 11 7, writeString '', writeFieldEnd
out.writeFieldBegin param8 11 8, writeString '', writeFieldEnd
out.writeFieldBegin param9 11 9, writeString '', writeFieldEnd
out.writeFieldBegin param10 11 10, writeString '', writeFieldEnd
out.writeFieldStop
out.writeStructEnd, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpClientTest, ExecuteWithParamListRejectsAReplyToExecute) {
    std::string result = "before";
    input->playMessage({"Execute", 2, 0, {{0, "done"}}});
    EXPECT_EQ(failureOf([&] { client.recv_ExecuteWithParamList(result); }),
              "TApplicationException 3 'TApplicationException: Wrong method name'");
    EXPECT_EQ(result, "before");
}

TEST_F(TavEmpClientTest, CallsThroughTheInterfaceReachTheClient) {
    TavEmpIf& emp = client;
    input->playMessage({"Close", 2, 7, {{0, -7}}});
    EXPECT_EQ(emp.Close(22), -7);
    EXPECT_EQ(log.text(), kCloseRequest + kCloseReply);
}
