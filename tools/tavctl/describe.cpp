#include <algorithm>

#include "failure.h"
#include "print.h"
#include "verbs.h"

namespace {

Json fieldsAsJson(const std::vector<Field>& fields) {
    Json list = Json::array();
    for (const Field& field : fields) {
        list.push_back({{"id", field.id}, {"name", field.name}, {"type", nameOf(field.type)}});
    }
    return list;
}

std::string fieldLines(const std::vector<Field>& fields) {
    std::size_t width = 0;
    for (const Field& field : fields) {
        width = std::max(width, field.name.size());
    }
    std::string lines;
    for (const Field& field : fields) {
        lines += padded("", 4) + padded(std::to_string(field.id), 3) +
                 tinted(Tint::Name, padded(field.name, width)) + "  " + nameOf(field.type) + "\n";
    }
    return lines;
}

// What `wanted` names: an operation, a service, a record, or everything if it is empty.
int describe(const std::string& wanted) {
    Json all = {{"operations", Json::array()}, {"records", Json::array()}};
    std::string lines;
    std::string names;
    for (const Operation& operation : operations()) {
        const std::string name = operation.fullName();
        if (!wanted.empty() && wanted != operation.service && wanted != name) {
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
                 fieldLines(operation.arguments);
        names += name + "\n";
    }
    for (const Record& record : records()) {
        if (wanted.empty() || wanted == record.name) {
            all["records"].push_back(
                {{"name", record.name}, {"fields", fieldsAsJson(record.fields)}});
            lines += tinted(Tint::Value, record.name) + "\n" + fieldLines(record.fields);
        }
    }
    if (lines.empty()) {
        (void)operationNamed(wanted);  // tells which there are
    }
    if (output.json) {
        printJson(all);
    } else {
        print(output.quiet ? names : lines);
    }
    return 0;
}

}  // namespace

void addDescribe(CLI::App& app, Run& run) {
    struct Options {
        std::string wanted;
        bool thrift = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(app, "describe", "Show the interface, or a part of it",
                             "tavctl describe TavBroker.OpenEmp");
    verb->add_option("wanted", options->wanted, "What to show; all if left out")
        ->option_text("[SERVICE[.OPERATION] or RECORD]");
    verb->add_flag("--thrift", options->thrift, "Print the interface definition");
    verb->callback([options, &run] {
        run = [options] {
            if (options->thrift) {
                if (!options->wanted.empty()) {
                    throw Failure(Exit::Usage,
                                  "--thrift prints all of the definition; leave out '" +
                                      options->wanted + "'");
                }
                print(kInterfaceDefinition);
                return 0;
            }
            return describe(options->wanted);
        };
    });
}
