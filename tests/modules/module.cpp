// A module with one type of protocol, which the build chooses.
#include "calls.h"

using Protocol = calls::PROTOCOL;

extern "C" __attribute__((visibility("default"))) const ProtocolModule protocolModule;

const ProtocolModule protocolModule = {calls::exchange<Protocol>,
                                       calls::virtualCallsOfARecord<Protocol>,
                                       []() -> const void* { return &typeid(Protocol); }};
