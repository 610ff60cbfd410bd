#ifndef TESTS_MODULES_CALLS_H
#define TESTS_MODULES_CALLS_H

// libthrift's headers come first: with the visibility that the program or module is compiled with.
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include "module.h"

#include <TavIDL/emp/TavEmp.h>
#include <TavIDL/records/ConnectionInfo.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <typeinfo>

// What these programs and modules do with their protocol.
namespace calls {

using apache::thrift::protocol::TBinaryProtocolT;
using apache::thrift::protocol::TCompactProtocolT;
using apache::thrift::transport::TBufferBase;
using apache::thrift::transport::TMemoryBuffer;
using apache::thrift::transport::TTransport;

using Binary = TBinaryProtocolT<TTransport>;
using Compact = TCompactProtocolT<TTransport>;
using StaticBinary = TBinaryProtocolT<TBufferBase>;
using StaticCompact = TCompactProtocolT<TBufferBase>;

// Overrides a virtual function, which the library must call.
class Adding : public Binary {
public:
    using Binary::Binary;
    uint32_t writeI32_virt(const int32_t value) override { return Binary::writeI32(value + 1000); }
};

class Emp : public TavEmpIf {
public:
    bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
        return false;
    }
    int32_t Close(int32_t clientID) override { return clientID + 1; }
    void Execute(std::string&, int32_t, const std::string&, const std::string&, const std::string&,
                 const std::string&, const std::string&) override {}
    void ExecuteWithParamList(std::string&, int32_t, const std::string&,
                              const ParamList&) override {}
};

// Between a client and a processor.
template <typename Protocol>
Exchange exchange() {
    const TavIDL::shared_ptr<TMemoryBuffer> requests(new TMemoryBuffer);
    const TavIDL::shared_ptr<TMemoryBuffer> replies(new TMemoryBuffer);
    const TavIDL::ProtocolPointer request(new Protocol(requests));
    const TavIDL::ProtocolPointer reply(new Protocol(replies));
    TavEmpClient client(reply, request);
    TavEmpProcessor processor{TavIDL::shared_ptr<TavEmpIf>(new Emp)};
    Exchange found;

    client.send_Close(1);
    found.request = requests->getBufferAsString();
    processor.process(request, reply, nullptr);
    found.reply = replies->getBufferAsString();
    found.result = client.recv_Close();
    return found;
}

// Hidden: otherwise all modules would share it, and the loader would never unload the first.
__attribute__((visibility("hidden"))) inline int virtualCallCount = 0;

// Counts how often `use` calls a virtual function of a protocol. Replaces the protocol's table of
// virtual functions by one whose functions only count; its type does not change.
template <typename Protocol, typename Use>
int virtualCalls(const Use& use) {
    using Function = uint32_t (*)();
    struct Table {  // as in the Itanium C++ ABI, for a class without virtual bases
        std::ptrdiff_t offsetToTop;
        const std::type_info* type;
        Function functions[256];  // more than a protocol has
    };
    Table table{0, &typeid(Protocol), {}};
    for (Function& function : table.functions) {
        function = [] {
            ++virtualCallCount;
            return uint32_t{0};
        };
    }
    const TavIDL::shared_ptr<TMemoryBuffer> transport(new TMemoryBuffer);
    const TavIDL::ProtocolPointer protocol(new Protocol(transport));
    const Function* const counting = table.functions;
    const Function* usual = nullptr;
    void* const object = protocol.get();
    std::memcpy(&usual, object, sizeof usual);
    std::memcpy(object, &counting, sizeof counting);
    virtualCallCount = 0;
    use(protocol);
    std::memcpy(object, &usual, sizeof usual);
    return virtualCallCount;
}

template <typename Protocol>
int virtualCallsOfARecord() {
    return virtualCalls<Protocol>(
        [](const TavIDL::ProtocolPointer& protocol) { ConnectionInfo().write(protocol.get()); });
}

template <typename Protocol>
int virtualCallsOfAMessage() {
    return virtualCalls<Protocol>(
        [](const TavIDL::ProtocolPointer& protocol) { TavEmpClient(protocol).send_Close(1); });
}

}  // namespace calls

#endif
