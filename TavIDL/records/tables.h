#ifndef TAVIDL_RECORDS_TABLES_H
#define TAVIDL_RECORDS_TABLES_H

#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>
#include <TavIDL/records/codec.h>

// The records that several services exchange.
namespace TavIDL::wire {

inline constexpr Field kConnectionInfo[] = {
    {"callbackServicePort", &ConnectionInfo::callbackServicePort,
     offsetof(ConnectionInfo, callbackServicePort)},
    {"empServicePort", &ConnectionInfo::empServicePort, offsetof(ConnectionInfo, empServicePort)},
    {"empID", &ConnectionInfo::empID, offsetof(ConnectionInfo, empID)},
};

inline constexpr Field kParamList[] = {
    {"param1", &ParamList::param1, offsetof(ParamList, param1)},
    {"param2", &ParamList::param2, offsetof(ParamList, param2)},
    {"param3", &ParamList::param3, offsetof(ParamList, param3)},
    {"param4", &ParamList::param4, offsetof(ParamList, param4)},
    {"param5", &ParamList::param5, offsetof(ParamList, param5)},
    {"param6", &ParamList::param6, offsetof(ParamList, param6)},
    {"param7", &ParamList::param7, offsetof(ParamList, param7)},
    {"param8", &ParamList::param8, offsetof(ParamList, param8)},
    {"param9", &ParamList::param9, offsetof(ParamList, param9)},
    {"param10", &ParamList::param10, offsetof(ParamList, param10)},
};

template <>
inline constexpr Record table<ConnectionInfo> = valueTable<ConnectionInfo>("ConnectionInfo",
                                                                           kConnectionInfo);
template <>
inline constexpr Record table<ParamList> = valueTable<ParamList>("ParamList", kParamList);

}  // namespace TavIDL::wire

#endif
