#include <TavIDL/broker/TavBroker.h>
#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>

#include <stdexcept>

using namespace recording;

namespace {

class TavBrokerProcessorTest : public testing::Test {
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
    TavIDL::shared_ptr<BrokerHandler> handler = make<BrokerHandler>(log);
    TavBrokerProcessor processor{handler};
};

}  // namespace

TEST_F(TavBrokerProcessorTest, OpenEmpIsReadRunAndAnswered) {
    EXPECT_TRUE(process({"OpenEmp", 1, 99, {{1, "camera"}, {2, "1.0"}, {3, "key"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'OpenEmp' 1 99
in.readStructBegin
in.readFieldBegin 1 11, readString 'camera', readFieldEnd
in.readFieldBegin 2 11, readString '1.0', readFieldEnd
in.readFieldBegin 3 11, readString 'key', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.OpenEmp 'camera' '1.0' 'key'
out.writeMessageBegin 'OpenEmp' 2 99
out.writeStructBegin TavBroker_OpenEmp_result
out.writeFieldBegin success 12 0
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
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, ExecuteIsReadRunAndAnswered) {
    EXPECT_TRUE(process(
        {"Execute", 1, 99, {{1, 5001}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Execute' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 5001, readFieldEnd
in.readFieldBegin 2 11, readString 'zoom', readFieldEnd
in.readFieldBegin 3 11, readString 'a', readFieldEnd
in.readFieldBegin 4 11, readString 'b', readFieldEnd
in.readFieldBegin 5 11, readString 'c', readFieldEnd
in.readFieldBegin 6 11, readString 'd', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Execute 5001 'zoom' 'a' 'b' 'c' 'd'
out.writeMessageBegin 'Execute' 2 99
out.writeStructBegin TavBroker_Execute_result
out.writeFieldBegin success 11 0, writeString 'done', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, CloseEmpIsReadRunAndAnswered) {
    EXPECT_TRUE(process({"CloseEmp", 1, 99, {{1, Struct{{1, 4711}, {2, 4712}, {3, "emp-7"}}}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'CloseEmp' 1 99
in.readStructBegin
in.readFieldBegin 1 12
in.readStructBegin
in.readFieldBegin 1 8, readI32 4711, readFieldEnd
in.readFieldBegin 2 8, readI32 4712, readFieldEnd
in.readFieldBegin 3 11, readString 'emp-7', readFieldEnd
in.readFieldBegin stop
in.readStructEnd, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.CloseEmp 4711 4712 'emp-7'
out.writeMessageBegin 'CloseEmp' 2 99
out.writeStructBegin TavBroker_CloseEmp_result
out.writeFieldBegin success 2 0, writeBool true, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, AOnewayExecuteIsRunAndAnswered) {
    EXPECT_TRUE(process({"Execute", 4, 99, {{2, "zoom"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Execute' 4 99
in.readStructBegin
in.readFieldBegin 2 11, readString 'zoom', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Execute 0 'zoom' '' '' '' ''
out.writeMessageBegin 'Execute' 2 99
out.writeStructBegin TavBroker_Execute_result
out.writeFieldBegin success 11 0, writeString 'done', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, AMessageOfAnotherTypeIsAnsweredAndTheNextIsReadFromItsStart) {
    EXPECT_TRUE(process({"Execute", 2, 98, {{2, "zoom"}}}));
    EXPECT_TRUE(process({"CloseEmp", 1, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Execute' 2 98
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'Execute' 3 98
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString '', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 2, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd
in.readMessageBegin 'CloseEmp' 1 99
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.CloseEmp 0 0 ''
out.writeMessageBegin 'CloseEmp' 2 99
out.writeStructBegin TavBroker_CloseEmp_result
out.writeFieldBegin success 2 0, writeBool true, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, ANameInAnotherCaseIsAnUnknownMethod) {
    EXPECT_TRUE(process({"openEmp", 1, 99, {{1, "camera"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'openEmp' 1 99
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'openEmp' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString 'Invalid method name: 'openEmp'', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 1, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_F(TavBrokerProcessorTest, AnExecuteWithoutFieldOneReachesTheHandlerWithPortZero) {
    EXPECT_TRUE(process({"Execute", 1, 99, {{7, "later"}, {2, "zoom"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Execute' 1 99
in.readStructBegin
in.readFieldBegin 7 11, skip 11, readFieldEnd
in.readFieldBegin 2 11, readString 'zoom', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Execute 0 'zoom' '' '' '' ''
out.writeMessageBegin 'Execute' 2 99
out.writeStructBegin TavBroker_Execute_result
out.writeFieldBegin success 11 0, writeString 'done', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, ACloseEmpHandlerThatThrowsIsAnsweredWithItsTextAndNoReply) {
    handler->work = [] { throw std::runtime_error("boom"); };
    EXPECT_TRUE(process({"CloseEmp", 1, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'CloseEmp' 1 99
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.CloseEmp 0 0 ''
out.writeMessageBegin 'CloseEmp' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString 'boom', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 0, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavBrokerProcessorTest, ACloseEmpHandlersFalseIsWritten) {
    handler->closed = false;
    EXPECT_TRUE(process({"CloseEmp", 1, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'CloseEmp' 1 99
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.CloseEmp 0 0 ''
out.writeMessageBegin 'CloseEmp' 2 99
out.writeStructBegin TavBroker_CloseEmp_result
out.writeFieldBegin success 2 0, writeBool false, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}
