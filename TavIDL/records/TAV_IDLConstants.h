#ifndef TAVIDL_RECORDS_TAV_IDLCONSTANTS_H
#define TAVIDL_RECORDS_TAV_IDLCONSTANTS_H

#include <TavIDL/export.h>

/// The constants of the interface definition TAV_IDL, which declares none. The library does not use
/// this class, but programs compiled against the interface expect it.
class TAVIDL_EXPORT TAV_IDLConstants {
public:
    TAV_IDLConstants();
};

/// The one instance, constructed when the library is loaded.
extern TAVIDL_EXPORT const TAV_IDLConstants g_TAV_IDL_constants;

#endif
