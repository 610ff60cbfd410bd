#ifndef EXAMPLES_THRIFT_OUTPUT_H
#define EXAMPLES_THRIFT_OUTPUT_H

#include <thrift/TOutput.h>

// What libthrift says of its own accord, on standard error unless it is told otherwise: by a
// function in its newer releases, by a variable in the older ones. Both are named here, and of
// the two only the one that there is gets used.

namespace apache::thrift {
extern TOutput GlobalOutput;  // NOLINT(readability-redundant-declaration): newer ones lack it
}

template <typename Output>
auto thriftOutput(Output*) -> decltype(Output::instance()) {
    return Output::instance();
}

inline apache::thrift::TOutput& thriftOutput(void*) {
    return apache::thrift::GlobalOutput;
}

// From now on libthrift says it to `listener`.
inline void onThriftOutput(void (*listener)(const char*)) {
    thriftOutput(static_cast<apache::thrift::TOutput*>(nullptr)).setOutputFunction(listener);
}

#endif
