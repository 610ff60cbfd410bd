#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>

using namespace recording;
using apache::thrift::protocol::TProtocol;

// What the clients have in common as classes, and the processors.
namespace {

template <typename Client>
class ClientClassTest : public testing::Test {
protected:
    // Shows the members.
    struct OpenClient : Client {
        using Client::Client;
        using Client::iprot_;
        using Client::oprot_;
        using Client::piprot_;
        using Client::poprot_;
    };

    Log log;
    TavIDL::shared_ptr<RecordingProtocol> input = make<RecordingProtocol>(log, "in.");
    TavIDL::shared_ptr<RecordingProtocol> output = make<RecordingProtocol>(log, "out.");
};

using Clients = testing::Types<TavBrokerClient, TavEmpClient, TavEmpEventClient>;
TYPED_TEST_SUITE(ClientClassTest, Clients, );

template <typename Processor, typename HandlerType>
struct Service {
    using ProcessorClass = Processor;
    using HandlerClass = HandlerType;
};

template <typename Service>
class ProcessorClassTest : public testing::Test {
protected:
    // Shows the members.
    struct OpenProcessor : Service::ProcessorClass {
        using Service::ProcessorClass::handler_;
        using Service::ProcessorClass::ProcessorClass;
    };

    Log log;
    TavIDL::shared_ptr<typename Service::HandlerClass> handler =
        make<typename Service::HandlerClass>(log);
};

using Services =
    testing::Types<Service<TavBrokerProcessor, BrokerHandler>, Service<TavEmpProcessor, EmpHandler>,
                   Service<TavEmpEventProcessor, EventHandler>>;
TYPED_TEST_SUITE(ProcessorClassTest, Services, );

}  // namespace

TYPED_TEST(ClientClassTest, TheFirstProtocolIsReadAndTheSecondWritten) {
    const typename TestFixture::OpenClient client(this->input, this->output);
    EXPECT_EQ(client.piprot_, this->input);
    EXPECT_EQ(client.poprot_, this->output);
    EXPECT_EQ(client.iprot_, this->input.get());
    EXPECT_EQ(client.oprot_, this->output.get());
}

TYPED_TEST(ClientClassTest, OneProtocolIsUsedInBothDirections) {
    const typename TestFixture::OpenClient client(this->input);
    EXPECT_EQ(client.piprot_, this->input);
    EXPECT_EQ(client.poprot_, this->input);
    EXPECT_EQ(client.iprot_, this->input.get());
    EXPECT_EQ(client.oprot_, this->input.get());
}

TYPED_TEST(ClientClassTest, ItReturnsItsProtocols) {
    const TypeParam client(this->input, this->output);
    EXPECT_EQ(client.getInputProtocol(), this->input);
    EXPECT_EQ(client.getOutputProtocol(), this->output);
}

TYPED_TEST(ClientClassTest, ItSharesOwnershipOfItsProtocols) {
    {
        const TypeParam client(this->input, this->output);
        EXPECT_EQ(this->input.use_count(), 2);
        EXPECT_EQ(this->output.use_count(), 2);
    }
    EXPECT_EQ(this->input.use_count(), 1);
    EXPECT_EQ(this->output.use_count(), 1);
}

TYPED_TEST(ClientClassTest, ConstructionAndDestructionCallNothing) {
    { const TypeParam client(this->input, this->output); }
    EXPECT_EQ(this->log.text(), "");
}

TYPED_TEST(ClientClassTest, ItReleasesItsOutputBeforeItsInput) {
    std::string released;
    const auto noting = [&](RecordingProtocol& protocol, const char* name) {
        return TavIDL::shared_ptr<TProtocol>(&protocol,
                                             [&released, name](TProtocol*) { released += name; });
    };
    { const TypeParam client(noting(*this->input, "input "), noting(*this->output, "output ")); }
    EXPECT_EQ(released, "output input ");
}

