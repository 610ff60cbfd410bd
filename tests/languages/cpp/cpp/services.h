#ifndef TESTS_LANGUAGES_SERVICES_H
#define TESTS_LANGUAGES_SERVICES_H

// The services as the Thrift compiler generates them.
#include "TavBroker.h"
#include "TavEmp.h"
#include "TavEmpEvent.h"

using namespace TAV_IDL;

#endif
