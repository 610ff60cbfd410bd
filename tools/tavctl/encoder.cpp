#include "encoder.h"

#include <thrift/transport/TBufferTransports.h>

#include <cstring>
#include <limits>

#include "wirenames.h"

namespace tavctl {

using namespace apache::thrift::protocol;
using apache::thrift::transport::TMemoryBuffer;

namespace {

template <typename T>
T integer(const Json& value) {
    const bool fits =
        value.is_number_unsigned()
            ? value.get<uint64_t>() <= uint64_t{std::numeric_limits<T>::max()}
            : value.is_number_integer() && value.get<int64_t>() >= std::numeric_limits<T>::min();
    if (!fits) {
        throw std::invalid_argument("it has to be a whole number of " +
                                    std::to_string(8 * sizeof(T)) + " bits");
    }
    return value;
}

std::string bytesOf(const Json& value) {
    return value.is_object() ? fromHex(value.at("hex")) : value.get<std::string>();
}

// The inverse of what the decoder does with numbers that JSON does not have.
double real(const Json& value) {
    if (value.is_number()) {
        return value;
    }
    uint64_t bits = 0;
    const std::string bytes = fromHex(value.at("hex"));
    if (bytes.size() != sizeof bits) {
        throw std::invalid_argument("a number has 8 bytes");
    }
    for (const char byte : bytes) {
        bits = bits << 8 | static_cast<uint8_t>(byte);
    }
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

class Encoder {
public:
    explicit Encoder(TavIDL::ProtocolPointer protocol) : protocol_(std::move(protocol)) {}

    void encode(const Json& message) {
        protocol_->writeMessageBegin(bytesOf(message.at("operation")),
                                     messageTypeNamed(message.at("type")),
                                     integer<int32_t>(message.at("seqid")));
        writeFields(message.at("fields"));
        protocol_->writeMessageEnd();
    }

private:
    void writeFields(const Json& fields) {
        protocol_->writeStructBegin("");
        for (const Json& field : fields) {
            const TType type = typeNamed(field.at("type"));
            protocol_->writeFieldBegin("", type, integer<int16_t>(field.at("id")));
            writeValue(type, field.at("value"), field);
            protocol_->writeFieldEnd();
        }
        protocol_->writeFieldStop();
        protocol_->writeStructEnd();
    }

    // `shape` has the types of a container's elements.
    void writeValue(TType type, const Json& value, const Json& shape) {
        switch (type) {
            case T_BOOL:
                protocol_->writeBool(value.get<bool>());
                break;
            case T_BYTE:
                protocol_->writeByte(integer<int8_t>(value));
                break;
            case T_I16:
                protocol_->writeI16(integer<int16_t>(value));
                break;
            case T_I32:
                protocol_->writeI32(integer<int32_t>(value));
                break;
            case T_I64:
                protocol_->writeI64(integer<int64_t>(value));
                break;
            case T_DOUBLE:
                protocol_->writeDouble(real(value));
                break;
            case T_STRING:
                protocol_->writeString(bytesOf(value));
                break;
            case T_STRUCT:
                writeFields(value);
                break;
            default:
                writeContainer(type, value, shape);
        }
    }

    void writeContainer(TType container, const Json& value, const Json& shape) {
        const auto typeOf = [&](const Json& name) {
            return name.is_null() && value.empty() ? T_STOP : typeNamed(name);
        };
        const Json& of = shape.at("of");
        const bool isMap = container == T_MAP;
        const TType keyType = isMap ? typeOf(of.at(0)) : T_STOP;
        const TType type = typeOf(isMap ? of.at(1) : of);
        const auto size = static_cast<uint32_t>(value.size());
        // All protocols write a set as they write a list.
        isMap ? protocol_->writeMapBegin(keyType, type, size)
              : protocol_->writeListBegin(type, size);
        const Json each = shape.value("each", Json(size, Json::array({nullptr, nullptr})));
        for (uint32_t i = 0; i < size; ++i) {
            if (isMap) {
                writeValue(keyType, value.at(i).at(0), each.at(i).at(0));
                writeValue(type, value.at(i).at(1), each.at(i).at(1));
            } else {
                writeValue(type, value.at(i), each.at(i));
            }
        }
        isMap ? protocol_->writeMapEnd() : protocol_->writeListEnd();
    }

    const TavIDL::ProtocolPointer protocol_;
};

}  // namespace

std::string encoded(const Json& message, const Settings& settings, const std::string& where) try {
    const auto memory = std::make_shared<TMemoryBuffer>();
    Encoder(protocolOver(settings, memory)).encode(message);
    const std::string bytes = memory->getBufferAsString();
    std::string length;
    for (unsigned shift = 32; settings.framed() && shift > 0; shift -= 8) {
        length += static_cast<char>(bytes.size() >> (shift - 8));
    }
    return length + bytes;
} catch (const std::exception& thrown) {
    throw Failure(Exit::Usage,
                  where + " is not a message as decode --json prints it: " + thrown.what());
}

}  // namespace tavctl
