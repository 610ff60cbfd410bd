// Whose code calls the transport: the library's, where it recognises a protocol and calls it
// directly, or this program's, where the protocol's virtual functions do. Built with hidden
// symbols, as many programs are: its type information is then not the library's.

#include <TavIDL/records/ConnectionInfo.h>
#include <dlfcn.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/transport/TTransport.h>

#include <iostream>
#include <string>

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TCompactProtocol;

namespace {

class NamingItsCaller : public apache::thrift::transport::TTransport {
public:
    std::string caller;

    void write_virt(const uint8_t*, uint32_t) override {
        Dl_info info;
        dladdr(__builtin_return_address(0), &info);
        const std::string file = info.dli_fname;
        caller = file.substr(file.rfind('/') + 1);
    }
};

class Derived : public TBinaryProtocol {
public:
    using TBinaryProtocol::TBinaryProtocol;
};

template <typename Protocol>
std::string callerFrom() {
    const TavIDL::shared_ptr<NamingItsCaller> transport(new NamingItsCaller);
    Protocol protocol(transport);
    ConnectionInfo().write(&protocol);
    return transport->caller;
}

}  // namespace

int main() {
    for (int i = 0; i < 2; ++i) {  // at first sight, and once they are known
        std::cout << callerFrom<TBinaryProtocol>() << ' ' << callerFrom<TCompactProtocol>() << ' '
                  << callerFrom<Derived>() << '\n';
    }
}
