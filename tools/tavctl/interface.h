#ifndef TAVCTL_INTERFACE_H
#define TAVCTL_INTERFACE_H

#include <cstdint>
#include <string>
#include <vector>

namespace tavctl {

// The interface as data. What is shown, checked, decoded and served follows from this table;
// only typed.cpp names operations besides it.

enum class Kind { Nothing, Bool, I32, String, Record };

struct Record;

struct Type {
    Kind kind;
    const Record* record = nullptr;
};

struct Field {
    int16_t id;
    std::string name;
    Type type;

    // Never shown.
    bool secret() const { return name == "credential"; }
};

struct Record {
    std::string name;
    std::vector<Field> fields;
};

struct Operation {
    std::string service;
    std::string name;
    std::vector<Field> arguments;
    Type result;  // Nothing: one-way

    std::string fullName() const { return service + "." + name; }
};

// In the order of the interface definition.
const std::vector<Operation>& operations();
const std::vector<Record>& records();

// An operation by its name, with the service before it unless only one service has it. Throws a
// Failure that names the operations there are; only those of `service`, if it is given.
const Operation& operationNamed(const std::string& name, const std::string& service = "");

// The field with this id, or null.
const Field* fieldOf(const std::vector<Field>& fields, int16_t id);

// The fields that a message may have. Two services may have an operation of one name: a field
// whose names differ has both.
std::vector<Field> fieldsOf(const std::string& operation, bool isReply);

std::string nameOf(const Type& type);

// The interface definition, as its file has it.
extern const char* const kInterfaceDefinition;

}  // namespace tavctl

#endif
