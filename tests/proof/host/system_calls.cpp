// Each of Host's system calls fails with each error that its manual lists, once and many times in a
// row, at each place in each scenario, on the side that calls and on the side that serves.

#include <cerrno>
#include <string>
#include <vector>

#include "../Report.h"
#include "Faults.h"
#include "Trial.h"

using namespace proof;

namespace {

// More calls of a function than a trial makes without failures.
constexpr std::size_t kMany = 200;

class FailingCall : public Disturbance {
public:
    explicit FailingCall(const faults::Fault& fault) : fault_(fault) {}

    void begin() override { faults::arm(fault_); }
    void end() override { faults::disarm(); }
    bool happened() const override { return faults::fired(); }
    // A signal, or a message that comes in parts, must go unnoticed.
    bool isHarmless() const override {
        return fault_.calls == 0 ||
               ((fault_.function == faults::kRecv || fault_.function == faults::kSend) &&
                fault_.error == faults::kShort) ||
               (fault_.error == EINTR && fault_.function < faults::kClose);
    }

private:
    const faults::Fault fault_;
};

std::string nameOf(const faults::Fault& fault) {
    return std::string(fault.side == Side::main ? " main " : " others ") +
           faults::manuals()[fault.function].name + " " + std::to_string(fault.number) + " " +
           faults::nameOf(fault.function, fault.error) + (fault.calls == 1 ? " once" : " often");
}

void failAt(Report& report, const Scenario& scenario, const Way& way, faults::Fault fault) {
    for (const int error : faults::manuals()[fault.function].errors) {
        fault.error = error;
        for (const std::size_t calls : {std::size_t{1}, kMany}) {
            fault.calls = calls;
            FailingCall failing(fault);
            prove(report, std::string(scenario.name) + " " + way.name + nameOf(fault), scenario,
                  way, failing);
        }
    }
}

void failEach(Report& report, const Scenario& scenario, const Way& way) {
    FailingCall none({});
    outcomeOf(scenario, way, none);  // creates what is kept permanently
    prove(report, std::string(scenario.name) + " " + way.name, scenario, way, none);
    std::vector<faults::Fault> places;
    for (std::size_t i = 0; i < faults::kFunctions; ++i) {
        for (const Side side : {Side::main, Side::others}) {
            const auto function = static_cast<faults::Function>(i);
            for (std::size_t count = faults::count(function, side); count > 0; --count) {
                places.push_back({function, side, count, 0, 0});
            }
        }
    }
    for (const faults::Fault& place : places) {
        failAt(report, scenario, way, place);
    }
}

void proveAll(Report& report) {
    for (const Scenario& scenario : scenarios()) {
        for (const Way& way : scenario.ways) {
            failEach(report, scenario, way);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return proof::run(argc, argv, proveAll);
}
