#include <unistd.h>

#include <iostream>

#include "encoder.h"
#include "print.h"
#include "verbs.h"

namespace tavctl {

namespace {

// The next line of standard input. Returns false at its end.
bool readLine(std::string& line) {
    line.clear();
    for (char c = 0; std::cin.get(c) && c != '\n';) {
        line += c;
        if (line.size() > std::size_t{2} * kMessageLimit) {
            throw Failure(Exit::Usage, "a line is too long for one message");
        }
    }
    return !line.empty() || !std::cin.eof();
}

Json fieldsFrom(const std::vector<Field>& fields, const Json& values) {
    Json list = Json::array();
    for (const Field& field : fields) {
        const Json& value = values[field.name];
        const Record* record = field.type.record;
        list.push_back({{"id", field.id},
                        {"type", record == nullptr ? nameOf(field.type) : "struct"},
                        {"value", record == nullptr ? value : fieldsFrom(record->fields, value)}});
    }
    return list;
}

Json messageFrom(const EncodeOptions& options) {
    const Operation& operation = operationNamed(options.words[0]);
    Json arguments = argumentsFrom(operation, {options.words.begin() + 1, options.words.end()});
    options.credential.addTo(operation, arguments);
    return {{"operation", operation.name},
            {"type", "call"},  // also for events: the library sends them this way
            {"seqid", 0},
            {"fields", fieldsFrom(operation.arguments, arguments)}};
}

// Fills in the credential where decode has masked it.
void unmask(Json& message, const Credential& credential, const std::string& where) try {
    for (Json& field : message["fields"]) {
        if (field.value("name", "") == "credential" && field["value"] == kMasked) {
            field["value"] = credential.get();
        }
    }
} catch (const Json::exception&) {
    return;  // encoded() says what is wrong with it
} catch (const Failure& failure) {
    throw Failure(failure.status, where + ", whose credential is masked: " + failure.what());
}

void write(const Json& message, const EncodeOptions& options, const std::string& where) {
    const std::string bytes = encoded(message, options.settings, where);
    const bool hex =
        options.format == "hex" || (options.format == "auto" && isatty(STDOUT_FILENO) != 0);
    show({{"hex", toHex(bytes)}}, hex ? toHex(bytes) + "\n" : bytes);
}

}  // namespace

int encode(const EncodeOptions& options) {
    if (!options.words.empty()) {
        write(messageFrom(options), options, options.words[0]);
        return 0;
    }
    if (options.credential.file == "-") {
        throw Failure(Exit::Usage,
                      "standard input holds the messages; give the credential in a file");
    }
    std::string line;
    for (int number = 1; !output.lost && readLine(line); ++number) {
        const std::string where = "line " + std::to_string(number);
        Json message = parseJson(line, where, 3 * kDepthLimit);
        if (message.contains("broken")) {
            throw Failure(Exit::Usage, where + " is a broken message, which cannot be encoded");
        }
        unmask(message, options.credential, where);
        write(message, options, where);
    }
    return 0;
}

}  // namespace tavctl
