#ifndef TAVIDL_EVENT_TAVEMPEVENTTABLES_H
#define TAVIDL_EVENT_TAVEMPEVENTTABLES_H

#include <TavIDL/event/TavEmpEventRecords.h>
#include <TavIDL/records/codec.h>

namespace TavIDL::wire {

inline constexpr Field kTavEmpEvent_Callback[] = {
    {"eventType", &TavEmpEvent_Callback_args::eventType,
     offsetof(TavEmpEvent_Callback_args, eventType)},
    {"param1", &TavEmpEvent_Callback_args::param1, offsetof(TavEmpEvent_Callback_args, param1)},
    {"param2", &TavEmpEvent_Callback_args::param2, offsetof(TavEmpEvent_Callback_args, param2)},
};
template <>
inline constexpr Record table<TavEmpEvent_Callback_args> =
    valueTable<TavEmpEvent_Callback_args>("TavEmpEvent_Callback_args", kTavEmpEvent_Callback);
template <>
inline constexpr Record table<TavEmpEvent_Callback_pargs> =
    pointerTable<TavEmpEvent_Callback_pargs>("TavEmpEvent_Callback_pargs", kTavEmpEvent_Callback);

}  // namespace TavIDL::wire

#endif
