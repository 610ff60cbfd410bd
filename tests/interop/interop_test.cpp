#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "TavBroker.h"
#include "TavEmp.h"
#include "TavEmpEvent.h"
#include "exchange.h"

using apache::thrift::TApplicationException;
using apache::thrift::protocol::T_CALL;
using apache::thrift::protocol::T_EXCEPTION;
using apache::thrift::protocol::T_ONEWAY;
using apache::thrift::protocol::T_REPLY;
using apache::thrift::protocol::T_STRUCT;
using apache::thrift::protocol::TMessageType;

namespace {

// The classes that the Thrift compiler generates from the same interface.
struct Generated {
    using ConnectionInfo = TAV_IDL::ConnectionInfo;
    using ParamList = TAV_IDL::ParamList;
    using BrokerIf = TAV_IDL::TavBrokerIf;
    using BrokerClient = TAV_IDL::TavBrokerClient;
    using BrokerProcessor = TAV_IDL::TavBrokerProcessor;
    using EmpIf = TAV_IDL::TavEmpIf;
    using EmpClient = TAV_IDL::TavEmpClient;
    using EmpProcessor = TAV_IDL::TavEmpProcessor;
    using EventIf = TAV_IDL::TavEmpEventIf;
    using EventClient = TAV_IDL::TavEmpEventClient;
    using EventProcessor = TAV_IDL::TavEmpEventProcessor;
};

std::string header(const std::string& name, int type, int32_t seqid) {
    return name + " type " + std::to_string(type) + " seqid " + std::to_string(seqid);
}

// Sends a message with an empty record, which clients never do.
void send(const ProtocolPtr& out, const std::string& name, TMessageType type, int32_t seqid) {
    out->writeMessageBegin(name, type, seqid);
    out->writeStructBegin("");
    out->writeFieldStop();
    out->writeStructEnd();
    out->writeMessageEnd();
    out->getTransport()->writeEnd();
    out->getTransport()->flush();
}

void discard(const ProtocolPtr& in) {
    in->skip(T_STRUCT);
    in->readMessageEnd();
    in->getTransport()->readEnd();
}

// Reads a message and skips its record.
std::string readHeader(const ProtocolPtr& in) {
    std::string name;
    TMessageType type = T_CALL;
    int32_t seqid = 0;
    in->readMessageBegin(name, type, seqid);
    discard(in);
    return header(name, type, seqid);
}

// Reads an exception message: its header, kind and text.
std::string readFailure(const ProtocolPtr& in) {
    std::string name;
    TMessageType type = T_CALL;
    int32_t seqid = 0;
    in->readMessageBegin(name, type, seqid);
    TApplicationException failure;
    failure.read(in.get());
    in->readMessageEnd();
    in->getTransport()->readEnd();
    return header(name, type, seqid) + ", kind " + std::to_string(failure.getType()) + ": " +
           failure.what();
}

// One of three encodings over one of three transports.
class Wire : public testing::TestWithParam<std::tuple<const char*, const char*>> {
protected:
    template <typename Family>
    Exchange serve(const std::string& service) {
        return {encoding(), framing(), makeProcessor<Family>(service, journal)};
    }

    Exchange serve(const Exchange::Serve& server) { return {encoding(), framing(), server}; }

    static std::string encoding() { return std::get<0>(GetParam()); }
    static std::string framing() { return std::get<1>(GetParam()); }

    template <typename Client, typename Server>
    void expectEveryOperationWorks() {
        for (const Operation& operation : kOperations) {
            Journal seen;
            Exchange exchange(encoding(), framing(),
                              makeProcessor<Server>(operation.service, seen));
            EXPECT_EQ(exchange.call<Client>(operation.service, operation.name, "camera"),
                      operation.result);
            EXPECT_EQ(seen.lines(1), std::vector<std::string>{operation.seen});
            EXPECT_EQ(exchange.unread(), "") << operation.name;
        }
    }

    template <typename Client, typename Server>
    void expectEveryFailureIsReportedAndTheNextCallWorks() {
        for (const Operation& operation : kOperations) {
            auto exchange = serve<Server>(operation.service);
            EXPECT_EQ(exchange.template call<Client>(operation.service, operation.name, "fail"),
                      operation.failure);
            EXPECT_EQ(exchange.unread(), "") << operation.name;
            EXPECT_EQ(exchange.template call<Client>(operation.service, operation.name, "camera"),
                      operation.result);
        }
    }

