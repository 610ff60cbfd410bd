#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>
#include <support/Samples.h>
#include <thrift/protocol/TProtocolException.h>
#include <thrift/transport/TTransportException.h>

#include <csignal>
#include <limits>
#include <new>
#include <stdexcept>

using namespace recording;
using apache::thrift::TApplicationException;
using apache::thrift::TException;
using apache::thrift::TProcessor;
using apache::thrift::protocol::TProtocolException;
using apache::thrift::transport::TTransportException;

// Tests for every operation of every service.
namespace {

using Protocol = TavIDL::shared_ptr<RecordingProtocol>;
using Work = std::function<void()>;

struct Operation {
    std::string service;
    std::string name;
    Struct arguments;
    Struct result;  // empty if the operation is one-way
    std::function<void(const Protocol&)> send;
    std::function<void(const Protocol&)> receive;
    std::function<void(const Protocol& input, const Protocol& output)> call;
    // A processor whose handler does `work`; without, one that has no handler.
    std::function<TavIDL::shared_ptr<TProcessor>(Log&, const Work*)> processor;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.service << " " << operation.name;
}

template <typename Processor, typename HandlerClass>
TavIDL::shared_ptr<TProcessor> makeProcessor(Log& log, const Work* work) {
    if (work == nullptr) {
        return make<Processor>(nullptr);
    }
    const auto handler = make<HandlerClass>(log);
    handler->work = *work;
    return make<Processor>(handler);
}

std::vector<Operation> operations() {
    const auto broker = makeProcessor<TavBrokerProcessor, BrokerHandler>;
    const auto emp = makeProcessor<TavEmpProcessor, EmpHandler>;
    const auto event = makeProcessor<TavEmpEventProcessor, EventHandler>;
    const Struct info = {{1, 4711}, {2, 4712}, {3, "emp-7"}};
    return {
        {"TavBroker",
         "OpenEmp",
         {{1, "camera"}, {2, "1.0"}, {3, "key"}},
         {{0, info}},
         [](const Protocol& output) {
             TavBrokerClient(output).send_OpenEmp("camera", "1.0", "key");
         },
         [](const Protocol& input) {
             ConnectionInfo result;
             TavBrokerClient(input).recv_OpenEmp(result);
         },
         [](const Protocol& input, const Protocol& output) {
             ConnectionInfo result;
             TavBrokerClient(input, output).OpenEmp(result, "camera", "1.0", "key");
         },
         broker},
        {"TavBroker",
         "Execute",
         {{1, 5001}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}},
         {{0, "done"}},
         [](const Protocol& output) {
             TavBrokerClient(output).send_Execute(5001, "zoom", "a", "b", "c", "d");
         },
         [](const Protocol& input) {
             std::string result;
             TavBrokerClient(input).recv_Execute(result);
         },
         [](const Protocol& input, const Protocol& output) {
             std::string result;
             TavBrokerClient(input, output).Execute(result, 5001, "zoom", "a", "b", "c", "d");
         },
         broker},
        {"TavBroker",
         "CloseEmp",
         {{1, info}},
         {{0, true}},
         [](const Protocol& output) {
             TavBrokerClient(output).send_CloseEmp(someConnectionInfo());
         },
         [](const Protocol& input) { TavBrokerClient(input).recv_CloseEmp(); },
         [](const Protocol& input, const Protocol& output) {
             TavBrokerClient(input, output).CloseEmp(someConnectionInfo());
         },
         broker},
        {"TavEmp",
         "Open",
         {{1, 21}, {2, "camera"}, {3, "1.0"}, {4, "key"}},
         {{0, true}},
         [](const Protocol& output) { TavEmpClient(output).send_Open(21, "camera", "1.0", "key"); },
         [](const Protocol& input) { TavEmpClient(input).recv_Open(); },
         [](const Protocol& input, const Protocol& output) {
             TavEmpClient(input, output).Open(21, "camera", "1.0", "key");
         },
         emp},
        {"TavEmp",
         "Close",
         {{1, 22}},
         {{0, -7}},
         [](const Protocol& output) { TavEmpClient(output).send_Close(22); },
         [](const Protocol& input) { TavEmpClient(input).recv_Close(); },
         [](const Protocol& input, const Protocol& output) {
             TavEmpClient(input, output).Close(22);
         },
         emp},
        {"TavEmp",
         "Execute",
         {{1, 23}, {2, "zoom"}, {3, "a"}, {4, "b"}, {5, "c"}, {6, "d"}},
         {{0, "done"}},
         [](const Protocol& output) {
             TavEmpClient(output).send_Execute(23, "zoom", "a", "b", "c", "d");
         },
         [](const Protocol& input) {
             std::string result;
             TavEmpClient(input).recv_Execute(result);
         },
         [](const Protocol& input, const Protocol& output) {
             std::string result;
             TavEmpClient(input, output).Execute(result, 23, "zoom", "a", "b", "c", "d");
         },
         emp},
        {"TavEmp",
         "ExecuteWithParamList",
         {{1, 24}, {2, "scan"}, {3, Struct{{1, "p1"}, {10, "p10"}}}},
         {{0, "scanned"}},
         [](const Protocol& output) {
             TavEmpClient(output).send_ExecuteWithParamList(24, "scan", someParamList());
         },
         [](const Protocol& input) {
             std::string result;
             TavEmpClient(input).recv_ExecuteWithParamList(result);
         },
         [](const Protocol& input, const Protocol& output) {
             std::string result;
             TavEmpClient(input, output).ExecuteWithParamList(result, 24, "scan", someParamList());
         },
         emp},
        {"TavEmpEvent",
         "Callback",
         {{1, 31}, {2, "moved"}, {3, "north"}},
         {},
         [](const Protocol& output) {
             TavEmpEventClient(output).send_Callback(31, "moved", "north");
         },
         nullptr,
         [](const Protocol& input, const Protocol& output) {
             TavEmpEventClient(input, output).Callback(31, "moved", "north");
         },
         event},
    };
}

