#ifndef TAVIDL_EMP_TAVEMPIF_H
#define TAVIDL_EMP_TAVEMPIF_H

#include <TavIDL/export.h>
#include <TavIDL/records/ParamList.h>

#include <cstdint>
#include <string>

/// What an EMP offers to the programs that use it, each known to it by a number.
/// An EMP implements this class and hands it to a TavEmpProcessor; a program
/// calls it through a TavEmpClient.
///
/// An implementation reports a failure by throwing a std::exception: the caller
/// gets its `what()` text in a TApplicationException of kind UNKNOWN. It must bear
/// concurrent calls if its server makes them.
class TAVIDL_EXPORT TavEmpIf {
public:
    virtual ~TavEmpIf() {}

    /// Opens the EMP for a client. Returns whether it is open.
    virtual bool Open(int32_t clientID, const std::string& name, const std::string& version,
                      const std::string& credential) = 0;

    /// Closes the EMP for a client. Returns a number of the EMP's own meaning, not
    /// a bool as Open does.
    virtual int32_t Close(int32_t clientID) = 0;

    /// Runs a command with four parameters. Fills `result` with its answer.
    virtual void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                         const std::string& param1, const std::string& param2,
                         const std::string& param3, const std::string& param4) = 0;

    /// Runs a command with ten parameters. Fills `result` with its answer.
    virtual void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                                      const ParamList& paramList) = 0;
};

#endif
