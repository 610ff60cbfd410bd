#ifndef TAVIDL_EMP_TAVEMPCLIENT_H
#define TAVIDL_EMP_TAVEMPCLIENT_H

#include <TavIDL/emp/TavEmpIf.h>
#include <TavIDL/thrift.h>

#include <utility>

/// Calls a remote EMP. Each call writes one request and waits for its reply.
///
/// Calls throw TApplicationException: the EMP's own, unchanged, or
/// INVALID_MESSAGE_TYPE, WRONG_METHOD_NAME or MISSING_RESULT. The reply has then
/// been consumed and the client can be used again; a result passed by reference
/// may hold a value that was read before. Exceptions of the protocol and the
/// transport pass through as they are; the connection is then best closed, since
/// it may stand in the middle of a message.
///
/// The client shares ownership of its protocols, which must not be null, and
/// never opens or closes a transport. It has no time-outs: those are the
/// transport's. One thread at a time: a client, and the protocols and transport
/// under it, carry one call at a time.
class TAVIDL_EXPORT TavEmpClient : virtual public TavEmpIf {
public:
    /// Calls over one protocol, both ways.
    explicit TavEmpClient(const TavIDL::ProtocolPointer& protocol)
        : TavEmpClient(protocol, protocol) {}

    /// Calls over `output` and reads replies from `input`.
    TavEmpClient(TavIDL::ProtocolPointer input, TavIDL::ProtocolPointer output)
        : piprot_(std::move(input)),
          poprot_(std::move(output)),
          iprot_(piprot_.get()),
          oprot_(poprot_.get()) {}

    ~TavEmpClient() override {}

    TavIDL::ProtocolPointer getInputProtocol() const { return piprot_; }
    TavIDL::ProtocolPointer getOutputProtocol() const { return poprot_; }

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override;
    int32_t Close(int32_t clientID) override;
    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override;
    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& paramList) override;

    /// The halves of each call, for those who have other work to do while the EMP
    /// has its own. Call each recv_ once after its send_ and before the next send_
    /// on the same connection: replies are told apart by their order alone.
    void send_Open(int32_t clientID, const std::string& name, const std::string& version,
                   const std::string& credential);
    bool recv_Open();
    void send_Close(int32_t clientID);
    int32_t recv_Close();
    void send_Execute(int32_t clientID, const std::string& cmd, const std::string& param1,
                      const std::string& param2, const std::string& param3,
                      const std::string& param4);
    void recv_Execute(std::string& result);
    void send_ExecuteWithParamList(int32_t clientID, const std::string& cmd,
                                   const ParamList& paramList);
    void recv_ExecuteWithParamList(std::string& result);

protected:
    TavIDL::ProtocolPointer piprot_;
    TavIDL::ProtocolPointer poprot_;
    apache::thrift::protocol::TProtocol* iprot_;
    apache::thrift::protocol::TProtocol* oprot_;
};

#endif