std::vector<Operation> twoWayOperations() {
    std::vector<Operation> all = operations();
    all.pop_back();
    return all;
}

std::string nameOf(const testing::TestParamInfo<Operation>& info) {
    return info.param.service + info.param.name;
}

Message replyTo(const Operation& operation, int32_t seqid = 0) {
    return {operation.name, 2, seqid, operation.result};
}

Message requestOf(const Operation& operation, int32_t seqid = 99) {
    return {operation.name, 1, seqid, operation.arguments};
}

// The failure reply, as in the log.
std::string exceptionReply(const std::string& name, const std::string& seqid,
                           const std::string& text, const std::string& kind) {
    return "\nout.writeMessageBegin '" + name + "' 3 " + seqid +
           "\nout.writeStructBegin TApplicationException"
           "\nout.writeFieldBegin message 11 1, writeString '" +
           text +
           "', writeFieldEnd"
           "\nout.writeFieldBegin type 8 2, writeI32 " +
           kind + R"(, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)";
}

class CallTest : public testing::TestWithParam<Operation> {
protected:
    // The outcome of a reply: the failure and the calls.
    std::string receive(const Message& reply) {
        input->playMessage(reply);
        return failureOf([&] { GetParam().receive(input); });
    }

    Log log;
    Protocol input = make<RecordingProtocol>(log, "in.");
    Protocol output = make<RecordingProtocol>(log, "out.");
};
using ReplyTest = CallTest;

class ServeTest : public CallTest {
protected:
    bool process(
        const Message& request, const Work& work = [] {}) {
        input->playMessage(request);
        return recording::process(*GetParam().processor(log, &work), input, output);
    }

    // The calls of writing, without those before.
    std::string written() const {
        const std::size_t begin = log.text().find("\nout.");
        return begin == std::string::npos ? "" : log.text().substr(begin);
    }

    std::string answerTo(const Work& work) {
        EXPECT_TRUE(process(requestOf(GetParam()), work));
        return written();
    }
};
using TwoWayTest = ServeTest;

INSTANTIATE_TEST_SUITE_P(Of, CallTest, testing::ValuesIn(operations()), nameOf);
INSTANTIATE_TEST_SUITE_P(To, ReplyTest, testing::ValuesIn(twoWayOperations()), nameOf);
INSTANTIATE_TEST_SUITE_P(Of, ServeTest, testing::ValuesIn(operations()), nameOf);
INSTANTIATE_TEST_SUITE_P(Of, TwoWayTest, testing::ValuesIn(twoWayOperations()), nameOf);

}  // namespace

// --- Calling side

TEST_P(CallTest, EveryFailureToSendPassesThrough) {
    expectEveryFailureToPass([](Log& own) { GetParam().send(make<RecordingProtocol>(own)); });
}

