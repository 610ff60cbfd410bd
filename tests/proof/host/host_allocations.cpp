// Each allocation of the side that calls, and of the side that serves, fails in each scenario:
// alone, and together with all later ones.

#include <string>

#include "../Memory.h"
#include "../Report.h"
#include "Trial.h"

using namespace proof;
using memory::Failing;

namespace {

class FailingMemory : public Disturbance {
public:
    FailingMemory(std::size_t number, Failing failing, Side side)
        : number_(number), failing_(failing), side_(side) {}

    void begin() override { memory::failAt(number_, failing_, side_); }
    void end() override { allocations_ = memory::stopFailing(); }
    bool happened() const override { return memory::hasFailed(); }
    bool isHarmless() const override { return number_ == 0; }
    bool isOfMemory() const override { return true; }

    // How many there were between begin() and end().
    std::size_t allocations() const { return allocations_; }

private:
    const std::size_t number_;
    const Failing failing_;
    const Side side_;
    std::size_t allocations_ = 0;
};

void failEach(Report& report, const Scenario& scenario, const Way& way, Side side) {
    const std::string name =
        std::string(scenario.name) + " " + way.name + (side == Side::main ? " main " : " others ");
    FailingMemory none(0, Failing::once, side);
    outcomeOf(scenario, way, none);  // creates what is kept permanently
    outcomeOf(scenario, way, none);
    for (std::size_t number = none.allocations(); number > 0; --number) {
        for (const Failing failing : {Failing::once, Failing::fromThereOn}) {
            FailingMemory memory(number, failing, side);
            prove(report,
                  name + std::to_string(number) +
                      (failing == Failing::once ? " once" : " from there on"),
                  scenario, way, memory);
        }
    }
}

void proveAll(Report& report) {
    for (const Scenario& scenario : scenarios()) {
        for (const Way& way : scenario.ways) {
            for (const Side side : {Side::main, Side::others}) {
                if (!way.tls) {  // OpenSSL allocates by itself
                    failEach(report, scenario, way, side);
                }
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return proof::run(argc, argv, proveAll);
}
