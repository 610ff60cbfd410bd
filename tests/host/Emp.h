#ifndef TESTS_HOST_EMP_H
#define TESTS_HOST_EMP_H

#include <TavIDL/TavIDL.h>

#include <functional>
#include <string>

// An EMP whose Execute runs the test's function, or answers "<cmd> done" if there is none.
class Emp : public TavEmpIf {
public:
    using Work = std::function<std::string(const std::string& cmd, const std::string& param1)>;

    Emp() = default;
    explicit Emp(Work work) : work_(std::move(work)) {}

    bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    int32_t Close(int32_t clientID) override { return clientID + 1; }
    void Execute(std::string& result, int32_t, const std::string& cmd, const std::string& param1,
                 const std::string&, const std::string&, const std::string&) override {
        result = work_ ? work_(cmd, param1) : cmd + " done";
    }
    void ExecuteWithParamList(std::string& result, int32_t, const std::string& cmd,
                              const ParamList& list) override {
        result = cmd + " " + list.param10;
    }

private:
    Work work_;
};

// Execute with one parameter, and its result.
inline std::string execute(TavEmpIf& emp, const std::string& cmd, const std::string& param1 = "") {
    std::string result;
    emp.Execute(result, 7, cmd, param1, "", "", "");
    return result;
}

#endif
