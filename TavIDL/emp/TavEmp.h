#ifndef TAVIDL_EMP_TAVEMP_H
#define TAVIDL_EMP_TAVEMP_H

/// The service TavEmp: its interface, client, processor and call records.

#include <TavIDL/emp/TavEmpClient.h>
#include <TavIDL/emp/TavEmpIf.h>
#include <TavIDL/emp/TavEmpProcessor.h>
#include <TavIDL/emp/TavEmpRecords.h>

#endif
