#include <TavIDL/event/TavEmpEventTables.h>

using apache::thrift::protocol::TProtocol;

uint32_t TavEmpEvent_Callback_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmpEvent_Callback_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmpEvent_Callback_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}
