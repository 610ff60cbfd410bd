#ifndef TAVCTL_VALUES_H
#define TAVCTL_VALUES_H

#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "interface.h"

// The records convert to and from JSON, with all their fields.
template <>
struct nlohmann::adl_serializer<ConnectionInfo> {
    static void to_json(nlohmann::ordered_json& json, const ConnectionInfo& info);
    static void from_json(const nlohmann::ordered_json& json, ConnectionInfo& info);
};
template <>
struct nlohmann::adl_serializer<ParamList> {
    static void to_json(nlohmann::ordered_json& json, const ParamList& list);
    static void from_json(const nlohmann::ordered_json& json, ParamList& list);
};

namespace tavctl {

// Keeps the order of the fields. A string in here holds any bytes; those that are not UTF-8 go
// out, and come in, as {"hex": "..."}.
using Json = nlohmann::ordered_json;

// What stands where a credential would.
constexpr char kMasked[] = "***";

// `given` checked against a type, with what it lacks filled in: 0, false or empty. Throws a
// Failure that names `where`.
Json complete(const Type& type, const Json& given, const std::string& where);

// A value of a type from the text of a command line.
Json valueFrom(const Type& type, const std::string& text, const std::string& where);

// An operation's arguments from "key=value" words and an object, as far as they are given.
// Fields of a record are given as "connectionInfo.empID=x". Throws a Failure for a credential:
// everybody on the machine can read a command line.
Json argumentsFrom(const Operation& operation, const std::vector<std::string>& words,
                   Json given = Json::object());

// Reads JSON text, however hostile.
Json parseJson(const std::string& text, const std::string& where, int depthLimit = 8);

std::string toHex(const std::string& bytes);
// Throws std::invalid_argument.
std::string fromHex(const std::string& text);

// The arguments with credentials masked.
Json withoutSecrets(const Operation& operation, Json arguments);

}  // namespace tavctl

#endif