TEST_P(CallTest, EveryFailureOfTheWholeCallPassesThrough) {
    expectEveryFailureToPass([](Log& own) {
        const auto protocol = make<RecordingProtocol>(own);
        protocol->playMessage(replyTo(GetParam()));
        GetParam().call(protocol, protocol);
    });
}

TEST_P(CallTest, OneProtocolIsUsedInBothDirections) {
    input->playMessage(replyTo(GetParam()));
    GetParam().call(input, output);
    Log shared;
    const auto both = make<RecordingProtocol>(shared);
    both->playMessage(replyTo(GetParam()));
    GetParam().call(both, both);
    EXPECT_EQ(shared.calls(), log.calls());
}

TEST_P(ReplyTest, AReplyWithAnySeqidIsAccepted) {
    for (const int32_t seqid :
         {std::numeric_limits<int32_t>::min(), -1, 0, 7, std::numeric_limits<int32_t>::max()}) {
        EXPECT_EQ(receive(replyTo(GetParam(), seqid)), "nothing") << "seqid " << seqid;
    }
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_P(ReplyTest, ThePeersExceptionIsRethrownUnchangedWithAnyName) {
    EXPECT_EQ(receive({"AnyName", 3, 7, {{1, "Invalid method name: 'Foo'"}, {2, 1}}}),
              "TApplicationException 1 'Invalid method name: 'Foo''");
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'AnyName' 3 7
in.readStructBegin
in.readFieldBegin 1 11, readString 'Invalid method name: 'Foo'', readFieldEnd
in.readFieldBegin 2 8, readI32 1, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)");
}

TEST_P(ReplyTest, AnExceptionOfAnUnknownKindKeepsItsKind) {
    EXPECT_EQ(receive({GetParam().name, 3, 7, {{1, "odd"}, {2, 77}}}),
              "TApplicationException 77 'odd'");
}

TEST_P(ReplyTest, AMessageOfAnotherTypeIsDiscardedAndRejected) {
    for (const int type : {0, 1, 4, 5, 99, -1}) {
        Log own;
        const auto protocol = make<RecordingProtocol>(own, "in.");
        protocol->playMessage({GetParam().name, type, 7, GetParam().result});
        EXPECT_EQ(failureOf([&] { GetParam().receive(protocol); }),
                  "TApplicationException 2 'TApplicationException: Invalid message type'");
        EXPECT_EQ(own.text(),
                  "\nin.readMessageBegin '" + GetParam().name + "' " + std::to_string(type) + R"( 7
in.skip 12
in.readMessageEnd
in.readEnd)");
    }
}

TEST_P(ReplyTest, AMessageOfAnotherTypeAndNameIsRejectedForItsType) {
    EXPECT_EQ(receive({"Foo", 1, 7, {}}),
              "TApplicationException 2 'TApplicationException: Invalid message type'");
}

TEST_P(ReplyTest, AReplyWithAnotherNameIsDiscardedAndRejected) {
    EXPECT_EQ(receive({"Foo", 2, 7, GetParam().result}),
              "TApplicationException 3 'TApplicationException: Wrong method name'");
    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Foo' 2 7
in.skip 12
in.readMessageEnd
in.readEnd)");
}

TEST_P(ReplyTest, AReplyWithASimilarNameIsRejected) {
    std::string lowerCase = GetParam().name;
    lowerCase[0] = static_cast<char>(lowerCase[0] - 'A' + 'a');
    const std::string withNul("\0", 1);
    for (const std::string& name : {std::string(), lowerCase, GetParam().name + "s",
                                    GetParam().name.substr(1), GetParam().name + withNul}) {
        EXPECT_EQ(receive({name, 2, 7, GetParam().result}),
                  "TApplicationException 3 'TApplicationException: Wrong method name'")
            << name;
    }
}

TEST_P(ReplyTest, AReplyWithoutAResultIsReadToItsEndAndReportedWithTheOperationsName) {
    EXPECT_EQ(receive({GetParam().name, 2, 7, {}}),
              "TApplicationException 5 '" + GetParam().name + " failed: unknown result'");
    EXPECT_EQ(log.text(), "\nin.readMessageBegin '" + GetParam().name + R"(' 2 7
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)");
}

TEST_P(ReplyTest, AResultOfAnotherTypeIsSkippedAndMissing) {
    EXPECT_EQ(receive({GetParam().name, 2, 7, {{0, somethingOf(static_cast<TType>(4))}}}),
              "TApplicationException 5 '" + GetParam().name + " failed: unknown result'");
    EXPECT_EQ(log.text(), "\nin.readMessageBegin '" + GetParam().name + R"(' 2 7
in.readStructBegin
in.readFieldBegin 0 4, skip 4, readFieldEnd
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd)");
}

