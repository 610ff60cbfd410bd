#include "contestant.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>

namespace bench {

using namespace apache::thrift::protocol;

const char* nameOf(Encoding encoding) {
    switch (encoding) {
        case Encoding::binary:
            return "binary";
        case Encoding::compact:
            return "compact";
        default:
            return "json";
    }
}

std::shared_ptr<TProtocol> makeProtocol(
    Encoding encoding, std::shared_ptr<apache::thrift::transport::TTransport> transport) {
    switch (encoding) {
        case Encoding::binary:
            return std::make_shared<TBinaryProtocol>(transport);
        case Encoding::compact:
            return std::make_shared<TCompactProtocol>(transport);
        default:
            return std::make_shared<TJSONProtocol>(transport);
    }
}

const char* nameOf(Operation operation) {
    constexpr const char* names[] = {"TavBroker.OpenEmp",
                                     "TavBroker.Execute",
                                     "TavBroker.CloseEmp",
                                     "TavEmp.Open",
                                     "TavEmp.Close",
                                     "TavEmp.Execute",
                                     "TavEmp.ExecuteWithParamList",
                                     "TavEmpEvent.Callback"};
    return names[static_cast<std::size_t>(operation)];
}

Service serviceOf(Operation operation) {
    if (operation < Operation::empOpen) {
        return Service::broker;
    }
    return operation < Operation::eventCallback ? Service::emp : Service::event;
}

}  // namespace bench
