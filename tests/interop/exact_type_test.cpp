#include <TavIDL/records/ConnectionInfo.h>
#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <memory>

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TCompactProtocol;
using apache::thrift::protocol::TVirtualProtocol;
using apache::thrift::transport::TMemoryBuffer;

namespace {

// Derived from a protocol that the library may call directly: these must be called.
template <typename Base>
class Overriding : public TVirtualProtocol<Overriding<Base>, Base> {
public:
    explicit Overriding(const std::shared_ptr<TMemoryBuffer>& buffer)
        : TVirtualProtocol<Overriding<Base>, Base>(buffer) {}

    uint32_t writeI32(int32_t value) { return Base::writeI32(value + 1); }
    uint32_t readI32(int32_t& value) {
        const uint32_t bytes = Base::readI32(value);
        value *= 10;
        return bytes;
    }
};

}  // namespace

template <typename Base>
class DerivedProtocolTest : public testing::Test {};
using Bases = testing::Types<TBinaryProtocol, TCompactProtocol>;
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
