#ifndef TAVIDL_TAVIDL_H
#define TAVIDL_TAVIDL_H

#include <TavIDL/broker/TavBroker.h>
#include <TavIDL/emp/TavEmp.h>
#include <TavIDL/event/TavEmpEvent.h>
#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>
#include <TavIDL/records/TAV_IDLConstants.h>

/// \file
/// Includes all of libTavIDL. This comment describes what all services have in common.
///
/// # The system
///
/// An EMP is a module that a broker opens for a program, by name, version and credential. The
/// program then calls the EMP on the EMP's own port, and the EMP reports events to the program's
/// callback service. The broker serves `TavBroker`, an EMP `TavEmp`, and a callback service
/// `TavEmpEvent`. Each of these has an interface class (`TavEmpIf`), a client (`TavEmpClient`) and
/// a processor (`TavEmpProcessor`).
///
/// # Clients
///
/// A call writes one request and waits for its reply; `Callback`, which is one-way, only writes.
/// `send_X` and `recv_X` are the halves of `X`, for callers with other work to do in between. Call
/// each `recv_` once after its `send_`, and before the next `send_` on the same connection: replies
/// are matched to requests only by their order.
///
/// Calls throw
/// - TApplicationException: the peer's own, unchanged, or one of kind INVALID_MESSAGE_TYPE,
///   WRONG_METHOD_NAME or MISSING_RESULT. The reply has then been consumed, and the client can be
///   used again. A result passed by reference may already hold some fields.
/// - whatever the protocol and the transport throw, unchanged. Then close the connection: it may be
///   in the middle of a message.
///
/// A client shares ownership of its protocols, which must not be null, and never opens or closes a
/// transport. It has no time-outs; the transport may have some. Use a client, and the protocols and
/// transport under it, from one thread at a time.
///
/// # Processors
///
/// A processor reads requests, calls a handler (an object of a class derived from the interface
/// class) and writes the answers. Hand it to any of libthrift's servers.
///
/// - If the handler throws a std::exception, the answer is a TApplicationException of kind UNKNOWN
///   with its `what()` text; a `Callback` is not answered. Anything else that it throws passes out
///   of process(), with nothing answered. Some of libthrift's servers crash then: don't let a
///   handler throw anything but a std::exception.
/// - A message that is not a call is answered with INVALID_MESSAGE_TYPE, and an unknown operation
///   with UNKNOWN_METHOD. process() then returns true.
/// - What the protocol and the transport throw passes out of process(), for the server to handle.
///
/// A processor shares ownership of its handler. After construction it only reads its members, so it
/// can serve any number of connections at the same time if the handler is thread-safe: a
/// multithreaded server calls it from all its threads. libthrift's setEventHandler() has no effect.
///
/// Using a null handler, or a protocol whose transport is null, is a programming error on either
/// side. It ends the process with a message on standard error.
///
/// # Records
///
/// `write` and `read` return the sum of what the protocol's calls return, and throw what these
/// throw. `write` writes all fields, set or not. `read` reads a field if its id and type match, and
/// sets its flag in `__isset`; it skips other fields. Fields that are missing from the input keep
/// their value and flag. Use a record from one thread at a time.
///
/// Clients and processors pass the arguments and the result of an operation to the protocol in call
/// records, four for each operation. Programs need them only to read or write single messages.
///
/// - `_args` holds the arguments; the processor reads it.
/// - `_pargs` holds pointers to the caller's arguments, so that the client writes them without
///   copying them.
/// - `_result` holds the result; the processor writes it. It is written empty unless
///   `__isset.success` is set.
/// - `_presult` holds a pointer to the caller's result, so that the client reads into it directly.
///
/// Set the pointers before calling `write` or `read`, which don't check them.

#endif