TEST_P(ReplyTest, AResultWithAnotherIdIsSkippedAndMissing) {
    EXPECT_EQ(receive({GetParam().name, 2, 7, {{1, GetParam().result[0].value}}}),
              "TApplicationException 5 '" + GetParam().name + " failed: unknown result'");
}

TEST_P(ReplyTest, AfterEveryRejectionTheNextReplyIsReadFromItsStart) {
    const std::vector<Message> refused = {{"Foo", 3, 7, {{1, "why"}, {2, 0}}},
                                          {GetParam().name, 1, 7, GetParam().result},
                                          {"Foo", 2, 7, GetParam().result},
                                          {GetParam().name, 2, 7, {}}};
    for (const Message& message : refused) {
        EXPECT_NE(receive(message), "nothing");
        EXPECT_EQ(receive(replyTo(GetParam())), "nothing");
        EXPECT_TRUE(input->playedToItsEnd());
    }
}

TEST_P(ReplyTest, EveryFailureToReceivePassesThroughInAllBranches) {
    const std::vector<Message> replies = {replyTo(GetParam()),
                                          {"Foo", 3, 7, {{1, "why"}, {2, 0}}},
                                          {GetParam().name, 1, 7, GetParam().result},
                                          {"Foo", 2, 7, GetParam().result},
                                          {GetParam().name, 2, 7, {{1, "later"}}}};
    for (const Message& reply : replies) {
        expectEveryFailureToPass([&](Log& own) {
            const auto protocol = make<RecordingProtocol>(own);
            protocol->playMessage(reply);
            GetParam().receive(protocol);
        });
    }
}

// --- Serving side

TEST_P(ServeTest, AMessageThatIsNotACallIsDiscardedAndAnsweredWithItsNameAndSeqid) {
    for (const int type : {0, 2, 3, 5, 99, -1}) {
        const std::size_t before = log.text().size();
        EXPECT_TRUE(process({GetParam().name, type, 99, GetParam().arguments}));
        EXPECT_EQ(log.text().substr(before), "\nin.readMessageBegin '" + GetParam().name + "' " +
                                                 std::to_string(type) +
                                                 R"( 99
in.skip 12
in.readMessageEnd
in.readEnd)" + exceptionReply(GetParam().name, "99", "", "2"));
        EXPECT_TRUE(input->playedToItsEnd());
    }
}

TEST_P(ServeTest, AnUnknownMethodIsDiscardedAndAnsweredWithItsNameAndSeqid) {
    std::string lowerCase = GetParam().name;
    lowerCase[0] = static_cast<char>(lowerCase[0] - 'A' + 'a');
    for (const std::string& name : {std::string("Foo"), std::string(), lowerCase,
                                    GetParam().name + "s", GetParam().name + std::string(1, 0)}) {
        const std::size_t before = log.text().size();
        EXPECT_TRUE(process({name, 1, 99, GetParam().arguments}));
        EXPECT_EQ(log.text().substr(before), "\nin.readMessageBegin '" + name + R"(' 1 99
in.skip 12
in.readMessageEnd
in.readEnd)" + exceptionReply(name, "99", "Invalid method name: '" + name + "'", "1"));
        EXPECT_TRUE(input->playedToItsEnd());
    }
}

TEST_P(ServeTest, AnUnknownOnewayMethodIsAnswered) {
    EXPECT_TRUE(process({"Foo", 4, 99, {}}));
    EXPECT_EQ(written(), exceptionReply("Foo", "99", "Invalid method name: 'Foo'", "1"));
}

TEST_P(ServeTest, FailureRepliesEchoAnySeqid) {
    for (const char* seqid : {"-2147483648", "-1", "0", "2147483647"}) {
        std::size_t before = log.text().size();
        const int32_t number = static_cast<int32_t>(std::stol(seqid));
        process({GetParam().name, 2, number, {}});
        EXPECT_NE(log.text().find(exceptionReply(GetParam().name, seqid, "", "2"), before),
                  std::string::npos);
        before = log.text().size();
        process({"Foo", 1, number, {}});
        EXPECT_NE(log.text().find(exceptionReply("Foo", seqid, "Invalid method name: 'Foo'", "1"),
                                  before),
                  std::string::npos);
    }
}

