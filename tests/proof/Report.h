#ifndef TESTS_PROOF_REPORT_H
#define TESTS_PROOF_REPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace proof {

// What every program here takes and prints:
//
//   PROGRAM [--only=TEXT] [--seed=N] [--runs=N]
//
// `--only` leaves out all cases whose name does not contain the text. The last line is
// "proof: R runs, F failures", and the exit status 1 if there were failures.
class Report {
public:
    // Exits if the arguments are wrong.
    Report(int argc, char** argv);

    bool selected(const std::string& name) const { return name.find(only_) != std::string::npos; }
    uint64_t seed() const { return seed_; }
    uint64_t wantedRuns() const { return wantedRuns_; }

    void countRun() { ++runs_; }
    // Prints what went wrong, and the command that repeats it: this program with `option`.
    void fail(const std::string& option, const std::string& what);

    // The exit status.
    int finish() const;

private:
    std::string program_;
    std::string only_;
    uint64_t seed_ = 1;
    uint64_t wantedRuns_ = 0;
    uint64_t runs_ = 0;
    uint64_t failures_ = 0;
};

// What main() does: makes the report, calls `prove` and returns the exit status.
int run(int argc, char** argv, void (*prove)(Report&));

}  // namespace proof

#endif
