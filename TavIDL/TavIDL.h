#ifndef TAVIDL_TAVIDL_H
#define TAVIDL_TAVIDL_H

/// Everything that libTavIDL offers.

#include <TavIDL/broker/TavBroker.h>
#include <TavIDL/emp/TavEmp.h>
#include <TavIDL/event/TavEmpEvent.h>
#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>
#include <TavIDL/records/TAV_IDLConstants.h>

#endif
