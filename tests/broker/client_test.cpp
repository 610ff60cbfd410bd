#include <TavIDL/broker/TavBroker.h>
#include <gtest/gtest.h>
#include <support/Recording.h>
#include <support/Samples.h>

using namespace recording;

namespace {

class TavBrokerClientTest : public testing::Test {
protected:
    Log log;
    TavIDL::shared_ptr<RecordingProtocol> input = make<RecordingProtocol>(log, "in.");
    TavIDL::shared_ptr<RecordingProtocol> output = make<RecordingProtocol>(log, "out.");
    TavBrokerClient client{input, output};
};

const std::string kOpenEmpRequest = R"(
out.writeMessageBegin 'OpenEmp' 1 0
out.writeStructBegin TavBroker_OpenEmp_pargs
out.writeFieldBegin name 11 1, writeString 'camera', writeFieldEnd
out.writeFieldBegin version 11 2, writeString '1.0', writeFieldEnd
out.writeFieldBegin credential 11 3, writeString 'key', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

const std::string kOpenEmpReply = R"(
in.readMessageBegin 'OpenEmp' 2 7
in.readStructBegin
in.readFieldBegin 0 12
in.readStructBegin
in.readFieldBegin 1 8, readI32 4711, readFieldEnd
in.readFieldBegin 2 8, readI32 4712, readFieldEnd
in.readFieldBegin 3 11, readString 'emp-7', readFieldEnd
in.readFieldBegin stop
in.readStructEnd, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)";

const std::string kExecuteRequest = R"(
out.writeMessageBegin 'Execute' 1 0
out.writeStructBegin TavBroker_Execute_pargs
out.writeFieldBegin fromPort 8 1, writeI32 5001, writeFieldEnd
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

const std::string kCloseEmpRequest = R"(
out.writeMessageBegin 'CloseEmp' 1 0
out.writeStructBegin TavBroker_CloseEmp_pargs
out.writeFieldBegin connectionInfo 12 1
out.writeStructBegin ConnectionInfo
out.writeFieldBegin callbackServicePort 8 1, writeI32 4711, writeFieldEnd
out.writeFieldBegin empServicePort 8 2, writeI32 4712, writeFieldEnd
out.writeFieldBegin empID 11 3, writeString 'emp-7', writeFieldEnd
out.writeFieldStop
out.writeStructEnd, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

const std::string kCloseEmpReply = R"(
in.readMessageBegin 'CloseEmp' 2 7
in.readStructBegin
in.readFieldBegin 0 2, readBool true, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)";

}  // namespace

TEST_F(TavBrokerClientTest, SendOpenEmpWritesOneRequest) {
    client.send_OpenEmp("camera", "1.0", "key");
    EXPECT_EQ(log.text(), kOpenEmpRequest);
}

