#include <TavIDL/emp/TavEmp.h>
#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>

#include <stdexcept>

using namespace recording;

namespace {

class TavEmpProcessorTest : public testing::Test {
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
    TavIDL::shared_ptr<EmpHandler> handler = make<EmpHandler>(log);
    TavEmpProcessor processor{handler};
};

}  // namespace

TEST_F(TavEmpProcessorTest, OpenIsReadRunAndAnswered) {
    EXPECT_TRUE(process({"Open", 1, 99, {{1, 21}, {2, "camera"}, {3, "1.0"}, {4, "key"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Open' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 21, readFieldEnd
in.readFieldBegin 2 11, readString 'camera', readFieldEnd
in.readFieldBegin 3 11, readString '1.0', readFieldEnd
in.readFieldBegin 4 11, readString 'key', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Open 21 'camera' '1.0' 'key'
out.writeMessageBegin 'Open' 2 99
out.writeStructBegin TavEmp_Open_result
out.writeFieldBegin success 2 0, writeBool true, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, CloseIsReadRunAndAnswered) {
    EXPECT_TRUE(process({"Close", 1, 99, {{1, 22}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Close' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 22, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Close 22
out.writeMessageBegin 'Close' 2 99
out.writeStructBegin TavEmp_Close_result
out.writeFieldBegin success 8 0, writeI32 -7, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, ExecuteIsReadRunAndAnswered) {
    EXPECT_TRUE(process(
        {"Execute", 1, 99, {{1, 23}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Execute' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 23, readFieldEnd
in.readFieldBegin 2 11, readString 'zoom', readFieldEnd
in.readFieldBegin 3 11, readString 'a', readFieldEnd
in.readFieldBegin 4 11, readString 'b', readFieldEnd
in.readFieldBegin 5 11, readString 'c', readFieldEnd
in.readFieldBegin 6 11, readString 'd', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Execute 23 'zoom' 'a' 'b' 'c' 'd'
out.writeMessageBegin 'Execute' 2 99
out.writeStructBegin TavEmp_Execute_result
out.writeFieldBegin success 11 0, writeString 'done', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, ExecuteWithParamListIsReadRunAndAnswered) {
    EXPECT_TRUE(process({"ExecuteWithParamList",
                         1,
                         99,
                         {{1, 24},
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
                                     {10, "p10"}}}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'ExecuteWithParamList' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 24, readFieldEnd
in.readFieldBegin 2 11, readString 'scan', readFieldEnd
in.readFieldBegin 3 12
in.readStructBegin
in.readFieldBegin 1 11, readString 'p1', readFieldEnd
in.readFieldBegin 2 11, readString 'p2', readFieldEnd
in.readFieldBegin 3 11, readString 'p3', readFieldEnd
in.readFieldBegin 4 11, readString 'p4', readFieldEnd
in.readFieldBegin 5 11, readString 'p5', readFieldEnd
in.readFieldBegin 6 11, readString 'p6', readFieldEnd
in.readFieldBegin 7 11, readString 'p7', readFieldEnd
in.readFieldBegin 8 11, readString 'p8', readFieldEnd
in.readFieldBegin 9 11, readString 'p9', readFieldEnd
in.readFieldBegin 10 11, readString 'p10', readFieldEnd
in.readFieldBegin stop
in.readStructEnd, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.ExecuteWithParamList 24 'scan' 'p1' 'p2' 'p3' 'p4' 'p5' 'p6' 'p7' 'p8' 'p9' 'p10'
out.writeMessageBegin 'ExecuteWithParamList' 2 99
out.writeStructBegin TavEmp_ExecuteWithParamList_result
out.writeFieldBegin success 11 0, writeString 'scanned', writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, AOnewayCloseIsRunAndAnsweredWithTheHandlersNumber) {
    EXPECT_TRUE(process({"Close", 4, 99, {{1, 22}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Close' 4 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 22, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Close 22
out.writeMessageBegin 'Close' 2 99
out.writeStructBegin TavEmp_Close_result
out.writeFieldBegin success 8 0, writeI32 -7, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, AnExceptionMessageIsAnsweredAndTheNextIsReadFromItsStart) {
    EXPECT_TRUE(process({"Close", 3, 98, {{1, "why"}}}));
    EXPECT_TRUE(process({"Close", 1, 99, {}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Close' 3 98
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'Close' 3 98
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString '', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 2, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd
in.readMessageBegin 'Close' 1 99
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Close 0
out.writeMessageBegin 'Close' 2 99
out.writeStructBegin TavEmp_Close_result
out.writeFieldBegin success 8 0, writeI32 -7, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, ABrokersOperationIsAnUnknownMethod) {
    EXPECT_TRUE(process({"OpenEmp", 1, 99, {{1, "camera"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'OpenEmp' 1 99
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'OpenEmp' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString 'Invalid method name: 'OpenEmp'', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 1, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest,
       AnExecuteWithParamListWithoutFieldThreeReachesTheHandlerWithAnEmptyList) {
    EXPECT_TRUE(process({"ExecuteWithParamList", 1, 99, {{1, 24}, {2, "scan"}}}));
    EXPECT_NE(
        log.text().find("\nhandler.ExecuteWithParamList 24 'scan' '' '' '' '' '' '' '' '' '' ''\n"),
        std::string::npos);
}

TEST_F(TavEmpProcessorTest, AnExecuteWithParamListWithoutFieldOneReachesTheHandlerWithClientZero) {
    EXPECT_TRUE(process({"ExecuteWithParamList", 1, 99, {{2, "scan"}}}));
    EXPECT_NE(log.text().find("\nhandler.ExecuteWithParamList 0 'scan' "), std::string::npos);
}

TEST_F(TavEmpProcessorTest, ACloseHandlersZeroIsWritten) {
    handler->closed = 0;
    EXPECT_TRUE(process({"Close", 1, 99, {{1, 22}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Close' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 22, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Close 22
out.writeMessageBegin 'Close' 2 99
out.writeStructBegin TavEmp_Close_result
out.writeFieldBegin success 8 0, writeI32 0, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, AnOpenHandlersFalseIsWritten) {
    handler->opened = false;
    EXPECT_TRUE(process({"Open", 1, 99, {{1, 21}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Open' 1 99
in.readStructBegin
in.readFieldBegin 1 8, readI32 21, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Open 21 '' '' ''
out.writeMessageBegin 'Open' 2 99
out.writeStructBegin TavEmp_Open_result
out.writeFieldBegin success 2 0, writeBool false, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

TEST_F(TavEmpProcessorTest, AnExecuteHandlerThatThrowsIsAnsweredWithItsTextAndNoReply) {
    handler->work = [] { throw std::runtime_error("out of film"); };
    EXPECT_TRUE(process({"Execute", 1, 99, {{2, "zoom"}}}));
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Execute' 1 99
in.readStructBegin
in.readFieldBegin 2 11, readString 'zoom', readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Execute 0 'zoom' '' '' '' ''
out.writeMessageBegin 'Execute' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString 'out of film', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 0, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}
