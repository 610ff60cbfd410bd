#ifndef TAVIDL_THRIFT_H
#define TAVIDL_THRIFT_H

// codec.cpp recognizes protocol types by the addresses of their type information, which the library
// must share with the program. The library is compiled with hidden visibility, but the protocol
// types and their parts, which are declared here, must stay visible.
#pragma GCC visibility push(default)

// Up to 0.9.0 libthrift's headers use what these two declare without including them.
#include <netinet/in.h>
#ifdef __has_include
#if __has_include(<thrift/config.h>)
#include <thrift/config.h>
#endif
#endif

// 0.2 has no TApplicationException.h: its Thrift.h declares the class. Up to 0.8 the include path
// has libthrift's own folder, too. Look there, because `thrift/` could find the header of another
// libthrift in the system's directories.
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

/// The differences between libthrift's releases that matter in public declarations, deduced from
/// libthrift's own declarations.
///
/// - Pointers: older releases use Boost's shared pointer for protocols, newer ones the standard
///   library's. `TavIDL::shared_ptr` is the one in use.
/// - `TProcessor::process`: older releases pass two protocols, newer ones also a context. A
///   processor declares both forms, with neither `virtual` nor `override`: the one that libthrift
///   declares becomes an override, the other an ordinary overload. Both do the same.
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

/// The shared pointer type that the installed libthrift uses.
template <typename T>
using shared_ptr = typename SharedPointer<TransportPointer>::template To<T>;

/// How a protocol is passed to clients and processors.
using ProtocolPointer = shared_ptr<TProtocol>;

}  // namespace TavIDL

#endif