TEST_F(TavBrokerClientTest, RecvOpenEmpReadsOneReply) {
    input->playMessage({"OpenEmp", 2, 7, {{0, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}});
    ConnectionInfo result;
    client.recv_OpenEmp(result);
    EXPECT_EQ(result, someConnectionInfo());
    EXPECT_EQ(log.text(), kOpenEmpReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavBrokerClientTest, OpenEmpSendsAndReceives) {
    input->playMessage({"OpenEmp", 2, 7, {{0, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}});
    ConnectionInfo result;
    client.OpenEmp(result, "camera", "1.0", "key");
    EXPECT_EQ(result, someConnectionInfo());
    EXPECT_EQ(log.text(), kOpenEmpRequest + kOpenEmpReply);
}

TEST_F(TavBrokerClientTest, SendExecuteWritesOneRequest) {
    client.send_Execute(5001, "zoom", "a", "b", "c", "d");
    EXPECT_EQ(log.text(), kExecuteRequest);
}

TEST_F(TavBrokerClientTest, RecvExecuteReadsOneReply) {
    input->playMessage({"Execute", 2, 7, {{0, "done"}}});
    std::string result;
    client.recv_Execute(result);
    EXPECT_EQ(result, "done");
    EXPECT_EQ(log.text(), kExecuteReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavBrokerClientTest, ExecuteSendsAndReceives) {
    input->playMessage({"Execute", 2, 7, {{0, "done"}}});
    std::string result;
    client.Execute(result, 5001, "zoom", "a", "b", "c", "d");
    EXPECT_EQ(result, "done");
    EXPECT_EQ(log.text(), kExecuteRequest + kExecuteReply);
}

TEST_F(TavBrokerClientTest, SendCloseEmpWritesOneRequest) {
    client.send_CloseEmp(someConnectionInfo());
    EXPECT_EQ(log.text(), kCloseEmpRequest);
}

TEST_F(TavBrokerClientTest, RecvCloseEmpReadsOneReply) {
    input->playMessage({"CloseEmp", 2, 7, {{0, true}}});
    EXPECT_TRUE(client.recv_CloseEmp());
    EXPECT_EQ(log.text(), kCloseEmpReply);
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavBrokerClientTest, CloseEmpSendsAndReceives) {
    input->playMessage({"CloseEmp", 2, 7, {{0, true}}});
    EXPECT_TRUE(client.CloseEmp(someConnectionInfo()));
    EXPECT_EQ(log.text(), kCloseEmpRequest + kCloseEmpReply);
}

TEST_F(TavBrokerClientTest, CloseEmpReturnsFalseFromTheBroker) {
    input->playMessage({"CloseEmp", 2, 0, {{0, false}}});
    EXPECT_FALSE(client.CloseEmp(someConnectionInfo()));
}

TEST_F(TavBrokerClientTest, CloseEmpThrowsMissingResultWhenTheReplyHasNoResult) {
    input->playMessage({"CloseEmp", 2, 0, {}});
    EXPECT_EQ(failureOf([&] { client.CloseEmp(someConnectionInfo()); }),
              "TApplicationException 5 'CloseEmp failed: unknown result'");
}

TEST_F(TavBrokerClientTest, OpenEmpThrowsMissingResultWhenTheReplyHasNoResult) {
    ConnectionInfo result;
    input->playMessage({"OpenEmp", 2, 0, {}});
    EXPECT_EQ(failureOf([&] { client.OpenEmp(result, "camera", "1.0", "key"); }),
              "TApplicationException 5 'OpenEmp failed: unknown result'");
}

TEST_F(TavBrokerClientTest, ExecuteSendsAllFieldsEvenWhenTheyAreEmpty) {
    client.send_Execute(-1, "", "", "", "", "");
    EXPECT_EQ(log.text(), R"(
out.writeMessageBegin 'Execute' 1 0
out.writeStructBegin TavBroker_Execute_pargs
out.writeFieldBegin fromPort 8 1, writeI32 -1, writeFieldEnd
out.writeFieldBegin cmd 11 2, writeString '', writeFieldEnd
out.writeFieldBegin param1 11 3, writeString '', writeFieldEnd
out.writeFieldBegin param2 11 4, writeString '', writeFieldEnd
out.writeFieldBegin param3 11 5, writeString '', writeFieldEnd
out.writeFieldBegin param4 11 6, writeString '', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerClientTest, TwoOpenEmpCallsInARowBothSendSeqidZero) {
    client.send_OpenEmp("camera", "1.0", "key");
    client.send_OpenEmp("camera", "1.0", "key");
    EXPECT_EQ(log.text(), kOpenEmpRequest + kOpenEmpRequest);
}

TEST_F(TavBrokerClientTest, OpenEmpRejectsAReplyToExecuteAndReadsTheNextReplyFromItsStart) {
    ConnectionInfo result;
    input->playMessage({"Execute", 2, 0, {{0, "done"}}});
    input->playMessage({"OpenEmp", 2, 7, {{0, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}});
    EXPECT_EQ(failureOf([&] { client.recv_OpenEmp(result); }),
              "TApplicationException 3 'TApplicationException: Wrong method name'");
    EXPECT_EQ(result, ConnectionInfo());
    client.recv_OpenEmp(result);
    EXPECT_EQ(result, someConnectionInfo());
}

TEST_F(TavBrokerClientTest, AReplyWithALowercaseNameIsRejected) {
    ConnectionInfo result;
    input->playMessage({"openemp", 2, 0, {{0, Struct{{1, 4711}}}}});
    EXPECT_EQ(failureOf([&] { client.OpenEmp(result, "camera", "1.0", "key"); }),
              "TApplicationException 3 'TApplicationException: Wrong method name'");
}

TEST_F(TavBrokerClientTest, TheCallerOfOpenEmpGetsTheTextOfAHandlersFailure) {
    ConnectionInfo result;
    input->playMessage({"OpenEmp", 3, 0, {{1, "no such camera"}, {2, 0}}});
    EXPECT_EQ(failureOf([&] { client.OpenEmp(result, "camera", "1.0", "key"); }),
              "TApplicationException 0 'no such camera'");
}

TEST_F(TavBrokerClientTest, CallsThroughTheInterfaceReachTheClient) {
    TavBrokerIf& broker = client;
    std::string result;
    input->playMessage({"Execute", 2, 7, {{0, "done"}}});
    broker.Execute(result, 5001, "zoom", "a", "b", "c", "d");
    EXPECT_EQ(log.text(), kExecuteRequest + kExecuteReply);
}

TEST_F(TavBrokerClientTest, AResultMayHoldWhatWasReadBeforeTheFailure) {
    ConnectionInfo result;
    input->playMessage({"OpenEmp", 2, 0, {{0, Struct{{1, 4711}, {2, 4712}}}}});
    log.failAt(7);  // the end of the first nested field
    EXPECT_EQ(failureOf([&] { client.recv_OpenEmp(result); }), "TProtocolException 'call 7 fails'");
    EXPECT_EQ(result.callbackServicePort, 4711);
    EXPECT_EQ(flagsOf(result), "100");
}
