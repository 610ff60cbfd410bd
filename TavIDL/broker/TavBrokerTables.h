#ifndef TAVIDL_BROKER_TAVBROKERTABLES_H
#define TAVIDL_BROKER_TAVBROKERTABLES_H

#include <TavIDL/broker/TavBrokerRecords.h>
#include <TavIDL/records/codec.h>
#include <TavIDL/records/tables.h>

namespace TavIDL::wire {

inline constexpr Field kTavBroker_OpenEmp[] = {
    {"name", &TavBroker_OpenEmp_args::name, offsetof(TavBroker_OpenEmp_args, name)},
    {"version", &TavBroker_OpenEmp_args::version, offsetof(TavBroker_OpenEmp_args, version)},
    {"credential", &TavBroker_OpenEmp_args::credential,
     offsetof(TavBroker_OpenEmp_args, credential)},
};
inline constexpr Field kTavBroker_OpenEmp_success[] = {
    {"success", &TavBroker_OpenEmp_result::success, offsetof(TavBroker_OpenEmp_result, success)},
};
template <>
inline constexpr Record table<TavBroker_OpenEmp_args> =
    valueTable<TavBroker_OpenEmp_args>("TavBroker_OpenEmp_args", kTavBroker_OpenEmp);
template <>
inline constexpr Record table<TavBroker_OpenEmp_pargs> =
    pointerTable<TavBroker_OpenEmp_pargs>("TavBroker_OpenEmp_pargs", kTavBroker_OpenEmp);
template <>
inline constexpr Record table<TavBroker_OpenEmp_result> =
    resultTable<TavBroker_OpenEmp_result>("TavBroker_OpenEmp_result", kTavBroker_OpenEmp_success);
template <>
inline constexpr Record table<TavBroker_OpenEmp_presult> =
    resultPointerTable<TavBroker_OpenEmp_presult>(kTavBroker_OpenEmp_success);

inline constexpr Field kTavBroker_Execute[] = {
    {"fromPort", &TavBroker_Execute_args::fromPort, offsetof(TavBroker_Execute_args, fromPort)},
    {"cmd", &TavBroker_Execute_args::cmd, offsetof(TavBroker_Execute_args, cmd)},
    {"param1", &TavBroker_Execute_args::param1, offsetof(TavBroker_Execute_args, param1)},
    {"param2", &TavBroker_Execute_args::param2, offsetof(TavBroker_Execute_args, param2)},
    {"param3", &TavBroker_Execute_args::param3, offsetof(TavBroker_Execute_args, param3)},
    {"param4", &TavBroker_Execute_args::param4, offsetof(TavBroker_Execute_args, param4)},
};
inline constexpr Field kTavBroker_Execute_success[] = {
    {"success", &TavBroker_Execute_result::success, offsetof(TavBroker_Execute_result, success)},
};
template <>
inline constexpr Record table<TavBroker_Execute_args> =
    valueTable<TavBroker_Execute_args>("TavBroker_Execute_args", kTavBroker_Execute);
template <>
inline constexpr Record table<TavBroker_Execute_pargs> =
    pointerTable<TavBroker_Execute_pargs>("TavBroker_Execute_pargs", kTavBroker_Execute);
template <>
inline constexpr Record table<TavBroker_Execute_result> =
    resultTable<TavBroker_Execute_result>("TavBroker_Execute_result", kTavBroker_Execute_success);
template <>
inline constexpr Record table<TavBroker_Execute_presult> =
    resultPointerTable<TavBroker_Execute_presult>(kTavBroker_Execute_success);

inline constexpr Field kTavBroker_CloseEmp[] = {
    {"connectionInfo", &TavBroker_CloseEmp_args::connectionInfo,
     offsetof(TavBroker_CloseEmp_args, connectionInfo)},
};
inline constexpr Field kTavBroker_CloseEmp_success[] = {
    {"success", &TavBroker_CloseEmp_result::success, offsetof(TavBroker_CloseEmp_result, success)},
};
template <>
inline constexpr Record table<TavBroker_CloseEmp_args> =
    valueTable<TavBroker_CloseEmp_args>("TavBroker_CloseEmp_args", kTavBroker_CloseEmp);
template <>
inline constexpr Record table<TavBroker_CloseEmp_pargs> =
    pointerTable<TavBroker_CloseEmp_pargs>("TavBroker_CloseEmp_pargs", kTavBroker_CloseEmp);
template <>
inline constexpr Record table<TavBroker_CloseEmp_result> = resultTable<TavBroker_CloseEmp_result>(
    "TavBroker_CloseEmp_result", kTavBroker_CloseEmp_success);
template <>
inline constexpr Record table<TavBroker_CloseEmp_presult> =
    resultPointerTable<TavBroker_CloseEmp_presult>(kTavBroker_CloseEmp_success);

}  // namespace TavIDL::wire

#endif
