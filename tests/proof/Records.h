#ifndef TESTS_PROOF_RECORDS_H
#define TESTS_PROOF_RECORDS_H

#include <support/Recording.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Conversations.h"

// The records by themselves, for their flags.
namespace proof {

// A record in the binary encoding.
template <typename Record>
std::string bytesOf(const Record& record) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    record.write(makeProtocol(kEncodings[0], buffer).get());
    return buffer->getBufferAsString();
}

// The same, cut into its fields.
template <typename Record>
std::vector<std::string> fieldsOf(const Record& record) {
    namespace protocol = apache::thrift::protocol;
    const auto buffer = std::make_shared<TMemoryBuffer>();
    const auto binary = makeProtocol(kEncodings[0], buffer);
    record.write(binary.get());
    const std::string bytes = buffer->getBufferAsString();

    std::vector<std::string> fields;
    std::size_t begin = 0;
    std::string name;
    for (;;) {
        protocol::TType type = protocol::T_STOP;
        int16_t id = 0;
        binary->readFieldBegin(name, type, id);
        if (type == protocol::T_STOP) {
            return fields;
        }
        binary->skip(type);
        const std::size_t end = bytes.size() - buffer->available_read();
        fields.push_back(bytes.substr(begin, end - begin));
        begin = end;
    }
}

// A record with all of its fields flagged.
template <typename Record>
Record flagged(Record record) {
    std::fill_n(reinterpret_cast<bool*>(&record.__isset), sizeof(record.__isset), true);
    return record;
}

// How many of the first fields have been read, flagged or not: they have their value in `whole`,
// which differs from what they begin with.
template <typename Record>
std::size_t fieldsReadInto(const Record& record, const Record& whole) {
    const std::vector<std::string> read = fieldsOf(flagged(record));
    const std::vector<std::string> expected = fieldsOf(whole);
    const auto end = std::mismatch(read.begin(), read.end(), expected.begin(), expected.end());
    return static_cast<std::size_t>(end.first - read.begin());
}

// Whether exactly the first `fields` are flagged, and each of these has its value in `whole`.
template <typename Record>
bool flagsAreRight(const Record& record, const Record& whole, std::size_t fields) {
    const std::string unflagged(sizeof(record.__isset) - fields, '0');
    return recording::flagsOf(record) == std::string(fields, '1') + unflagged &&
           fieldsReadInto(record, whole) >= fields;
}

// The record that a message carries, with all fields flagged.
template <typename Record>
Record recordIn(const std::string& message) {
    const auto buffer = std::make_shared<TMemoryBuffer>();
    buffer->write(reinterpret_cast<const uint8_t*>(message.data()),
                  static_cast<uint32_t>(message.size()));
    const auto binary = makeProtocol(kEncodings[0], buffer);
    std::string name;
    TMessageType type{};
    int32_t seqid = 0;
    binary->readMessageBegin(name, type, seqid);
    Record record;
    record.read(binary.get());
    return flagged(record);
}

// Calls `visit` with the name and an object of each record that can be read, with all its fields
// set and flagged.
template <typename Visit>
void forEachRecord(Visit visit) {
    const auto arguments = [&](const char* name, Call call, auto record) {
        const Operation& operation = kOperations.at(static_cast<std::size_t>(call));
        record = recordIn<decltype(record)>(requestOf(operation, kEncodings[0]));
        visit(std::string(name) + "_args", record);
        return record;
    };
    const auto result = [&](const char* name, Call call, auto record) {
        const Operation& operation = kOperations.at(static_cast<std::size_t>(call));
        record = recordIn<decltype(record)>(replyTo(operation, kEncodings[0]));
        visit(std::string(name) + "_result", record);
    };
    arguments("TavBroker_OpenEmp", Call::openEmp, TavBroker_OpenEmp_args());
    arguments("TavBroker_Execute", Call::brokerExecute, TavBroker_Execute_args());
    const auto closing = arguments("TavBroker_CloseEmp", Call::closeEmp, TavBroker_CloseEmp_args());
    arguments("TavEmp_Open", Call::open, TavEmp_Open_args());
    arguments("TavEmp_Close", Call::close, TavEmp_Close_args());
    arguments("TavEmp_Execute", Call::empExecute, TavEmp_Execute_args());
    const auto executing = arguments("TavEmp_ExecuteWithParamList", Call::executeWithParamList,
                                     TavEmp_ExecuteWithParamList_args());
    arguments("TavEmpEvent_Callback", Call::callback, TavEmpEvent_Callback_args());
    result("TavBroker_OpenEmp", Call::openEmp, TavBroker_OpenEmp_result());
    result("TavBroker_Execute", Call::brokerExecute, TavBroker_Execute_result());
    result("TavBroker_CloseEmp", Call::closeEmp, TavBroker_CloseEmp_result());
    result("TavEmp_Open", Call::open, TavEmp_Open_result());
    result("TavEmp_Close", Call::close, TavEmp_Close_result());
    result("TavEmp_Execute", Call::empExecute, TavEmp_Execute_result());
    result("TavEmp_ExecuteWithParamList", Call::executeWithParamList,
           TavEmp_ExecuteWithParamList_result());
    visit(std::string("ConnectionInfo"), closing.connectionInfo);
    visit(std::string("ParamList"), executing.paramList);
}

}  // namespace proof

#endif
