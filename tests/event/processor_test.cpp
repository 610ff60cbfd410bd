#include <TavIDL/event/TavEmpEvent.h>
#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>

using namespace recording;

namespace {

class TavEmpEventProcessorTest : public testing::Test {
protected:
    // Processes one message, like libthrift's servers.
    bool process(const Message& message) {
        input->playMessage(message);
        apache::thrift::TProcessor& base = processor;
        return recording::process(base, input, output);
    }

    Log log;
    TavIDL::shared_ptr<RecordingProtocol> input = make<RecordingProtocol>(log, "in.");
    TavIDL::shared_ptr<RecordingProtocol> output = make<RecordingProtocol>(log, "out.");
    TavIDL::shared_ptr<EventHandler> handler = make<EventHandler>(log);
    TavEmpEventProcessor processor{handler};
};

}  // namespace

TEST_F(TavEmpEventProcessorTest, CallbackIsReadAndRunWithoutAnAnswer) {
    EXPECT_TRUE(process({"Callback", 1, 99, {{1, 31}, {2, "moved"}, {3, "north"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Callback' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 31, readFieldEnd
in.readFieldBegin 2 11, readString 'moved', readFieldEnd
in.readFieldBegin 3 11, readString 'north', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Callback 31 'moved' 'north')");
}

TEST_F(TavEmpEventProcessorTest, AOnewayCallbackIsHandledLikeACall) {
    EXPECT_TRUE(process({"Callback", 4, 99, {{1, 31}, {2, "moved"}, {3, "north"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Callback' 4 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 31, readFieldEnd
in.readFieldBegin 2 11, readString 'moved', readFieldEnd
in.readFieldBegin 3 11, readString 'north', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Callback 31 'moved' 'north')");
}

TEST_F(TavEmpEventProcessorTest, ACallbackWithoutFieldOneReachesTheHandlerWithEventTypeZero) {
    EXPECT_TRUE(process({"Callback", 1, 99, {{2, "moved"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Callback' 1 99
in.readStructBegin
in.readFieldBegin 2 11, readString 'moved', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Callback 0 'moved' '')");
}

TEST_F(TavEmpEventProcessorTest, AReplyIsAnsweredAsAnInvalidMessageTypeWithItsNameAndSeqid) {
    EXPECT_TRUE(process({"Callback", 2, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Callback' 2 99
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'Callback' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString '', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 2, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpEventProcessorTest, ALowercaseNameIsAnUnknownMethod) {
    EXPECT_TRUE(process({"callback", 1, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'callback' 1 99
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'callback' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString 'Invalid method name: 'callback'', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 1, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpEventProcessorTest, AHandlerThatThrowsLeavesTheOutputUntouched) {
    using apache::thrift::TApplicationException;
    handler->work = [] { throw TApplicationException(TApplicationException::UNKNOWN, "x"); };
    EXPECT_TRUE(process({"Callback", 1, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Callback' 1 99
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Callback 0 '' '')");
}
