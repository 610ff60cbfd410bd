#ifndef TESTS_HOST_ECHO_H
#define TESTS_HOST_ECHO_H

#include <TavIDL/TavIDL.h>

#include <cstdint>
#include <string>

// They answer with what they get, in its order.
class EchoingEmp : public TavEmpIf {
public:
    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override {
        return std::to_string(clientID) + name + version + credential == "7abc";
    }
    int32_t Close(int32_t clientID) override { return clientID + 1; }
    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        result = std::to_string(clientID) + cmd + param1 + param2 + param3 + param4;
    }
    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& list) override {
        result = std::to_string(clientID) + cmd + list.param10;
    }
};

class EchoingBroker : public TavBrokerIf {
public:
    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override {
        result.empID = name + version + credential;
    }
    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        result = std::to_string(fromPort) + cmd + param1 + param2 + param3 + param4;
    }
    bool CloseEmp(const ConnectionInfo& info) override { return info.empID == "emp-7"; }
};

#endif
