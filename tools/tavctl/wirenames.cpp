#include "wirenames.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace tavctl {

using namespace apache::thrift::protocol;

namespace {

constexpr std::pair<TType, const char*> kTypes[] = {
    {T_BOOL, "bool"},     {T_BYTE, "byte"},     {T_I16, "i16"},       {T_I32, "i32"},
    {T_I64, "i64"},       {T_DOUBLE, "double"}, {T_STRING, "string"}, {T_MAP, "map"},
    {T_STRUCT, "struct"}, {T_SET, "set"},       {T_LIST, "list"}};

constexpr const char* kMessageTypes[] = {"call", "reply", "exception", "oneway"};  // from 1 on

}  // namespace

std::string nameOf(TType type) {
    for (const auto& [known, name] : kTypes) {
        if (type == known) {
            return name;
        }
    }
    throw apache::thrift::TException("unknown type " + std::to_string(static_cast<int>(type)));
}

TType typeNamed(const std::string& name) {
    for (const auto& [type, known] : kTypes) {
        if (name == known) {
            return type;
        }
    }
    throw std::invalid_argument("there is no such type");
}

std::string nameOf(TMessageType type) {
    return type >= T_CALL && type <= T_ONEWAY ? kMessageTypes[type - 1]
                                              : "type " + std::to_string(static_cast<int>(type));
}

TMessageType messageTypeNamed(const std::string& name) {
    const auto* const known = std::find(std::begin(kMessageTypes), std::end(kMessageTypes), name);
    return static_cast<TMessageType>(known != std::end(kMessageTypes)
                                         ? known - std::begin(kMessageTypes) + 1
                                         : std::stoi(name.substr(name.find(' ') + 1)));
}

}  // namespace tavctl
