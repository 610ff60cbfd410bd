#include "message.h"
#include "print.h"
#include "verbs.h"

namespace tavctl {

namespace {

Json fieldsAsJson(const std::vector<Field>& fields) {
    Json list = Json::array();
    for (const Field& field : fields) {
        list.push_back({{"id", field.id}, {"name", field.name}, {"type", nameOf(field.type)}});
    }
    return list;
}

}  // namespace

int describe(const DescribeOptions& options) {
    const std::string& wanted = options.wanted;
    if (options.thrift) {
        if (!wanted.empty()) {
            throw Failure(Exit::Usage,
                          "--thrift prints the whole definition; omit '" + wanted + "'");
        }
        print(kInterfaceDefinition);
        return 0;
    }
    Json all = {{"operations", Json::array()}, {"records", Json::array()}};
    std::string lines;
    std::string names;
    for (const Operation& operation : operations()) {
        const std::string name = operation.fullName();
        if (!wanted.empty() && wanted != operation.service && wanted != name &&
            wanted != operation.name) {
            continue;
        }
        const bool oneway = operation.result.kind == Kind::Nothing;
        all["operations"].push_back({{"service", operation.service},
                                     {"name", operation.name},
                                     {"oneway", oneway},
                                     {"arguments", fieldsAsJson(operation.arguments)},
                                     {"result", nameOf(operation.result)}});
        lines += tinted(Tint::Value, name) +
                 (oneway ? ", one-way" : ": " + nameOf(operation.result)) + "\n" +
                 describedFields(fieldsAsJson(operation.arguments), "    ");
        names += name + "\n";
    }
    for (const Record& record : records()) {
        if (wanted.empty() || wanted == record.name) {
            all["records"].push_back(
                {{"name", record.name}, {"fields", fieldsAsJson(record.fields)}});
            lines += tinted(Tint::Value, record.name) + "\n" +
                     describedFields(fieldsAsJson(record.fields), "    ");
        }
    }
    if (lines.empty()) {
        (void)operationNamed(wanted);  // throws, with a list of all
    }
    show(all, output.quiet ? names : lines);
    return 0;
}

}  // namespace tavctl
