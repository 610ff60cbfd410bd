#include "values.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <set>

#include "failure.h"

namespace nlohmann {

namespace {

constexpr std::pair<const char*, std::string ParamList::*> kParams[] = {
    {"param1", &ParamList::param1},  {"param2", &ParamList::param2}, {"param3", &ParamList::param3},
    {"param4", &ParamList::param4},  {"param5", &ParamList::param5}, {"param6", &ParamList::param6},
    {"param7", &ParamList::param7},  {"param8", &ParamList::param8}, {"param9", &ParamList::param9},
    {"param10", &ParamList::param10}};

}  // namespace

void adl_serializer<ConnectionInfo>::to_json(ordered_json& json, const ConnectionInfo& info) {
    json = {{"callbackServicePort", info.callbackServicePort},
            {"empServicePort", info.empServicePort},
            {"empID", info.empID}};
}

void adl_serializer<ConnectionInfo>::from_json(const ordered_json& json, ConnectionInfo& info) {
    json.at("callbackServicePort").get_to(info.callbackServicePort);
    json.at("empServicePort").get_to(info.empServicePort);
    json.at("empID").get_to(info.empID);
}

void adl_serializer<ParamList>::to_json(ordered_json& json, const ParamList& list) {
    for (const auto& [name, param] : kParams) {
        json[name] = list.*param;
    }
}

void adl_serializer<ParamList>::from_json(const ordered_json& json, ParamList& list) {
    for (const auto& [name, param] : kParams) {
        json.at(name).get_to(list.*param);
    }
}

}  // namespace nlohmann

