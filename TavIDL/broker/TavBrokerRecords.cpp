#include <TavIDL/broker/TavBrokerTables.h>

using apache::thrift::protocol::TProtocol;

uint32_t TavBroker_OpenEmp_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_OpenEmp_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_OpenEmp_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_OpenEmp_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_OpenEmp_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_OpenEmp_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_Execute_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_Execute_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_Execute_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_Execute_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_Execute_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_Execute_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_CloseEmp_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_CloseEmp_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_CloseEmp_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_CloseEmp_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavBroker_CloseEmp_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavBroker_CloseEmp_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}
