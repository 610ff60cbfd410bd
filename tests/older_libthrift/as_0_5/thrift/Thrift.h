#ifndef OLDER_LIBTHRIFT_THRIFT_H
#define OLDER_LIBTHRIFT_THRIFT_H

// The oldest have no header of its own for TApplicationException.
#include <parts/TApplicationException.h>

#endif
