#include "calls.h"

namespace bench {

const char* nameOf(Encoding encoding) {
    switch (encoding) {
        case Encoding::binary:
            return "binary";
        case Encoding::compact:
            return "compact";
        case Encoding::staticBinary:
            return "static_binary";
        case Encoding::staticCompact:
            return "static_compact";
        case Encoding::json:
            return "json";
        default:
            return "derived";
    }
}

std::shared_ptr<TProtocol> makeProtocol(
    Encoding encoding, std::shared_ptr<apache::thrift::transport::TBufferBase> transport) {
    return withProtocolType(encoding, [&](auto* type) -> std::shared_ptr<TProtocol> {
        return std::make_shared<std::remove_pointer_t<decltype(type)>>(transport);
    });
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

std::string nameOf(const Contestant& contestant, Operation operation, Encoding encoding,
                   std::size_t length) {
    return std::string(contestant.name) + ' ' + nameOf(operation) + ' ' + nameOf(encoding) + ' ' +
           std::to_string(length);
}

}  // namespace bench