    // A client of another service calls an unknown operation.
    template <typename Client, typename Server>
    void expectUnknownNamesAreRefused() {
        auto broker = serve<Server>("TavBroker");
        EXPECT_EQ(broker.template call<Client>("TavEmp", "Close", "camera"),
                  "kind 1: Invalid method name: 'Close'");
        EXPECT_EQ(broker.template call<Client>("TavBroker", "CloseEmp", "camera"), "true");

        auto emp = serve<Server>("TavEmp");
        EXPECT_EQ(emp.template call<Client>("TavBroker", "OpenEmp", "camera"),
                  "kind 1: Invalid method name: 'OpenEmp'");
        EXPECT_EQ(emp.template call<Client>("TavEmp", "Close", "camera"), "-300");

        // Answered, although the service only has a one-way operation.
        auto event = serve<Server>("TavEmpEvent");
        EXPECT_EQ(event.template call<Client>("TavEmp", "Open", "camera"),
                  "kind 1: Invalid method name: 'Open'");
        EXPECT_EQ(event.template call<Client>("TavEmpEvent", "Callback", "camera"), "sent");
    }

    Journal journal;
};

TEST_P(Wire, LibraryClientsAndLibraryProcessorsExchangeEveryOperation) {
    expectEveryOperationWorks<Library, Library>();
}

TEST_P(Wire, LibraryClientsAndGeneratedProcessorsExchangeEveryOperation) {
    expectEveryOperationWorks<Library, Generated>();
}

TEST_P(Wire, GeneratedClientsAndLibraryProcessorsExchangeEveryOperation) {
    expectEveryOperationWorks<Generated, Library>();
}

TEST_P(Wire, LibraryClientsRethrowWhatLibraryHandlersThrow) {
    expectEveryFailureIsReportedAndTheNextCallWorks<Library, Library>();
}

TEST_P(Wire, LibraryClientsRethrowWhatHandlersOfGeneratedProcessorsThrow) {
    expectEveryFailureIsReportedAndTheNextCallWorks<Library, Generated>();
}

TEST_P(Wire, GeneratedClientsRethrowWhatHandlersOfTheLibraryThrow) {
    expectEveryFailureIsReportedAndTheNextCallWorks<Generated, Library>();
}

TEST_P(Wire, LibraryProcessorsRejectUnknownNamesFromLibraryClients) {
    expectUnknownNamesAreRefused<Library, Library>();
}

TEST_P(Wire, GeneratedProcessorsRejectUnknownNamesFromLibraryClients) {
    expectUnknownNamesAreRefused<Library, Generated>();
}

TEST_P(Wire, LibraryProcessorsRejectUnknownNamesFromGeneratedClients) {
    expectUnknownNamesAreRefused<Generated, Library>();
}

TEST_P(Wire, LibraryProcessorsAnswerAMessageThatIsNotACallAndServeTheNext) {
    for (const char* service : {"TavBroker", "TavEmp", "TavEmpEvent"}) {
        for (const TMessageType type : {T_REPLY, T_EXCEPTION}) {
            auto exchange = serve<Library>(service);
            send(exchange.clientOut(), "Open", type, 77);
            EXPECT_EQ(readFailure(exchange.clientIn()),
                      "Open type 3 seqid 77, kind 2: TApplicationException: Invalid message type");
            EXPECT_EQ(
                exchange.call<Library>("TavEmp", "Close", "camera"),
                std::string(service) == "TavEmp" ? "-300" : "kind 1: Invalid method name: 'Close'");
        }
    }
}

TEST_P(Wire, GeneratedProcessorsDropAMessageThatIsNotACall) {
    bool served = true;
    const auto processor = makeProcessor<Generated>("TavEmp", journal);
    auto exchange = serve([&](const ProtocolPtr& in, const ProtocolPtr& out) {
        served = processor->process(in, out, nullptr);
    });

    send(exchange.clientOut(), "Open", T_REPLY, 77);

    EXPECT_FALSE(served);
    EXPECT_EQ(exchange.unread(), "");
}

TEST_P(Wire, LibraryProcessorsEchoTheSeqidOfEveryRequestThatTheyAnswer) {
    auto exchange = serve<Library>("TavEmp");

    send(exchange.clientOut(), "Close", T_CALL, 2147483647);
    EXPECT_EQ(readHeader(exchange.clientIn()), "Close type 2 seqid 2147483647");
    send(exchange.clientOut(), "Close", T_ONEWAY, -5);
    EXPECT_EQ(readHeader(exchange.clientIn()), "Close type 2 seqid -5");
    send(exchange.clientOut(), "Closer", T_CALL, 6);
    EXPECT_EQ(readFailure(exchange.clientIn()),
              "Closer type 3 seqid 6, kind 1: Invalid method name: 'Closer'");
}

TEST_P(Wire, LibraryProcessorsDoNotAnswerACallbackOfAnyType) {
    auto exchange = serve<Library>("TavEmpEvent");

    send(exchange.clientOut(), "Callback", T_CALL, 1);
    send(exchange.clientOut(), "Callback", T_ONEWAY, 2);

    EXPECT_EQ(exchange.unread(), "");
    EXPECT_EQ(journal.lines(2), (std::vector<std::string>{"Callback 0  ", "Callback 0  "}));
}

TEST_P(Wire, BothClientsIgnoreTheSeqidOfAReply) {
    const auto processor = makeProcessor<Library>("TavEmp", journal);
    // Sends requests with its own seqid, so that the replies carry 99.
    auto exchange = serve([&](const ProtocolPtr& in, const ProtocolPtr& out) {
        std::string name;
        TMessageType type = T_CALL;
        int32_t seqid = 0;
        in->readMessageBegin(name, type, seqid);
        EXPECT_EQ(seqid, 0);
        dynamic_cast<TavEmpProcessor&>(*processor).process_fn(in.get(), out.get(), name, 99);
    });

    EXPECT_EQ(exchange.call<Library>("TavEmp", "Close", "camera"), "-300");
    EXPECT_EQ(exchange.call<Generated>("TavEmp", "Close", "camera"), "-300");
}

// Answers every call with an empty record and the header that a test sets.
struct Reply {
    const char* name;
    TMessageType type;
    const char* outcome;
};

TEST_P(Wire, LibraryClientsRejectReplies) {
    const Reply replies[] = {
        {"Close", T_REPLY, "kind 5: Close failed: unknown result"},
        {"close", T_REPLY, "kind 3: TApplicationException: Wrong method name"},
        {"Close", T_CALL, "kind 2: TApplicationException: Invalid message type"},
        {"Close", T_ONEWAY, "kind 2: TApplicationException: Invalid message type"},
        {"close", T_EXCEPTION, "kind 0: TApplicationException: Unknown application exception"},
    };
    for (const Reply& reply : replies) {
        bool answersBadly = true;
        const auto processor = makeProcessor<Library>("TavEmp", journal);
        auto exchange = serve([&](const ProtocolPtr& in, const ProtocolPtr& out) {
            if (answersBadly) {
                readHeader(in);
                send(out, reply.name, reply.type, 0);
            } else {
                processor->process(in, out, nullptr);
            }
        });
        EXPECT_EQ(exchange.call<Library>("TavEmp", "Close", "camera"), reply.outcome);
        // The reply has been consumed: the connection can be used for the next call.
        EXPECT_EQ(exchange.unread(), "");
        answersBadly = false;
        EXPECT_EQ(exchange.call<Library>("TavEmp", "Close", "camera"), "-300");
    }
}

TEST_P(Wire, BothClientsSendTheSameBytesAndBothProcessorsAnswerWithTheSame) {
    for (const Operation& operation : kOperations) {
        auto library = serve<Library>(operation.service);
        auto generated = serve<Generated>(operation.service);
        for (const char* word : {"camera", "fail"}) {
            library.call<Library>(operation.service, operation.name, word);
            generated.call<Generated>(operation.service, operation.name, word);
            if (operation.name != std::string("Callback")) {
                EXPECT_EQ(library.request(), generated.request()) << operation.name << ' ' << word;
            }
            EXPECT_EQ(library.reply(), generated.reply()) << operation.name << ' ' << word;
        }
    }
    // Unknown operations are rejected with the same bytes.
    auto library = serve<Library>("TavEmp");
    auto generated = serve<Generated>("TavEmp");
    library.call<Library>("TavBroker", "OpenEmp", "camera");
    generated.call<Library>("TavBroker", "OpenEmp", "camera");
    EXPECT_EQ(library.reply(), generated.reply());
}

TEST_P(Wire, ACallbackDiffersOnlyInItsMessageTypeFromThatOfGeneratedClients) {
    std::string sent;
    // Logs the header and the record separately.
    auto exchange = serve([&](const ProtocolPtr& in, const ProtocolPtr&) {
        const auto again = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
        const auto copy = makeProtocol(encoding(), again);
        std::string name;
        TMessageType type = T_CALL;
        int32_t seqid = 0;
        in->readMessageBegin(name, type, seqid);
        TavEmpEvent_Callback_args args;
        args.read(in.get());
        in->readMessageEnd();
        in->getTransport()->readEnd();
        args.write(copy.get());
        sent = header(name, type, seqid) + ' ' + again->getBufferAsString();
    });

    exchange.call<Library>("TavEmpEvent", "Callback", "camera");
    const std::string byLibrary = sent;
    const std::size_t size = exchange.request().size();
    exchange.call<Generated>("TavEmpEvent", "Callback", "camera");

    EXPECT_EQ(byLibrary.substr(0, 24), "Callback type 1 seqid 0 ");
    EXPECT_EQ(sent.substr(0, 24), "Callback type 4 seqid 0 ");
    EXPECT_EQ(byLibrary.substr(24), sent.substr(24));
    EXPECT_EQ(exchange.request().size(), size);
}

INSTANTIATE_TEST_SUITE_P(All, Wire,
                         testing::Combine(testing::Values("binary", "compact", "json"),
                                          testing::Values("memory", "buffered", "framed")),
                         [](const auto& wire) {
                             return std::string(std::get<0>(wire.param)) + '_' +
                                    std::get<1>(wire.param);
                         });

}  // namespace
