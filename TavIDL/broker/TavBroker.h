#ifndef TAVIDL_BROKER_TAVBROKER_H
#define TAVIDL_BROKER_TAVBROKER_H

/// The service TavBroker: its interface, client, processor and call records.

#include <TavIDL/broker/TavBrokerClient.h>
#include <TavIDL/broker/TavBrokerIf.h>
#include <TavIDL/broker/TavBrokerProcessor.h>
#include <TavIDL/broker/TavBrokerRecords.h>

#endif
