#ifndef OLDER_LIBTHRIFT_THRIFT_H
#define OLDER_LIBTHRIFT_THRIFT_H

// The oldest releases have no separate header for TApplicationException.
#include <parts/TApplicationException.h>

#endif