TYPED_TEST(ProcessorClassTest, ItSharesOwnershipOfItsHandler) {
    {
        const typename TestFixture::OpenProcessor processor(this->handler);
        EXPECT_EQ(processor.handler_, this->handler);
        EXPECT_EQ(this->handler.use_count(), 2);
    }
    EXPECT_EQ(this->handler.use_count(), 1);
    EXPECT_EQ(this->log.text(), "");
}

TYPED_TEST(ProcessorClassTest, ItKeepsAHandlerThatOthersRelease) {
    using HandlerClass = typename TypeParam::HandlerClass;
    bool released = false;
    TavIDL::shared_ptr<HandlerClass> watched(this->handler.get(),
                                             [&](HandlerClass*) { released = true; });
    {
        const typename TypeParam::ProcessorClass processor(std::move(watched));
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(released);
}

TYPED_TEST(ProcessorClassTest, ProcessReturnsWhatProcessFnReturns) {
    // A program may inspect a call before it is run, or reject it.
    struct Gate : TypeParam::ProcessorClass {
        using TypeParam::ProcessorClass::ProcessorClass;
        bool process_fn(TProtocol* input, TProtocol* output, std::string& name,
                        int32_t seqid) override {
            iprot = input;
            oprot = output;
            header = name + " " + std::to_string(seqid);
            return passes;
        }
        TProtocol* iprot = nullptr;
        TProtocol* oprot = nullptr;
        std::string header;
        bool passes = false;
    };
    const auto input = make<RecordingProtocol>(this->log);
    const auto output = make<RecordingProtocol>(this->log);
    input->playMessage({"Foo", 1, 99, {}});
    input->playMessage({"Foo", 4, 98, {}});
    Gate gate(this->handler);
    EXPECT_FALSE(gate.process(input, output, nullptr));
    EXPECT_EQ(gate.iprot, input.get());
    EXPECT_EQ(gate.oprot, output.get());
    EXPECT_EQ(gate.header, "Foo 99");
    gate.passes = true;
    EXPECT_TRUE(gate.process(input, output, nullptr));
    EXPECT_EQ(gate.header, "Foo 98");
    EXPECT_EQ(this->log.text(), R"(
readMessageBegin 'Foo' 1 99
readMessageBegin 'Foo' 4 98)");
}

TYPED_TEST(ProcessorClassTest, ProcessFnHandlesAMessageAfterItsHeader) {
    const auto protocol = make<RecordingProtocol>(this->log);
    protocol->playRecord({{1, "anything"}});
    typename TypeParam::ProcessorClass processor(this->handler);
    std::string name = "Foo";
    EXPECT_TRUE(processor.process_fn(protocol.get(), protocol.get(), name, 99));
    EXPECT_EQ(this->log.text(), R"(
skip 12
readMessageEnd
readEnd
writeMessageBegin 'Foo' 3 99
writeStructBegin TApplicationException
writeFieldBegin message 11 1, writeString 'Invalid method name: 'Foo'', writeFieldEnd
writeFieldBegin type 8 2, writeI32 1, writeFieldEnd
writeFieldStop
writeStructEnd
writeMessageEnd
flush
writeEnd)");
}

namespace {

template <typename Processor>
struct OpenMap : Processor {
    using Processor::operationMap_;
    using Processor::Processor;
};

template <typename Processor>
std::string operationsOf(const Processor& processor) {
    std::string names;
    for (const auto& operation : processor.operationMap_) {
        names += operation.first + " ";
    }
    return names;
}

}  // namespace

TEST(OperationMapTest, HasOnlyTheOperationsOfTheService) {
    EXPECT_EQ(operationsOf(OpenMap<TavBrokerProcessor>(nullptr)), "CloseEmp Execute OpenEmp ");
    EXPECT_EQ(operationsOf(OpenMap<TavEmpProcessor>(nullptr)),
              "Close Execute ExecuteWithParamList Open ");
    EXPECT_EQ(operationsOf(OpenMap<TavEmpEventProcessor>(nullptr)), "Callback ");
}
