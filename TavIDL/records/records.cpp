#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>
#include <TavIDL/records/codec.h>

#include <tuple>
#include <utility>

using namespace TavIDL::records;

namespace {

constexpr Field kConnectionInfo[] = {
    TAVIDL_FIELD(ConnectionInfo, callbackServicePort),
    TAVIDL_FIELD(ConnectionInfo, empServicePort),
    TAVIDL_FIELD(ConnectionInfo, empID),
};

constexpr Field kParamList[] = {
    TAVIDL_FIELD(ParamList, param1), TAVIDL_FIELD(ParamList, param2),
    TAVIDL_FIELD(ParamList, param3), TAVIDL_FIELD(ParamList, param4),
    TAVIDL_FIELD(ParamList, param5), TAVIDL_FIELD(ParamList, param6),
    TAVIDL_FIELD(ParamList, param7), TAVIDL_FIELD(ParamList, param8),
    TAVIDL_FIELD(ParamList, param9), TAVIDL_FIELD(ParamList, param10),
};

// All fields, to compare or swap them. Any is the record, const or not.
template <typename Any>
auto fieldsOfInfo(Any& info) {
    return std::tie(info.callbackServicePort, info.empServicePort, info.empID);
}

template <typename Any>
auto fieldsOfList(Any& list) {
    return std::tie(list.param1, list.param2, list.param3, list.param4, list.param5, list.param6,
                    list.param7, list.param8, list.param9, list.param10);
}

}  // namespace

const char* const ConnectionInfo::ascii_fingerprint = "4086F12A5C2D615560236565C542F3C3";
const uint8_t ConnectionInfo::binary_fingerprint[16] = {
    0x40, 0x86, 0xF1, 0x2A, 0x5C, 0x2D, 0x61, 0x55, 0x60, 0x23, 0x65, 0x65, 0xC5, 0x42, 0xF3, 0xC3};

uint32_t ConnectionInfo::write(TProtocol* oprot) const {
    return writeValues<kConnectionInfo>(oprot, "ConnectionInfo", *this);
}

uint32_t ConnectionInfo::read(TProtocol* iprot) {
    return readValues<kConnectionInfo>(iprot, *this);
}

bool ConnectionInfo::operator==(const ConnectionInfo& other) const {
    return fieldsOfInfo(*this) == fieldsOfInfo(other);
}

void ConnectionInfo::swap(ConnectionInfo& other) noexcept {
    auto theirs = fieldsOfInfo(other);
    fieldsOfInfo(*this).swap(theirs);
    std::swap(__isset, other.__isset);
}

const char* const ParamList::ascii_fingerprint = "81E0FEFEB058D510E23D4883E8597F5D";
const uint8_t ParamList::binary_fingerprint[16] = {0x81, 0xE0, 0xFE, 0xFE, 0xB0, 0x58, 0xD5, 0x10,
                                                   0xE2, 0x3D, 0x48, 0x83, 0xE8, 0x59, 0x7F, 0x5D};

uint32_t ParamList::write(TProtocol* oprot) const {
    return writeValues<kParamList>(oprot, "ParamList", *this);
}

uint32_t ParamList::read(TProtocol* iprot) {
    return readValues<kParamList>(iprot, *this);
}

bool ParamList::operator==(const ParamList& other) const {
    return fieldsOfList(*this) == fieldsOfList(other);
}

void ParamList::swap(ParamList& other) noexcept {
    auto theirs = fieldsOfList(other);
    fieldsOfList(*this).swap(theirs);
    std::swap(__isset, other.__isset);
}
