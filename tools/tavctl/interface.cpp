#include "interface.h"

#include <algorithm>

#include "failure.h"

namespace tavctl {

namespace {

const Type kNothing{Kind::Nothing};
const Type kBool{Kind::Bool};
const Type kI32{Kind::I32};
const Type kString{Kind::String};

std::vector<Record> makeRecords() {
    Record paramList{"ParamList", {}};
    for (int16_t id = 1; id <= 10; ++id) {
        paramList.fields.push_back({id, "param" + std::to_string(id), kString});
    }
    return {
        {"ConnectionInfo",
         {{1, "callbackServicePort", kI32}, {2, "empServicePort", kI32}, {3, "empID", kString}}},
        paramList};
}

// The arguments of Execute, which two services have. The first one differs.
std::vector<Field> command(const std::string& caller) {
    return {{1, caller, kI32},      {2, "cmd", kString},    {3, "param1", kString},
            {4, "param2", kString}, {5, "param3", kString}, {6, "param4", kString}};
}

std::vector<Operation> makeOperations() {
    const Type connectionInfo{Kind::Record, &records().front()};
    const Type paramList{Kind::Record, &records().back()};
    return {
        {"TavBroker",
         "OpenEmp",
         {{1, "name", kString}, {2, "version", kString}, {3, "credential", kString}},
         connectionInfo},
        {"TavBroker", "Execute", command("fromPort"), kString},
        {"TavBroker", "CloseEmp", {{1, "connectionInfo", connectionInfo}}, kBool},
        {"TavEmp",
         "Open",
         {{1, "clientID", kI32},
          {2, "name", kString},
          {3, "version", kString},
          {4, "credential", kString}},
         kBool},
        {"TavEmp", "Close", {{1, "clientID", kI32}}, kI32},
        {"TavEmp", "Execute", command("clientID"), kString},
        {"TavEmp",
         "ExecuteWithParamList",
         {{1, "clientID", kI32}, {2, "cmd", kString}, {3, "paramList", paramList}},
         kString},
        {"TavEmpEvent",
         "Callback",
         {{1, "eventType", kI32}, {2, "param1", kString}, {3, "param2", kString}},
         kNothing},
    };
}

}  // namespace

const std::vector<Record>& records() {
    static const std::vector<Record> all = makeRecords();
    return all;
}

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = makeOperations();
    return all;
}

const Operation& operationNamed(const std::string& name, const std::string& service) {
    std::vector<const Operation*> found;
    std::string names;
    std::string fullNames;
    for (const Operation& operation : operations()) {
        if (!service.empty() && operation.service != service) {
            continue;
        }
        const std::string shown = service.empty() ? operation.fullName() : operation.name;
        names += (names.empty() ? "" : ", ") + shown;
        if (name == operation.fullName()) {
            return operation;
        }
        if (name == operation.name) {
            found.push_back(&operation);
            fullNames += (fullNames.empty() ? "" : " or ") + shown;
        }
    }
    if (found.size() == 1) {
        return *found.front();
    }
    if (!found.empty()) {
        throw Failure(Exit::Usage,
                      "two services have an operation '" + name + "'; write " + fullNames);
    }
    throw Failure(Exit::Usage, (service.empty() ? "there is" : service + " has") +
                                   (" no operation '" + name + "'; there are " + names));
}

const Field* fieldOf(const std::vector<Field>& fields, int16_t id) {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.id == id; });
    return found == fields.end() ? nullptr : &*found;
}

std::vector<Field> fieldsOf(const std::string& operation, bool isReply) {
    std::vector<Field> fields;
    for (const Operation& each : operations()) {
        if (each.name != operation) {
            continue;
        }
        const std::vector<Field> result = {{0, "success", each.result}};
        for (const Field& field : isReply ? result : each.arguments) {
            const auto known = std::find_if(fields.begin(), fields.end(), [&](const Field& other) {
                return other.id == field.id;
            });
            if (known == fields.end()) {
                fields.push_back(field);
            } else if (known->name != field.name) {
                known->name += "/" + field.name;
            }
        }
    }
    return fields;
}

std::string nameOf(const Type& type) {
    constexpr const char* kNames[] = {"nothing", "bool", "i32", "string"};
    return type.kind == Kind::Record ? type.record->name : kNames[static_cast<int>(type.kind)];
}

}  // namespace tavctl
