#ifndef TAVIDL_EVENT_TAVEMPEVENTCLIENT_H
#define TAVIDL_EVENT_TAVEMPEVENTCLIENT_H

#include <TavIDL/event/TavEmpEventIf.h>
#include <TavIDL/thrift.h>

#include <utility>

/// Sends events to a remote callback service. A call writes one request and
/// returns: nothing is read, so what becomes of the event is never known here.
///
/// Exceptions of the protocol and the transport pass through as they are; the
/// connection is then best closed, since it may stand in the middle of a message.
///
/// The client shares ownership of its protocols, which must not be null, and
/// never opens or closes a transport. One thread at a time: a client, and the
/// protocol and transport under it, carry one call at a time.
class TAVIDL_EXPORT TavEmpEventClient : virtual public TavEmpEventIf {
public:
    explicit TavEmpEventClient(const TavIDL::ProtocolPointer& protocol)
        : TavEmpEventClient(protocol, protocol) {}

    /// Calls over `output`. `input` is kept but never read.
    TavEmpEventClient(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output)
        : piprot_(std::move(input)),
          poprot_(std::move(output)),
          iprot_(piprot_.get()),
          oprot_(poprot_.get()) {}

    ~TavEmpEventClient() override {}

    TavIDL::ProtocolPointer getInputProtocol() const { return piprot_; }
    TavIDL::ProtocolPointer getOutputProtocol() const { return poprot_; }

    void Callback(int32_t eventType, const std::string& param1, const std::string& param2) override;

    /// All of Callback: a one-way call has no second half.
    void send_Callback(int32_t eventType, const std::string& param1, const std::string& param2);

protected:
    TavIDL::ProtocolPointer piprot_;
    TavIDL::ProtocolPointer poprot_;
    apache::thrift::protocol::TProtocol* iprot_;
    apache::thrift::protocol::TProtocol* oprot_;
};

#endif