TEST_P(ServeTest, OnewayMessageIsTreatedLikeACall) {
    EXPECT_TRUE(process({GetParam().name, 1, 99, GetParam().arguments}));
    const std::string call = log.text();
    EXPECT_TRUE(process({GetParam().name, 4, 99, GetParam().arguments}));
    std::string expected = call;
    expected.replace(expected.find("' 1 99"), 6, "' 4 99");
    EXPECT_EQ(log.text(), call + expected);
}

TEST_P(ServeTest, BothFormsOfProcessDoTheSame) {
    const Work nothing = [] {};
    const auto both = [&](auto& processor) {
        input->playMessage(requestOf(GetParam()));
        EXPECT_TRUE(processor.process(input, output, nullptr));
        const std::string first = log.text();
        input->playMessage(requestOf(GetParam()));
        EXPECT_TRUE(processor.process(input, output));
        EXPECT_EQ(log.text(), first + first);
    };
    const auto processor = GetParam().processor(log, &nothing);
    if (auto* broker = dynamic_cast<TavBrokerProcessor*>(processor.get())) {
        both(*broker);
    } else if (auto* emp = dynamic_cast<TavEmpProcessor*>(processor.get())) {
        both(*emp);
    } else {
        both(dynamic_cast<TavEmpEventProcessor&>(*processor));
    }
}

TEST_P(ServeTest, AHandlersNonStandardExceptionPassesThroughWithNothingWritten) {
    EXPECT_EQ(failureOf([&] { process(requestOf(GetParam()), [] { throw 42; }); }), "int 42");
    EXPECT_EQ(written(), "");
    EXPECT_TRUE(input->playedToItsEnd());
}

TEST_P(ServeTest, EveryFailureOfAProtocolOrTransportPassesThroughOnAllPaths) {
    const Work returns = [] {};
    const Work throws = [] { throw std::runtime_error("boom"); };
    const auto serve = [](const Message& message, const Work& work) {
        expectEveryFailureToPass([&](Log& own) {
            const auto protocol = make<RecordingProtocol>(own);
            protocol->playMessage(message);
            recording::process(*GetParam().processor(own, &work), protocol, protocol);
        });
    };
    serve(requestOf(GetParam()), returns);
    serve(requestOf(GetParam()), throws);
    serve({GetParam().name, 4, 99, GetParam().arguments}, returns);
    serve({GetParam().name, 2, 99, GetParam().arguments}, returns);
    serve({"Foo", 1, 99, GetParam().arguments}, returns);
}

TEST_P(TwoWayTest, ReplyEchoesAnySeqid) {
    for (const char* seqid : {"-2147483648", "-1", "0", "2147483647"}) {
        const std::size_t before = log.text().size();
        process(requestOf(GetParam(), static_cast<int32_t>(std::stol(seqid))));
        EXPECT_NE(
            log.text().find("\nout.writeMessageBegin '" + GetParam().name + "' 2 " + seqid, before),
            std::string::npos);
    }
}

TEST_P(TwoWayTest, AHandlersFailureIsAnsweredWithItsTextAndNoReply) {
    EXPECT_EQ(answerTo([] { throw std::runtime_error("boom"); }),
              exceptionReply(GetParam().name, "99", "boom", "0"));
}

TEST_P(TwoWayTest, HandlersApplicationExceptionKeepsItsTextButNotItsKind) {
    EXPECT_EQ(
        answerTo([] { throw TApplicationException(TApplicationException::MISSING_RESULT, "x"); }),
        exceptionReply(GetParam().name, "99", "x", "0"));
}

TEST_P(TwoWayTest, AHandlersExceptionWithoutTextIsAnsweredWithLibthriftsText) {
    EXPECT_EQ(answerTo([] { throw TException(); }),
              exceptionReply(GetParam().name, "99", "Default TException.", "0"));
}

TEST_P(TwoWayTest, AHandlersApplicationExceptionWithoutTextIsAnsweredWithLibthriftsText) {
    EXPECT_EQ(answerTo([] { throw TApplicationException(TApplicationException::UNKNOWN_METHOD); }),
              exceptionReply(GetParam().name, "99", "TApplicationException: Unknown method", "0"));
}

TEST_P(TwoWayTest, HandlersTransportExceptionIsAnsweredLikeAnyOther) {
    EXPECT_EQ(answerTo([] {
                  throw TTransportException(TTransportException::NOT_OPEN, "camera unplugged");
              }),
              exceptionReply(GetParam().name, "99", "camera unplugged", "0"));
}

