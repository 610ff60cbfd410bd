#ifndef TAVIDL_EVENT_TAVEMPEVENT_H
#define TAVIDL_EVENT_TAVEMPEVENT_H

/// The service TavEmpEvent: its interface, client, processor and call records.

#include <TavIDL/event/TavEmpEventClient.h>
#include <TavIDL/event/TavEmpEventIf.h>
#include <TavIDL/event/TavEmpEventProcessor.h>
#include <TavIDL/event/TavEmpEventRecords.h>

#endif
