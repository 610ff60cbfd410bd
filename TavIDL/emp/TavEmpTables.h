#ifndef TAVIDL_EMP_TAVEMPTABLES_H
#define TAVIDL_EMP_TAVEMPTABLES_H

#include <TavIDL/emp/TavEmpRecords.h>
#include <TavIDL/records/codec.h>
#include <TavIDL/records/tables.h>

namespace TavIDL::wire {

inline constexpr Field kTavEmp_Open[] = {
    {"clientID", &TavEmp_Open_args::clientID, offsetof(TavEmp_Open_args, clientID)},
    {"name", &TavEmp_Open_args::name, offsetof(TavEmp_Open_args, name)},
    {"version", &TavEmp_Open_args::version, offsetof(TavEmp_Open_args, version)},
    {"credential", &TavEmp_Open_args::credential, offsetof(TavEmp_Open_args, credential)},
};
inline constexpr Field kTavEmp_Open_success[] = {
    {"success", &TavEmp_Open_result::success, offsetof(TavEmp_Open_result, success)},
};
template <>
inline constexpr Record table<TavEmp_Open_args> = valueTable<TavEmp_Open_args>("TavEmp_Open_args",
                                                                               kTavEmp_Open);
template <>
inline constexpr Record table<TavEmp_Open_pargs> =
    pointerTable<TavEmp_Open_pargs>("TavEmp_Open_pargs", kTavEmp_Open);
template <>
inline constexpr Record table<TavEmp_Open_result> =
    resultTable<TavEmp_Open_result>("TavEmp_Open_result", kTavEmp_Open_success);
template <>
inline constexpr Record table<TavEmp_Open_presult> =
    resultPointerTable<TavEmp_Open_presult>(kTavEmp_Open_success);

inline constexpr Field kTavEmp_Close[] = {
    {"clientID", &TavEmp_Close_args::clientID, offsetof(TavEmp_Close_args, clientID)},
};
inline constexpr Field kTavEmp_Close_success[] = {
    {"success", &TavEmp_Close_result::success, offsetof(TavEmp_Close_result, success)},
};
template <>
inline constexpr Record table<TavEmp_Close_args> =
    valueTable<TavEmp_Close_args>("TavEmp_Close_args", kTavEmp_Close);
template <>
inline constexpr Record table<TavEmp_Close_pargs> =
    pointerTable<TavEmp_Close_pargs>("TavEmp_Close_pargs", kTavEmp_Close);
template <>
inline constexpr Record table<TavEmp_Close_result> =
    resultTable<TavEmp_Close_result>("TavEmp_Close_result", kTavEmp_Close_success);
template <>
inline constexpr Record table<TavEmp_Close_presult> =
    resultPointerTable<TavEmp_Close_presult>(kTavEmp_Close_success);

inline constexpr Field kTavEmp_Execute[] = {
    {"clientID", &TavEmp_Execute_args::clientID, offsetof(TavEmp_Execute_args, clientID)},
    {"cmd", &TavEmp_Execute_args::cmd, offsetof(TavEmp_Execute_args, cmd)},
    {"param1", &TavEmp_Execute_args::param1, offsetof(TavEmp_Execute_args, param1)},
    {"param2", &TavEmp_Execute_args::param2, offsetof(TavEmp_Execute_args, param2)},
    {"param3", &TavEmp_Execute_args::param3, offsetof(TavEmp_Execute_args, param3)},
    {"param4", &TavEmp_Execute_args::param4, offsetof(TavEmp_Execute_args, param4)},
};
inline constexpr Field kTavEmp_Execute_success[] = {
    {"success", &TavEmp_Execute_result::success, offsetof(TavEmp_Execute_result, success)},
};
template <>
inline constexpr Record table<TavEmp_Execute_args> =
    valueTable<TavEmp_Execute_args>("TavEmp_Execute_args", kTavEmp_Execute);
template <>
inline constexpr Record table<TavEmp_Execute_pargs> =
    pointerTable<TavEmp_Execute_pargs>("TavEmp_Execute_pargs", kTavEmp_Execute);
template <>
inline constexpr Record table<TavEmp_Execute_result> =
    resultTable<TavEmp_Execute_result>("TavEmp_Execute_result", kTavEmp_Execute_success);
template <>
inline constexpr Record table<TavEmp_Execute_presult> =
    resultPointerTable<TavEmp_Execute_presult>(kTavEmp_Execute_success);

inline constexpr Field kTavEmp_ExecuteWithParamList[] = {
    {"clientID", &TavEmp_ExecuteWithParamList_args::clientID,
     offsetof(TavEmp_ExecuteWithParamList_args, clientID)},
    {"cmd", &TavEmp_ExecuteWithParamList_args::cmd,
     offsetof(TavEmp_ExecuteWithParamList_args, cmd)},
    {"paramList", &TavEmp_ExecuteWithParamList_args::paramList,
     offsetof(TavEmp_ExecuteWithParamList_args, paramList)},
};
inline constexpr Field kTavEmp_ExecuteWithParamList_success[] = {
    {"success", &TavEmp_ExecuteWithParamList_result::success,
     offsetof(TavEmp_ExecuteWithParamList_result, success)},
};
template <>
inline constexpr Record table<TavEmp_ExecuteWithParamList_args> =
    valueTable<TavEmp_ExecuteWithParamList_args>("TavEmp_ExecuteWithParamList_args",
                                                 kTavEmp_ExecuteWithParamList);
template <>
inline constexpr Record table<TavEmp_ExecuteWithParamList_pargs> =
    pointerTable<TavEmp_ExecuteWithParamList_pargs>("TavEmp_ExecuteWithParamList_pargs",
                                                    kTavEmp_ExecuteWithParamList);
template <>
inline constexpr Record table<TavEmp_ExecuteWithParamList_result> =
    resultTable<TavEmp_ExecuteWithParamList_result>("TavEmp_ExecuteWithParamList_result",
                                                    kTavEmp_ExecuteWithParamList_success);
template <>
inline constexpr Record table<TavEmp_ExecuteWithParamList_presult> =
    resultPointerTable<TavEmp_ExecuteWithParamList_presult>(kTavEmp_ExecuteWithParamList_success);

}  // namespace TavIDL::wire

#endif
