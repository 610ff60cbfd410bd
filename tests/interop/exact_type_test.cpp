#include <TavIDL/records/ConnectionInfo.h>
#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <memory>

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::protocol::TCompactProtocol;
using apache::thrift::protocol::TCompactProtocolT;
using apache::thrift::transport::TBufferBase;
using apache::thrift::transport::TMemoryBuffer;

namespace {

// Derived from a protocol that the library may call directly: its overrides must be called.
template <typename Base>
class Overriding : public Base {
public:
    using Base::Base;

    uint32_t writeI32_virt(const int32_t value) override { return Base::writeI32(value + 1); }
    uint32_t readI32_virt(int32_t& value) override {
        const uint32_t bytes = Base::readI32(value);
        value *= 10;
        return bytes;
    }
};

}  // namespace

template <typename Base>
class DerivedProtocolTest : public testing::Test {};
using Bases = testing::Types<TBinaryProtocol, TCompactProtocol, TBinaryProtocolT<TBufferBase>,
                             TCompactProtocolT<TBufferBase>>;
TYPED_TEST_SUITE(DerivedProtocolTest, Bases, );

TYPED_TEST(DerivedProtocolTest, HasItsOverridesCalledWhenARecordIsWritten) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    Overriding<TypeParam> output(buffer);
    TypeParam input(buffer);

    ConnectionInfo written;
    written.callbackServicePort = 7;
    written.write(&output);

    ConnectionInfo read;
    read.read(&input);
    EXPECT_EQ(read.callbackServicePort, 8);
    EXPECT_EQ(read.empServicePort, 1);
}

TYPED_TEST(DerivedProtocolTest, HasItsOverridesCalledWhenARecordIsRead) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    TypeParam output(buffer);
    Overriding<TypeParam> input(buffer);

    ConnectionInfo written;
    written.callbackServicePort = 7;
    written.write(&output);

    ConnectionInfo read;
    read.read(&input);
    EXPECT_EQ(read.callbackServicePort, 70);
}
