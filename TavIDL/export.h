#ifndef TAVIDL_EXPORT_H
#define TAVIDL_EXPORT_H

/// Marks what the shared library exports. Everything else in it is hidden.
#define TAVIDL_EXPORT __attribute__((visibility("default")))

#endif
