#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>

using namespace recording;
using apache::thrift::protocol::TProtocol;

namespace {

template <typename Client>
class ClientLifetimeTest : public testing::Test {
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
    std::shared_ptr<RecordingProtocol> input = std::make_shared<RecordingProtocol>(log, "in.");
    std::shared_ptr<RecordingProtocol> output = std::make_shared<RecordingProtocol>(log, "out.");
};

using Clients = testing::Types<TavBrokerClient, TavEmpClient, TavEmpEventClient>;
TYPED_TEST_SUITE(ClientLifetimeTest, Clients, );

template <typename Processor, typename HandlerType>
struct Service {
    using ProcessorClass = Processor;
    using HandlerClass = HandlerType;
};

template <typename Service>
class ProcessorLifetimeTest : public testing::Test {
protected:
    // Shows the members.
    struct OpenProcessor : Service::ProcessorClass {
        using Service::ProcessorClass::handler_;
        using Service::ProcessorClass::ProcessorClass;
    };

    Log log;
    std::shared_ptr<typename Service::HandlerClass> handler =
        std::make_shared<typename Service::HandlerClass>(log);
};

using Services =
    testing::Types<Service<TavBrokerProcessor, BrokerHandler>, Service<TavEmpProcessor, EmpHandler>,
                   Service<TavEmpEventProcessor, EventHandler>>;
TYPED_TEST_SUITE(ProcessorLifetimeTest, Services, );

}  // namespace

TYPED_TEST(ClientLifetimeTest, OfTwoProtocolsTheFirstIsReadAndTheSecondWritten) {
    const typename TestFixture::OpenClient client(this->input, this->output);
    EXPECT_EQ(client.piprot_, this->input);
    EXPECT_EQ(client.poprot_, this->output);
    EXPECT_EQ(client.iprot_, this->input.get());
    EXPECT_EQ(client.oprot_, this->output.get());
}

TYPED_TEST(ClientLifetimeTest, OneProtocolServesBothWays) {
    const typename TestFixture::OpenClient client(this->input);
    EXPECT_EQ(client.piprot_, this->input);
    EXPECT_EQ(client.poprot_, this->input);
    EXPECT_EQ(client.iprot_, this->input.get());
    EXPECT_EQ(client.oprot_, this->input.get());
}

TYPED_TEST(ClientLifetimeTest, ItsProtocolsCanBeAskedFor) {
    const TypeParam client(this->input, this->output);
    EXPECT_EQ(client.getInputProtocol(), this->input);
    EXPECT_EQ(client.getOutputProtocol(), this->output);
}

TYPED_TEST(ClientLifetimeTest, ItSharesItsProtocolsAsLongAsItLives) {
    {
        const TypeParam client(this->input, this->output);
        EXPECT_EQ(this->input.use_count(), 2);
        EXPECT_EQ(this->output.use_count(), 2);
    }
    EXPECT_EQ(this->input.use_count(), 1);
    EXPECT_EQ(this->output.use_count(), 1);
}

TYPED_TEST(ClientLifetimeTest, MakingAndDestroyingItCallsNothing) {
    { const TypeParam client(this->input, this->output); }
    EXPECT_EQ(this->log.text(), "");
}

TYPED_TEST(ClientLifetimeTest, ItReleasesItsOutputBeforeItsInput) {
    std::string released;
    const auto noting = [&](RecordingProtocol& protocol, const char* name) {
        return std::shared_ptr<TProtocol>(&protocol,
                                          [&released, name](TProtocol*) { released += name; });
    };
    { const TypeParam client(noting(*this->input, "input "), noting(*this->output, "output ")); }
    EXPECT_EQ(released, "output input ");
}

TYPED_TEST(ProcessorLifetimeTest, ItSharesItsHandlerAsLongAsItLives) {
    {
        const typename TestFixture::OpenProcessor processor(this->handler);
        EXPECT_EQ(processor.handler_, this->handler);
        EXPECT_EQ(this->handler.use_count(), 2);
    }
    EXPECT_EQ(this->handler.use_count(), 1);
    EXPECT_EQ(this->log.text(), "");
}

TYPED_TEST(ProcessorLifetimeTest, ItKeepsAHandlerThatOthersLetGo) {
    const std::weak_ptr<typename TypeParam::HandlerClass> watch = this->handler;
    {
        const typename TypeParam::ProcessorClass processor(std::move(this->handler));
        EXPECT_FALSE(watch.expired());
    }
    EXPECT_TRUE(watch.expired());
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

TEST(OperationMapTest, HoldsTheOperationsOfTheServiceAndNoMore) {
    EXPECT_EQ(operationsOf(OpenMap<TavBrokerProcessor>(nullptr)), "CloseEmp Execute OpenEmp ");
    EXPECT_EQ(operationsOf(OpenMap<TavEmpProcessor>(nullptr)),
              "Close Execute ExecuteWithParamList Open ");
    EXPECT_EQ(operationsOf(OpenMap<TavEmpEventProcessor>(nullptr)), "Callback ");
}
