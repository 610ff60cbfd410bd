#ifndef TAVIDL_BROKER_TAVBROKERCLIENT_H
#define TAVIDL_BROKER_TAVBROKERCLIENT_H

#include <TavIDL/broker/TavBrokerIf.h>
#include <TavIDL/thrift.h>

#include <utility>

/// Calls a remote broker. Each call writes one request and waits for its reply.
///
/// Calls throw TApplicationException: the broker's own, unchanged, or
/// INVALID_MESSAGE_TYPE, WRONG_METHOD_NAME or MISSING_RESULT. The reply has then
/// been consumed and the client can be used again; a result passed by reference
/// may hold fields that were read before. Exceptions of the protocol and the
/// transport pass through as they are; the connection is then best closed, since
/// it may stand in the middle of a message.
///
/// The client shares ownership of its protocols, which must not be null, and
/// never opens or closes a transport. It has no time-outs: those are the
/// transport's. One thread at a time: a client, and the protocols and transport
/// under it, carry one call at a time.
class TAVIDL_EXPORT TavBrokerClient : virtual public TavBrokerIf {
public:
    /// Calls over one protocol, both ways.
    explicit TavBrokerClient(const TavIDL::ProtocolPointer& protocol)
        : TavBrokerClient(protocol, protocol) {}

    /// Calls over `output` and reads replies from `input`.
    TavBrokerClient(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output)
        : piprot_(std::move(input)),
          poprot_(std::move(output)),
          iprot_(piprot_.get()),
          oprot_(poprot_.get()) {}

    ~TavBrokerClient() override {}

    TavIDL::ProtocolPointer getInputProtocol() const { return piprot_; }
    TavIDL::ProtocolPointer getOutputProtocol() const { return poprot_; }

    /// Fields of `result` that the reply lacks keep their value.
    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override;
    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override;
    bool CloseEmp(const ConnectionInfo& connectionInfo) override;

    /// The halves of each call, for those who have other work to do while the
    /// broker has its own. Call each recv_ once after its send_ and before the
    /// next send_ on the same connection: replies are told apart by their order
    /// alone.
    void send_OpenEmp(const std::string& name, const std::string& version,
                      const std::string& credential);
    void recv_OpenEmp(ConnectionInfo& result);
    void send_Execute(int32_t fromPort, const std::string& cmd, const std::string& param1,
                      const std::string& param2, const std::string& param3,
                      const std::string& param4);
    void recv_Execute(std::string& result);
    void send_CloseEmp(const ConnectionInfo& connectionInfo);
    bool recv_CloseEmp();

protected:
    TavIDL::ProtocolPointer piprot_;
    TavIDL::ProtocolPointer poprot_;
    apache::thrift::protocol::TProtocol* iprot_;
    apache::thrift::protocol::TProtocol* oprot_;
};

#endif
