#ifndef OLDER_LIBTHRIFT_THRIFT_H
#define OLDER_LIBTHRIFT_THRIFT_H

#include <parts/TException.h>

#endif
