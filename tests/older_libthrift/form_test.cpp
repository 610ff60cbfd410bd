// The library uses the form that the stand-in headers declare.

#include <TavIDL/TavIDL.h>
#include <gtest/gtest.h>
#include <support/Handlers.h>
#include <support/Recording.h>
#include <boost/shared_ptr.hpp>

#include <memory>
#include <type_traits>

namespace {

using apache::thrift::TProcessor;
using apache::thrift::protocol::TProtocol;
using recording::Log;
using recording::RecordingProtocol;

#ifdef AS_0_12
template <typename T>
using Pointer = std::shared_ptr<T>;
#else
template <typename T>
using Pointer = boost::shared_ptr<T>;
#endif

template <typename Client>
class OlderClientTest : public testing::Test {};
using Clients = testing::Types<TavBrokerClient, TavEmpClient, TavEmpEventClient>;
TYPED_TEST_SUITE(OlderClientTest, Clients);

TYPED_TEST(OlderClientTest, KeepsItsProtocolsInLibthriftsPointerType) {
    struct Own : TypeParam {
        static_assert(std::is_same<decltype(Own::piprot_), Pointer<TProtocol>>::value, "");
        static_assert(std::is_same<decltype(Own::poprot_), Pointer<TProtocol>>::value, "");
    };
    Log log;
    Pointer<TProtocol> input(new RecordingProtocol(log));
    Pointer<TProtocol> output(new RecordingProtocol(log));
    {
        const TypeParam client(input, output);
        EXPECT_EQ(input.use_count(), 2);
        EXPECT_EQ(output.use_count(), 2);
        EXPECT_EQ(client.getInputProtocol(), input);
        EXPECT_EQ(client.getOutputProtocol(), output);
    }
    EXPECT_EQ(input.use_count(), 1);
    EXPECT_EQ(output.use_count(), 1);
}

template <typename Service>
class OlderProcessorTest : public testing::Test {};
template <typename P, typename H>
struct Served {
    using Processor = P;
    using Handler = H;
};
using Services = testing::Types<Served<TavBrokerProcessor, recording::BrokerHandler>,
                                Served<TavEmpProcessor, recording::EmpHandler>,
                                Served<TavEmpEventProcessor, recording::EventHandler>>;
TYPED_TEST_SUITE(OlderProcessorTest, Services);

TYPED_TEST(OlderProcessorTest, OverridesTheFormThatLibthriftDeclares) {
    Log log;
    const Pointer<RecordingProtocol> input(new RecordingProtocol(log, "in."));
    const Pointer<RecordingProtocol> output(new RecordingProtocol(log, "out."));
    typename TypeParam::Processor processor(
        Pointer<typename TypeParam::Handler>(new typename TypeParam::Handler(log)));
    TProcessor& base = processor;

    input->playMessage({"Foo", 1, 99, {}});
#ifdef AS_0_5
    EXPECT_TRUE(base.process(input, output));
#else
    EXPECT_TRUE(base.process(input, output, nullptr));
#endif

    EXPECT_EQ(log.text(), R"(
in.readMessageBegin 'Foo' 1 99
in.skip 12
in.readMessageEnd
in.readEnd
out.writeMessageBegin 'Foo' 3 99
out.writeStructBegin TApplicationException
out.writeFieldBegin message 11 1, writeString 'Invalid method name: 'Foo'', writeFieldEnd
out.writeFieldBegin type 8 2, writeI32 1, writeFieldEnd
out.writeFieldStop
out.writeStructEnd
out.writeMessageEnd
out.flush
out.writeEnd)");
}

}  // namespace
