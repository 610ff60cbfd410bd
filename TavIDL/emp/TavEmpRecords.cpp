#include <TavIDL/emp/TavEmpTables.h>

using apache::thrift::protocol::TProtocol;

uint32_t TavEmp_Open_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Open_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Open_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Open_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Open_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Open_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Close_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Close_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Close_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Close_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Close_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Close_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Execute_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Execute_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Execute_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Execute_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_Execute_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_Execute_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_ExecuteWithParamList_args::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_ExecuteWithParamList_args::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_ExecuteWithParamList_pargs::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_ExecuteWithParamList_result::write(TProtocol* oprot) const {
    return TavIDL::wire::write(oprot, *this);
}

uint32_t TavEmp_ExecuteWithParamList_result::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}

uint32_t TavEmp_ExecuteWithParamList_presult::read(TProtocol* iprot) {
    return TavIDL::wire::read(iprot, *this);
}
