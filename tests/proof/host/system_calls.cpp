// Each of Host's system calls fails with each error that its manual lists, once and many times in a
// row, at each place of each scenario, on the side that calls and on the side that serves.

#include <cerrno>
#include <string>
#include <vector>

#include "../Report.h"
#include "Faults.h"
#include "Trial.h"

using namespace proof;

namespace {

// Longer than a trial without failures.
constexpr std::size_t kMany = 200;

class FailingCall : public Disturbance {
public:
    explicit FailingCall(const faults::Fault& fault) : fault_(fault) {}

    void begin() override { faults::arm(fault_); }
    void end() override { faults::disarm(); }
    bool happened() const override { return faults::fired(); }
    // A signal, and parts of a message, are nobody's business.
    bool isHarmless() const override {
        return fault_.calls == 0 ||
               ((fault_.function == faults::kRecv || fault_.function == faults::kSend) &&
                fault_.error == faults::kShort) ||
               (fault_.error == EINTR && fault_.function < faults::kClose);
    }

private:
    const faults::Fault fault_;
};

class Prover {
public:
    Prover(Report& report, const Scenario& scenario, const Way& way)
        : report_(report),
          scenario_(scenario),
          way_(way),
          name_(std::string(scenario.name) + " " + way.name) {}

    void prove() {
        FailingCall none({});
        outcomeOf(scenario_, way_, none);  // creates what is kept permanently
        run(name_ + " without faults", {});
        for (std::size_t i = 0; i < faults::kFunctions; ++i) {
            for (const Side side : {Side::main, Side::others}) {
                const auto function = static_cast<faults::Function>(i);
                places_.push_back({function, side, faults::count(function, side), 0, 0});
            }
        }
        for (const faults::Fault& place : places_) {
            for (faults::Fault fault = place; fault.number > 0; --fault.number) {
                failWithEach(fault);
            }
        }
    }

private:
    void failWithEach(faults::Fault fault) {
        const auto& manual = faults::manuals()[fault.function];
        for (const int error : manual.errors) {
            fault.error = error;
            for (const std::size_t calls : {std::size_t{1}, kMany}) {
                fault.calls = calls;
                run(name_ + (fault.side == Side::main ? " main " : " others ") + manual.name + " " +
                        std::to_string(fault.number) + " " + faults::nameOf(fault.function, error) +
                        (calls == 1 ? " once" : " often"),
                    fault);
            }
        }
    }

    void run(const std::string& name, const faults::Fault& fault) {
        if (fault.calls > 0 && !report_.selected(name)) {
            return;
        }
        watch(name);
        FailingCall failing(fault);
        const std::string problems = outcomeOf(scenario_, way_, failing);
        if (fault.calls > 0) {
            report_.countRun();
        }
        if (!problems.empty()) {
            report_.fail("--only=" + name, name + ": " + problems);
        }
    }

    Report& report_;
    const Scenario& scenario_;
    const Way way_;
    const std::string name_;
    std::vector<faults::Fault> places_;
};

void prove(Report& report) {
    for (const Scenario& scenario : scenarios()) {
        for (const Way& way : scenario.ways) {
            Prover(report, scenario, way).prove();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return proof::run(argc, argv, prove);
}
