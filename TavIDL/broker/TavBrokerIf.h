#ifndef TAVIDL_BROKER_TAVBROKERIF_H
#define TAVIDL_BROKER_TAVBROKERIF_H

#include <TavIDL/export.h>
#include <TavIDL/records/ConnectionInfo.h>

#include <cstdint>
#include <string>

/// What a broker offers: it opens EMPs, modules known by name, version and
/// credential. A broker implements this class and hands it to a
/// TavBrokerProcessor; a program calls it through a TavBrokerClient.
///
/// An implementation reports a failure by throwing a std::exception: the caller
/// gets its `what()` text in a TApplicationException of kind UNKNOWN. It must bear
/// concurrent calls if its server makes them.
class TAVIDL_EXPORT TavBrokerIf {
public:
    virtual ~TavBrokerIf() {}

    /// Opens an EMP. Fills `result` with the ports of the EMP and of the caller's
    /// callback service, and with the identifier to close the EMP by.
    virtual void OpenEmp(ConnectionInfo& result, const std::string& name,
                         const std::string& version, const std::string& credential) = 0;

    /// Runs a command on behalf of the caller known by the port `fromPort`. Fills
    /// `result` with the command's answer.
    virtual void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                         const std::string& param1, const std::string& param2,
                         const std::string& param3, const std::string& param4) = 0;

    /// Closes an EMP, given what OpenEmp returned. Returns whether it was closed.
    virtual bool CloseEmp(const ConnectionInfo& connectionInfo) = 0;
};

#endif
