#ifndef TESTS_PROOF_HOST_TRIAL_H
#define TESTS_PROOF_HOST_TRIAL_H

#include <TavIDL/host/Server.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../../host/Support.h"
#include "../Report.h"
#include "Ledger.h"

namespace proof {

// How both sides communicate in a trial.
struct Way {
    const char* name;
    bool isUnix;
    bool framed;
    bool tls;
};

// What goes wrong in a trial.
class Disturbance {
public:
    virtual ~Disturbance() = default;
    virtual void begin() = 0;
    virtual void end() = 0;
    // Whether anything has failed since begin().
    virtual bool happened() const = 0;
    // Whether it must go unnoticed.
    virtual bool isHarmless() const = 0;
    // Whether memory runs out: then anything may throw std::bad_alloc, or be answered with it.
    virtual bool isOfMemory() const { return false; }
};

// One run of a scenario.
class Trial {
public:
    Trial(const Way& way, Disturbance& disturbance);

    // Where to listen.
    std::string where() const;
    // With short time-outs while something fails.
    enum class Time { asNeeded, any };
    TavIDL::Settings clientSettings(Time time = Time::asNeeded) const;
    TavIDL::Settings serverSettings(Time time = Time::asNeeded) const;
    const std::shared_ptr<Emp>& emp() const { return emp_; }
    Ledger& ledger() { return ledger_; }

    void begin() { disturbance_.begin(); }
    void end() { disturbance_.end(); }
    // Does a step, which may throw these types. Returns whether it did not throw.
    template <typename... Allowed, typename Work>
    bool step(const char* what, Work work) {
        try {
            work();
            return true;
        } catch (const std::exception& failure) {
            const bool expected =
                !disturbance_.isHarmless() &&
                (isOfMemory(failure) || ... || (dynamic_cast<const Allowed*>(&failure) != nullptr));
            if (!expected) {
                end();
                problem(std::string(what) + " throws " + failure.what());
            }
        }
        return false;
    }
    void call(TavIDL::RemoteEmp& emp) {
        step<TavIDL::CallFailed>("a call", [&] { ledger_.call(emp); });
    }

    // Once the failure is over, the server must serve others, and the same object must work again.
    void goOn(TavIDL::RemoteEmp& same, const std::string& address);
    // Stops and starts again, on the same address if it is a path.
    void goOnWithNewServer();
    // After a server could not start.
    void mustLeaveNoFile();

    void problem(const std::string& text) { problems_.push_back(text); }
    // Empty if everything was as it should be.
    std::string problems();

private:
    bool isOfMemory(const std::exception& failure) const;
    void mustAnswer(const char* who, TavIDL::RemoteEmp& emp);

    const Way way_;
    Disturbance& disturbance_;
    Directory directory_;
    Ledger ledger_{1000};
    std::shared_ptr<Emp> emp_;
    std::vector<std::string> problems_;
};

// What is done in a trial, and in which ways.
struct Scenario {
    const char* name;
    std::vector<Way> ways;
    void (*run)(Trial&);
};

const std::vector<Scenario>& scenarios();

// Does one run. Returns what was wrong, including what it left behind; empty if nothing.
std::string outcomeOf(const Scenario& scenario, const Way& way, Disturbance& disturbance);

// The same for the report, if this name is selected. A crash, or more than a minute, ends the
// process, which then names this run.
void prove(Report& report, const std::string& name, const Scenario& scenario, const Way& way,
           Disturbance& disturbance);

}  // namespace proof

#endif
