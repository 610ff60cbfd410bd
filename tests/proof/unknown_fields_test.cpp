#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "Conversations.h"

using namespace proof;
using namespace apache::thrift::protocol;

namespace {

// In each encoding, in each way in which the library calls a protocol.
class UnknownFields : public testing::TestWithParam<Encoding> {
protected:
    // Writes a field that no record has, and reads it as a part of TavEmp_Close_args.
    void expectSkipped(TType type, const std::function<void(TProtocol&)>& value) {
        const auto buffer = std::make_shared<TMemoryBuffer>();
        const auto protocol = makeProtocol(GetParam(), buffer);
        protocol->writeStructBegin("");
        for (const int16_t id : {int16_t{0}, int16_t{2}, int16_t{300}}) {
            protocol->writeFieldBegin("", type, id);
            value(*protocol);
            protocol->writeFieldEnd();
        }
        protocol->writeFieldBegin("", T_I32, 1);
        protocol->writeI32(42);
        protocol->writeFieldEnd();
        protocol->writeFieldBegin("", type, 9);
        value(*protocol);
        protocol->writeFieldEnd();
        protocol->writeFieldStop();
        protocol->writeStructEnd();

        TavEmp_Close_args args;
        args.read(protocol.get());
        EXPECT_EQ(args.clientID, 42) << "type " << type;
        EXPECT_TRUE(args.__isset.clientID);
        EXPECT_EQ(buffer->available_read(), 0U) << "type " << type;
    }

    // Reads records in records as a field that the record does not have.
    template <typename Record>
    void readNested(int levels, Record& record) {
        const auto buffer = std::make_shared<TMemoryBuffer>();
        const auto protocol = makeProtocol(GetParam(), buffer);
        protocol->writeStructBegin("");
        protocol->writeFieldBegin("", T_STRUCT, 100);
        write(*protocol, levels);
        protocol->writeFieldEnd();
        protocol->writeFieldStop();
        protocol->writeStructEnd();
        record.read(protocol.get());
    }

    static void write(TProtocol& protocol, int levels) {
        protocol.writeStructBegin("");
        if (levels > 1) {
            protocol.writeFieldBegin("", T_STRUCT, 1);
            write(protocol, levels - 1);
            protocol.writeFieldEnd();
        }
        protocol.writeFieldStop();
        protocol.writeStructEnd();
    }
};

}  // namespace

TEST_P(UnknownFields, OfEveryTypeAreSkipped) {
    expectSkipped(T_BOOL, [](TProtocol& out) { out.writeBool(true); });
    expectSkipped(T_BOOL, [](TProtocol& out) { out.writeBool(false); });
    expectSkipped(T_BYTE, [](TProtocol& out) { out.writeByte(-5); });
    expectSkipped(T_I16, [](TProtocol& out) { out.writeI16(-30000); });
    expectSkipped(T_I64, [](TProtocol& out) { out.writeI64(int64_t{1} << 62); });
    expectSkipped(T_DOUBLE, [](TProtocol& out) { out.writeDouble(1.5); });
    expectSkipped(T_STRING, [](TProtocol& out) { out.writeString("a text of some length"); });
    expectSkipped(T_STRUCT, [](TProtocol& out) { infoOf<Library>(someValues()).write(&out); });
    expectSkipped(T_LIST, [](TProtocol& out) {
        out.writeListBegin(T_I32, 2);
        out.writeI32(1);
        out.writeI32(2);
        out.writeListEnd();
    });
    expectSkipped(T_SET, [](TProtocol& out) {
        out.writeSetBegin(T_STRING, 1);
        out.writeString("one");
        out.writeSetEnd();
    });
    expectSkipped(T_MAP, [](TProtocol& out) {
        out.writeMapBegin(T_STRING, T_BOOL, 1);
        out.writeString("key");
        out.writeBool(true);
        out.writeMapEnd();
    });
    expectSkipped(T_MAP, [](TProtocol& out) {
        out.writeMapBegin(T_STRING, T_BOOL, 0);
        out.writeMapEnd();
    });
}

TEST_P(UnknownFields, OfAKnownIdButAnotherTypeAreSkipped) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    const auto protocol = makeProtocol(GetParam(), buffer);
    protocol->writeStructBegin("");
    protocol->writeFieldBegin("", T_STRING, 1);
    protocol->writeString("no number");
    protocol->writeFieldEnd();
    protocol->writeFieldStop();
    protocol->writeStructEnd();

    TavEmp_Close_args args;
    args.read(protocol.get());
    EXPECT_EQ(args.clientID, 0);
    EXPECT_FALSE(args.__isset.clientID);
    EXPECT_EQ(buffer->available_read(), 0U);
}

TEST_P(UnknownFields, MayBeNestedToLibthriftsLimitOf64) {
    TavEmp_Close_args args;
    EXPECT_NO_THROW(readNested(64, args));
    EXPECT_THROW(readNested(65, args), TProtocolException);
}

// Generated code counts each of its own records as a level; doc/wire.md says so.
TEST_P(UnknownFields, OfGeneratedCodeMayBeNestedOneLevelLess) {
    TAV_IDL::ConnectionInfo info;
    EXPECT_NO_THROW(readNested(63, info));
    EXPECT_THROW(readNested(64, info), TProtocolException);
}

INSTANTIATE_TEST_SUITE_P(All, UnknownFields, testing::ValuesIn(kEncodings), [](const auto& test) {
    std::string name = test.param.name;
    for (char& c : name) {
        c = c == ' ' ? '_' : c;
    }
    return name;
});
