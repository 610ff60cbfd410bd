#include "values.h"

#include <charconv>
#include <cstdint>
#include <set>

#include "failure.h"

namespace tavctl {

namespace {

constexpr std::string ParamList::*kParams[] = {
    &ParamList::param1, &ParamList::param2, &ParamList::param3, &ParamList::param4,
    &ParamList::param5, &ParamList::param6, &ParamList::param7, &ParamList::param8,
    &ParamList::param9, &ParamList::param10};

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

}  // namespace

Json toJson(const ConnectionInfo& info) {
    return {{"callbackServicePort", info.callbackServicePort},
            {"empServicePort", info.empServicePort},
            {"empID", info.empID}};
}

ConnectionInfo connectionInfoFrom(const Json& value) {
    ConnectionInfo info;
    info.callbackServicePort = value["callbackServicePort"];
    info.empServicePort = value["empServicePort"];
    info.empID = value["empID"];
    return info;
}

ParamList paramListFrom(const Json& value) {
    ParamList list;
    int number = 0;
    for (const auto param : kParams) {
        list.*param = value["param" + std::to_string(++number)];
    }
    return list;
}

Json toJson(const ParamList& list) {
    Json value;
    int number = 0;
    for (const auto param : kParams) {
        value["param" + std::to_string(++number)] = list.*param;
    }
    return value;
}

Json complete(const Type& type, const Json& given, const std::string& where) {
    switch (type.kind) {
        case Kind::Bool:
            if (!given.is_null() && !given.is_boolean()) {
                refuse(where, "true or false");
            }
            return given.is_null() ? Json(false) : given;
        case Kind::I32:
            if (given.is_null()) {
                return 0;
            }
            if (!given.is_number_integer() ||
                (given.is_number_unsigned() && given.get<uint64_t>() > INT32_MAX) ||
                given.get<int64_t>() < INT32_MIN || given.get<int64_t>() > INT32_MAX) {
                refuse(where, "a whole number from -2147483648 to 2147483647");
            }
            return given;
        case Kind::String:
            if (given.is_null()) {
                return "";
            }
            if (given.is_object() && given.size() == 1 && given.contains("hex") &&
                given["hex"].is_string()) {
                try {
                    return fromHex(given["hex"]);
                } catch (const std::invalid_argument& failure) {
                    refuse(where,
                           std::string("hexadecimal digits, but there is ") + failure.what());
                }
            }
            if (!given.is_string()) {
                refuse(where, R"(a string, or {"hex": "..."})");
            }
            return given;
        case Kind::Record:
            return completeFields(type.record->fields, given.is_null() ? Json::object() : given,
                                  where);
        case Kind::Nothing:
            break;
    }
    return given;
}

Json valueFrom(const Type& type, const std::string& text, const std::string& where) {
    switch (type.kind) {
        case Kind::Bool:
            return complete(
                type, text == "true" || text == "false" ? Json(text == "true") : Json(0), where);
        case Kind::I32: {
            int32_t number = 0;
            const char* const end = text.data() + text.size();
            const auto parsed = std::from_chars(text.data(), end, number);
            return complete(
                type, parsed.ec == std::errc() && parsed.ptr == end ? Json(number) : Json(text),
                where);
        }
        case Kind::Record:
            return complete(type, parseJson(text, where), where);
        case Kind::String:
        case Kind::Nothing:
            break;
    }
    return text;
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
            throw Failure(Exit::Usage, "'" + word + "' is no argument; write key=value");
        }
        const std::string text = word.substr(key.size() + 1);
        const std::string first = key.substr(0, key.find('.'));
        const Field* field = fieldNamed(operation.arguments, first);
        Json* place = &given[first];
        if (field != nullptr && field->type.kind == Kind::Record && first.size() < key.size()) {
            const std::string second = key.substr(first.size() + 1);
            field = fieldNamed(field->type.record->fields, second);
            place = &(*place)[second];
        } else if (first.size() < key.size()) {
            field = nullptr;
        }
        if (field == nullptr) {
            throw Failure(Exit::Usage, where + " has no argument '" + key + "'; it has " +
                                           namesOf(operation.arguments) + " (see tavctl describe)");
        }
        if (field->secret()) {
            throw Failure(Exit::Usage,
                          "a credential is not taken from the command line, where all can read it; "
                          "use --credential-file, or TAV_CREDENTIAL in the environment");
        }
        if (!keys.insert(key).second) {
            throw Failure(Exit::Usage, where + " is given '" + key + "' twice; give it once");
        }
        *place = valueFrom(field->type, text, key);
    }
    return completeFields(operation.arguments, given, where);
}

Json parseJson(const std::string& text, const std::string& where) {
    // Nesting costs the parser and whoever walks the value: none of the records needs any.
    constexpr int kDepth = 8;
    std::vector<std::set<std::string>> keys;  // of each object that is open
    const auto checked = [&](int depth, Json::parse_event_t event, Json& parsed) {
        if (depth > kDepth) {
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
                                       std::to_string(failure.byte == 0 ? 0 : failure.byte - 1));
    } catch (const std::exception& failure) {
        throw Failure(Exit::Usage, where + " takes JSON, but " + failure.what());
    }
}

std::string toHex(const std::string& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string fromHex(const std::string& text) {
    if (text.size() % 2 != 0) {
        throw std::invalid_argument("half a byte at the end");
    }
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned char byte = 0;
        const auto parsed = std::from_chars(&text[i], &text[i] + 2, byte, 16);
        if (parsed.ec != std::errc() || parsed.ptr != &text[i] + 2) {
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
