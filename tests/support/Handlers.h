#ifndef TESTS_SUPPORT_HANDLERS_H
#define TESTS_SUPPORT_HANDLERS_H

#include <TavIDL/TavIDL.h>
#include <support/Recording.h>

#include <functional>
#include <sstream>
#include <string>

// Handlers that log their arguments, run the test's function, which may throw, and then
// return fixed results.
namespace recording {

class Handler {
public:
    explicit Handler(Log& log) : log_(log) {}

    std::function<void()> work = [] {};

protected:
    template <typename... Arguments>
    void called(const char* operation, const Arguments&... arguments) {
        std::ostringstream line;
        line << "handler." << operation;
        ((line << " " << shown(arguments)), ...);
        log_.note(line.str());
        work();
    }

private:
    static int32_t shown(int32_t value) { return value; }
    static std::string shown(const std::string& value) { return "'" + value + "'"; }

    Log& log_;
};

class BrokerHandler : public Handler, public TavBrokerIf {
public:
    using Handler::Handler;

    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override {
        called("OpenEmp", name, version, credential);
        result.callbackServicePort = 4711;
        result.empServicePort = 4712;
        result.empID = "emp-7";
    }
    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        called("Execute", fromPort, cmd, param1, param2, param3, param4);
        result = "done";
    }
    bool CloseEmp(const ConnectionInfo& info) override {
        called("CloseEmp", info.callbackServicePort, info.empServicePort, info.empID);
        return closed;
    }

    bool closed = true;
};

class EmpHandler : public Handler, public TavEmpIf {
public:
    using Handler::Handler;

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override {
        called("Open", clientID, name, version, credential);
        return opened;
    }
    int32_t Close(int32_t clientID) override {
        called("Close", clientID);
        return closed;
    }
    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        called("Execute", clientID, cmd, param1, param2, param3, param4);
        result = "done";
    }
    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const ParamList& list) override {
        called("ExecuteWithParamList", clientID, cmd, list.param1, list.param2, list.param3,
               list.param4, list.param5, list.param6, list.param7, list.param8, list.param9,
               list.param10);
        result = "scanned";
    }

    bool opened = true;
    int32_t closed = -7;
};

class EventHandler : public Handler, public TavEmpEventIf {
public:
    using Handler::Handler;

    void Callback(int32_t eventType, const std::string& param1,
                  const std::string& param2) override {
        called("Callback", eventType, param1, param2);
    }
};

}  // namespace recording

#endif
