// Each record is read. What it then writes must be read back as the same record.

#include "Messages.h"

namespace {

template <typename Record>
void readAndWrite(const std::string& bytes, const proof::Encoding& encoding) {
    Record record;
    try {
        record.read(proof::makeProtocol(encoding, fuzz::bufferWith(bytes)).get());
    } catch (const apache::thrift::TException&) {
        return;
    }
    const auto writing = std::make_shared<proof::TMemoryBuffer>();
    record.write(proof::makeProtocol(encoding, writing).get());
    const std::string written = writing->getBufferAsString();

    Record copy;
    const auto reading = fuzz::bufferWith(written);
    copy.read(proof::makeProtocol(encoding, reading).get());
    fuzz::require(reading->available_read() == 0, "a record does not read all that it wrote");
    const auto again = std::make_shared<proof::TMemoryBuffer>();
    copy.write(proof::makeProtocol(encoding, again).get());
    fuzz::require(again->getBufferAsString() == written, "a record is not what was written");
}

constexpr void (*kRecords[])(const std::string&, const proof::Encoding&) = {
    readAndWrite<TavBroker_OpenEmp_args>,
    readAndWrite<TavBroker_OpenEmp_result>,
    readAndWrite<TavBroker_Execute_args>,
    readAndWrite<TavBroker_Execute_result>,
    readAndWrite<TavBroker_CloseEmp_args>,
    readAndWrite<TavBroker_CloseEmp_result>,
    readAndWrite<TavEmp_Open_args>,
    readAndWrite<TavEmp_Open_result>,
    readAndWrite<TavEmp_Close_args>,
    readAndWrite<TavEmp_Close_result>,
    readAndWrite<TavEmp_Execute_args>,
    readAndWrite<TavEmp_Execute_result>,
    readAndWrite<TavEmp_ExecuteWithParamList_args>,
    readAndWrite<TavEmp_ExecuteWithParamList_result>,
    readAndWrite<TavEmpEvent_Callback_args>,
    readAndWrite<ConnectionInfo>,
    readAndWrite<ParamList>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
    fuzz::Input input(bytes, size);
    const fuzz::Ways& ways = fuzz::waysOf(input.choose(2));
    const auto check = kRecords[input.choose(std::size(kRecords))];
    const std::string record = input.rest();
    for (const proof::Encoding& encoding : ways) {
        check(record, encoding);
    }
    return 0;
}