TEST_P(TwoWayTest, HandlersProtocolExceptionIsAnsweredLikeAnyOther) {
    EXPECT_EQ(
        answerTo([] { throw TProtocolException(TProtocolException::INVALID_DATA, "odd frame"); }),
        exceptionReply(GetParam().name, "99", "odd frame", "0"));
}

TEST_P(TwoWayTest, AFailureToWriteAReplyIsNotAnsweredLikeTheHandlers) {
    const Work nothing = [] {};
    process(requestOf(GetParam()));
    Log failing;
    failing.failAt(log.calls());  // the last call, which ends the write
    const auto protocol = make<RecordingProtocol>(failing, "out.");
    protocol->playMessage(requestOf(GetParam()));
    EXPECT_EQ(failureOf([&] {
                  recording::process(*GetParam().processor(failing, &nothing), protocol, protocol);
              }),
              failing.failure());
    EXPECT_EQ(failing.text().find("TApplicationException"), std::string::npos);
    EXPECT_EQ(failing.text().substr(failing.text().rfind('\n')), "\nout.writeEnd");
}

TEST(CallbackTest, EveryStandardExceptionFromTheHandlerIsIgnored) {
    const std::vector<Work> failures = {
        [] { throw std::runtime_error("boom"); },
        [] { throw std::bad_alloc(); },
        [] { throw TException("x"); },
        [] { throw TTransportException(TTransportException::NOT_OPEN, "x"); },
        [] { throw TProtocolException(TProtocolException::INVALID_DATA, "x"); },
    };
    for (const Work& failure : failures) {
        Log log;
        const auto input = make<RecordingProtocol>(log, "in.");
        const auto output = make<RecordingProtocol>(log, "out.");
        input->playMessage({"Callback", 1, 99, {}});
        const auto processor = makeProcessor<TavEmpEventProcessor, EventHandler>(log, &failure);
        EXPECT_TRUE(recording::process(*processor, input, output));
        EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Callback' 1 99
in.readStructBegin
in.readFieldBegin stop
in.readStructEnd
in.readMessageEnd
in.readEnd
handler.Callback 0 '' '')");
    }
}

// --- Empty pointers. The library ends the process itself, in release builds too.

const testing::KilledBySignal aborts(SIGABRT);
constexpr const char* why = "libTavIDL: the handler or the transport is a null pointer";

using CallDeathTest = CallTest;
using ReplyDeathTest = CallTest;
using ServeDeathTest = ServeTest;
INSTANTIATE_TEST_SUITE_P(Of, CallDeathTest, testing::ValuesIn(operations()), nameOf);
INSTANTIATE_TEST_SUITE_P(To, ReplyDeathTest, testing::ValuesIn(twoWayOperations()), nameOf);
INSTANTIATE_TEST_SUITE_P(Of, ServeDeathTest, testing::ValuesIn(operations()), nameOf);

TEST_P(CallDeathTest, SendingOverAProtocolWithoutTransportEndsTheProcess) {
    output->dropTransport();
    EXPECT_EXIT(GetParam().send(output), aborts, why);
}

TEST_P(ReplyDeathTest, ReceivingOverAProtocolWithoutTransportEndsTheProcess) {
    input->dropTransport();
    EXPECT_EXIT(receive(replyTo(GetParam())), aborts, why);
    EXPECT_EXIT(receive({"Foo", 3, 7, {}}), aborts, why);
    EXPECT_EXIT(receive({"Foo", 2, 7, {}}), aborts, why);
}

TEST_P(ServeDeathTest, ReadingFromAProtocolWithoutTransportEndsTheProcess) {
    input->dropTransport();
    EXPECT_EXIT(process(requestOf(GetParam())), aborts, why);
    EXPECT_EXIT(process({"Foo", 1, 99, {}}), aborts, why);
}

TEST_P(ServeDeathTest, AnsweringOverAProtocolWithoutTransportEndsTheProcess) {
    output->dropTransport();
    EXPECT_EXIT(process({"Foo", 1, 99, {}}), aborts, why);
}

TEST_P(ServeDeathTest, CallingAnEmptyHandlerEndsTheProcess) {
    const auto processor = GetParam().processor(log, nullptr);
    input->playMessage(requestOf(GetParam()));
    EXPECT_EXIT(recording::process(*processor, input, output), aborts, why);
}
