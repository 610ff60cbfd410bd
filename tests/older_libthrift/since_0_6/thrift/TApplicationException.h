#ifndef OLDER_LIBTHRIFT_THRIFT_TAPPLICATIONEXCEPTION_H
#define OLDER_LIBTHRIFT_THRIFT_TAPPLICATIONEXCEPTION_H

#include <parts/TApplicationException.h>
#include <thrift/Thrift.h>

#endif
