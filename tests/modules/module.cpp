// A module that has one type of protocol; the build chooses which.
#include "calls.h"

using Protocol = calls::PROTOCOL;

extern "C" __attribute__((visibility("default"))) const ProtocolModule protocolModule;

const ProtocolModule protocolModule = {calls::exchange<Protocol>,
                                       calls::virtualCallsOfARecord<Protocol>,
                                       []() -> const void* { return &typeid(Protocol); }};
