#ifndef TESTS_PROOF_HOST_LEDGER_H
#define TESTS_PROOF_HOST_LEDGER_H

#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Remote.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "../../host/Emp.h"

namespace proof {

// Gives each call a number, and records how often it was executed and what its caller got.
class Ledger {
public:
    explicit Ledger(std::size_t calls) : entries_(calls) {}

    std::size_t issued() const { return next_; }

    // The next number, which is the call's parameter.
    std::size_t issue() { return next_++; }

    // For handlers: returns the call's result.
    std::string execute(const std::string& number) {
        ++entries_.at(std::stoul(number)).executions;
        return number;
    }

    // Makes a call, or receives the result of one, with `call`.
    template <typename Call>
    void record(std::size_t number, Call call) {
        Entry& entry = entries_.at(number);
        try {
            entry.outcome =
                call() == std::to_string(number) ? Outcome::result : Outcome::otherResult;
        } catch (const TavIDL::CallFailed& failure) {
            entry.outcome = failure.sent() ? Outcome::perhaps : Outcome::notSent;
            throw;
        } catch (...) {
            entry.outcome = Outcome::perhaps;
            throw;
        }
    }

    void call(TavEmpIf& emp) {
        const std::size_t number = issue();
        record(number, [&] { return ::execute(emp, "read", std::to_string(number)); });
    }

    // A failing batch is a failure of its calls.
    void batch(TavIDL::RemoteEmp& emp, std::size_t calls) {
        TavIDL::EmpBatch batch(emp);
        std::vector<std::pair<std::size_t, std::future<std::string>>> results;
        for (; calls > 0; --calls) {
            const std::size_t number = issue();
            results.emplace_back(number,
                                 batch.Execute(7, "read", std::to_string(number), "", "", ""));
        }
        try {
            batch.run();
        } catch (...) {
            for (auto& [number, result] : results) {
                try {
                    record(number, [&future = result] { return future.get(); });
                } catch (const std::exception&) {
                    // It is in the ledger.
                }
            }
            throw;
        }
        for (auto& [number, result] : results) {
            record(number, [&future = result] { return future.get(); });
        }
    }

    // One-way: the result says only that it was written.
    void event(TavEmpEventIf& callback) {
        const std::size_t number = issue();
        Entry& entry = entries_.at(number);
        try {
            callback.Callback(1, std::to_string(number), "");
            entry.outcome = Outcome::written;
        } catch (...) {
            entry.outcome = Outcome::perhaps;
            throw;
        }
    }

    // What is wrong, once nothing runs any more; empty if nothing is. `complete`: no call may have
    // failed, and no event is lost.
    std::string problem(bool complete) const {
        for (std::size_t number = 0; number < next_; ++number) {
            const std::string wrong = problemOf(entries_.at(number), complete);
            if (!wrong.empty()) {
                return "call " + std::to_string(number) + " " + wrong;
            }
        }
        return "";
    }

private:
    enum class Outcome : uint8_t { nothing, result, otherResult, notSent, perhaps, written };
    struct Entry {
        std::atomic<uint8_t> executions{0};
        std::atomic<Outcome> outcome{Outcome::nothing};
    };

    static std::string problemOf(const Entry& entry, bool complete) {
        const Outcome outcome = entry.outcome;
        if (entry.executions > 1) {
            return "was executed twice";
        }
        if (outcome == Outcome::otherResult) {
            return "got the result of another call";
        }
        if (outcome == Outcome::result && entry.executions == 0) {
            return "has a result, but was not executed";
        }
        if (outcome == Outcome::notSent && entry.executions != 0) {
            return "was executed, but is said not to have been sent";
        }
        if (complete && (outcome == Outcome::notSent || outcome == Outcome::perhaps)) {
            return "failed";
        }
        return complete && outcome == Outcome::written && entry.executions == 0 ? "was lost" : "";
    }

    std::vector<Entry> entries_;
    std::atomic<std::size_t> next_{0};
};

}  // namespace proof

#endif