namespace tavctl {

namespace {

[[noreturn]] void refuse(const std::string& where, const std::string& expected) {
    throw Failure(Exit::Usage, where + " takes " + expected);
}

const Field* fieldNamed(const std::vector<Field>& fields, const std::string& name) {
    for (const Field& field : fields) {
        if (field.name == name) {
            return &field;
        }
    }
    return nullptr;
}

std::string namesOf(const std::vector<Field>& fields) {
    std::string names;
    for (const Field& field : fields) {
        names += (names.empty() ? "" : ", ") + field.name;
    }
    return names;
}

Json completeFields(const std::vector<Field>& fields, const Json& given, const std::string& where) {
    if (!given.is_object()) {
        refuse(where, "an object with the fields " + namesOf(fields));
    }
    for (const auto& member : given.items()) {
        if (fieldNamed(fields, member.key()) == nullptr) {
            throw Failure(Exit::Usage, where + " has no field '" + member.key() + "'; it has " +
                                           namesOf(fields));
        }
    }
    Json all = Json::object();
    for (const Field& field : fields) {
        all[field.name] =
            complete(field.type, given.value(field.name, Json()), where + "." + field.name);
    }
    return all;
}

bool isI32(const Json& value) {
    const double number = value.is_number_integer() ? value.get<double>() : INFINITY;
    return number >= INT32_MIN && number <= INT32_MAX;
}

std::string bytesFrom(const Json& hex, const std::string& where) try {
    return fromHex(hex);
} catch (const std::invalid_argument& failure) {
    refuse(where, std::string("hexadecimal digits, but there is ") + failure.what());
}

}  // namespace

Json complete(const Type& type, const Json& given, const std::string& where) {
    const bool missing = given.is_null();
    switch (type.kind) {
        case Kind::Bool:
            if (missing || given.is_boolean()) {
                return missing ? Json(false) : given;
            }
            refuse(where, "true or false");
        case Kind::I32:
            if (missing || isI32(given)) {
                return missing ? Json(0) : given;
            }
            refuse(where, "a whole number from -2147483648 to 2147483647");
        case Kind::String:
            if (missing || given.is_string()) {
                return missing ? Json("") : given;
            }
            if (given.is_object() && given.size() == 1 && given.value("hex", Json()).is_string()) {
                return bytesFrom(given["hex"], where);
            }
            refuse(where, R"(a string, or {"hex": "..."})");
        case Kind::Record:
            return completeFields(type.record->fields, missing ? Json::object() : given, where);
        case Kind::Nothing:
            break;
    }
    return given;
}

Json valueFrom(const Type& type, const std::string& text, const std::string& where) {
    if (type.kind == Kind::String) {
        return text;
    }
    if (type.kind == Kind::Record) {
        return complete(type, parseJson(text, where), where);
    }
    const Json value = Json::parse(text, nullptr, false);
    return complete(type, value.is_boolean() || value.is_number() ? value : Json(text), where);
}

Json argumentsFrom(const Operation& operation, const std::vector<std::string>& words, Json given) {
    const std::string& where = operation.name;
    if (!given.is_object()) {
        refuse(where, "an object with the fields " + namesOf(operation.arguments));
    }
    std::set<std::string> keys;
    for (const std::string& word : words) {
        const std::string key = word.substr(0, word.find('='));
        if (key.size() == word.size()) {
            throw Failure(Exit::Usage, "'" + word + "' is not an argument; write key=value");
        }
        // "connectionInfo.empID" names a field of a record.
        const std::string first = key.substr(0, key.find('.'));
        const Field* field = fieldNamed(operation.arguments, first);
        if (field == nullptr) {
            throw Failure(Exit::Usage, where + " has no argument '" + key + "'; it has " +
                                           namesOf(operation.arguments) + " (see tavctl describe)");
        }
        Json* place = &given[first];
        if (first.size() < key.size()) {
            const std::string second = key.substr(first.size() + 1);
            const Record* record = field->type.record;
            field = record == nullptr ? nullptr : fieldNamed(record->fields, second);
            if (field == nullptr) {
                throw Failure(Exit::Usage,
                              first + " has no field '" + second + "'; it has " +
                                  (record == nullptr ? "none" : namesOf(record->fields)));
            }
            if (!place->is_null() && !place->is_object()) {
                refuse(first, "an object with the fields " + namesOf(record->fields));
            }
            place = &(*place)[second];
        }
        if (field->secret()) {
            throw Failure(
                Exit::Usage,
                "a credential cannot be given on the command line, where everyone can read it; "
                "use --credential-file, or TAV_CREDENTIAL in the environment");
        }
        // A record replaces fields of it that were given before.
        const auto part = keys.lower_bound(key + ".");
        const bool hasParts = part != keys.end() && part->find(key + ".") == 0;
        if (!keys.insert(key).second || hasParts) {
            throw Failure(Exit::Usage, where + " gets '" + key + "' twice; give it once");
        }
        *place = valueFrom(field->type, word.substr(key.size() + 1), key);
    }
    return completeFields(operation.arguments, given, where);
}

// The records need no nesting, and it costs the parser and everything that walks the value.
Json parseJson(const std::string& text, const std::string& where, int depthLimit) {
    std::vector<std::set<std::string>> keys;  // of each object that is open
    const auto checked = [&](int depth, Json::parse_event_t event, Json& parsed) {
        if (depth > depthLimit) {
            throw std::length_error("it is nested too deeply");
        }
        if (event == Json::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            keys.pop_back();
        } else if (event == Json::parse_event_t::key && !keys.back().insert(parsed).second) {
            throw std::invalid_argument("'" + parsed.get<std::string>() + "' is in it twice");
        }
        return true;
    };
    try {
        return Json::parse(text, checked);
    } catch (const Json::parse_error& failure) {
        throw Failure(Exit::Usage, where + " takes JSON, but it breaks at byte " +
                                       std::to_string(failure.byte - 1));
    } catch (const std::exception& failure) {
        throw Failure(Exit::Usage, where + " takes JSON, but " + failure.what());
    }
}

std::string toHex(const std::string& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

std::string fromHex(const std::string& text) {
    if (text.size() % 2 != 0) {
        throw std::invalid_argument("half a byte at the end");
    }
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned char byte = 0;
        if (std::from_chars(&text[i], &text[i] + 2, byte, 16).ptr != &text[i] + 2) {
            throw std::invalid_argument("no hexadecimal digit at " + std::to_string(i));
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

Json withoutSecrets(const Operation& operation, Json arguments) {
    for (const Field& field : operation.arguments) {
        if (field.secret()) {
            arguments[field.name] = kMasked;
        }
    }
    return arguments;
}

}  // namespace tavctl
