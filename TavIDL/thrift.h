#ifndef TAVIDL_THRIFT_H
#define TAVIDL_THRIFT_H

// codec.cpp recognizes protocol types by the addresses of their type information, which the library
// has to share with the program. The library is compiled with hidden visibility: the protocol types
// must not be hidden, and so neither their parts, which are declared here.
#pragma GCC visibility push(default)

// Up to 0.9.0 libthrift's headers use what these two declare and do not include them.
#include <netinet/in.h>
#ifdef __has_include
#if __has_include(<thrift/config.h>)
#include <thrift/config.h>
#endif
#endif

// 0.2 has no TApplicationException.h: its Thrift.h declares the class. Up to 0.8 libthrift's own
// folder is searched, too. Look there: with `thrift/`, the header of another libthrift in the
// system's directories could be found.
#ifndef __has_include
#include <thrift/TApplicationException.h>
#elif !__has_include(<TProcessor.h>) || __has_include(<TApplicationException.h>)
#include <thrift/TApplicationException.h>
#endif
#include <thrift/TProcessor.h>
#include <thrift/protocol/TProtocol.h>
#include <thrift/transport/TTransport.h>

#pragma GCC visibility pop

#include <utility>

/// What differs between the releases of libthrift in public declarations is settled here, from
/// libthrift's own declarations.
///
/// - Pointers: older releases hold protocols by Boost's shared pointer, newer ones by the standard
///   library's. `TavIDL::shared_ptr` is whichever it is.
/// - `TProcessor::process`: older releases pass two protocols, newer ones also a context. A
///   processor declares both forms, with neither `virtual` nor `override`: the one that libthrift
///   declares is its override, the other an ordinary overload. Both do the same.
namespace TavIDL {

using apache::thrift::protocol::TProtocol;

template <typename Pointer>
struct SharedPointer;

template <template <typename> class Template, typename T>
struct SharedPointer<Template<T>> {
    template <typename U>
    using To = Template<U>;
};

using TransportPointer = decltype(std::declval<TProtocol&>().getTransport());

/// The shared pointer by which the installed libthrift holds its objects.
template <typename T>
using shared_ptr = typename SharedPointer<TransportPointer>::template To<T>;

/// How a protocol is passed to clients and processors.
using ProtocolPointer = shared_ptr<TProtocol>;

}  // namespace TavIDL

#endif
