#include <TavIDL/event/TavEmpEvent.h>
#include <gtest/gtest.h>
#include <support/Recording.h>

using namespace recording;

namespace {

class TavEmpEventClientTest : public testing::Test {
protected:
    Log log;
    TavIDL::shared_ptr<RecordingProtocol> input = make<RecordingProtocol>(log, "in.");
    TavIDL::shared_ptr<RecordingProtocol> output = make<RecordingProtocol>(log, "out.");
    TavEmpEventClient client{input, output};
};

const std::string kCallbackRequest = R"(
out.writeMessageBegin 'Callback' 1 0
out.writeStructBegin TavEmpEvent_Callback_pargs
out.writeFieldBegin eventType 8 1, writeI32 31, writeFieldEnd
out.writeFieldBegin param1 11 2, writeString 'moved', writeFieldEnd
out.writeFieldBegin param2 11 3, writeString 'north', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";

}  // namespace

TEST_F(TavEmpEventClientTest, SendCallbackWritesOneRequest) {
    client.send_Callback(31, "moved", "north");
    EXPECT_EQ(log.text(), kCallbackRequest);
}

TEST_F(TavEmpEventClientTest, CallbackOnlySends) {
    client.Callback(31, "moved", "north");
    EXPECT_EQ(log.text(), kCallbackRequest);
}

TEST_F(TavEmpEventClientTest, TwoCallsInARowBothCarrySeqidZero) {
    client.Callback(31, "moved", "north");
    client.Callback(31, "moved", "north");
    EXPECT_EQ(log.text(), kCallbackRequest + kCallbackRequest);
}

TEST_F(TavEmpEventClientTest, EmptyStringsAreWritten) {
    client.Callback(0, "", "");
    EXPECT_EQ(log.text(), R"(
out.writeMessageBegin 'Callback' 1 0
out.writeStructBegin TavEmpEvent_Callback_pargs
out.writeFieldBegin eventType 8 1, writeI32 0, writeFieldEnd
out.writeFieldBegin param1 11 2, writeString '', writeFieldEnd
out.writeFieldBegin param2 11 3, writeString '', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpEventClientTest, NothingIsReadFromTheInputAfterACallback) {
    input->playMessage({"Callback", 2, 0, {}});
    client.Callback(31, "moved", "north");
    EXPECT_FALSE(input->playedToItsEnd());
    EXPECT_EQ(log.text(), kCallbackRequest);
}

TEST_F(TavEmpEventClientTest, CallsThroughTheInterfaceReachTheClient) {
    TavEmpEventIf& service = client;
    service.Callback(31, "moved", "north");
    EXPECT_EQ(log.text(), kCallbackRequest);
}
