#include "Report.h"

#include <cstdlib>
#include <exception>
#include <iostream>

namespace proof {

namespace {
// Enough to see a pattern.
constexpr uint64_t kPrintedFailures = 20;
}  // namespace

Report::Report(int argc, char** argv) : program_(argv[0]) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : argument.substr(equals + 1);
        if (name == "--only") {
            only_ = value;
        } else if (name == "--seed" && !value.empty()) {
            seed_ = std::stoull(value);
        } else if (name == "--runs" && !value.empty()) {
            wantedRuns_ = std::stoull(value);
        } else {
            std::cerr << "usage: " << program_ << " [--only=TEXT] [--seed=N] [--runs=N]\n";
            std::exit(2);
        }
    }
}

void Report::fail(const std::string& option, const std::string& what) {
    ++failures_;
    if (failures_ <= kPrintedFailures) {
        std::cout << "FAILED: " << what << "\n  " << program_ << " '" << option << "'\n";
    }
}

int Report::finish() const {
    if (failures_ > kPrintedFailures) {
        std::cout << "and " << failures_ - kPrintedFailures << " more\n";
    }
    std::cout << "proof: " << runs_ << " runs, " << failures_ << " failures" << std::endl;
    if (runs_ == 0) {
        std::cout << "FAILED: nothing was run\n";
    }
    return failures_ == 0 && runs_ != 0 ? 0 : 1;
}

int run(int argc, char** argv, void (*prove)(Report&)) {
    try {
        Report report(argc, argv);
        prove(report);
        return report.finish();
    } catch (const std::exception& failure) {
        std::cerr << "FAILED: " << failure.what() << '\n';
        return 1;
    }
}

}  // namespace proof
