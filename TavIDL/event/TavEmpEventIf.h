#ifndef TAVIDL_EVENT_TAVEMPEVENTIF_H
#define TAVIDL_EVENT_TAVEMPEVENTIF_H

#include <TavIDL/export.h>

#include <cstdint>
#include <string>

/// What a callback service offers to EMPs. A callback service implements this
/// class and hands it to a TavEmpEventProcessor; an EMP calls it through a
/// TavEmpEventClient. It must bear concurrent calls if its server makes them.
class TAVIDL_EXPORT TavEmpEventIf {
public:
    virtual ~TavEmpEventIf() {}

    /// Takes one event: a type and two strings, whose meaning is the EMP's own.
    /// One-way: whatever this does or throws, the EMP is told nothing.
    virtual void Callback(int32_t eventType, const std::string& param1,
                          const std::string& param2) = 0;
};

#endif
