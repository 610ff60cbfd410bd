// 64 threads call one RemoteEmp, from its first use on, over TCP or TLS. Its server shares a
// processor with another one, which starts and stops in the meantime. Also for the thread
// sanitizer.
//
// --runs=N: that many calls.

#include <atomic>
#include <thread>
#include <vector>

#include "../../host/Certificates.h"
#include "../Report.h"
#include "Load.h"

using namespace proof;
using TavIDL::RemoteEmp;
using TavIDL::Server;
using TavIDL::Settings;

namespace {

constexpr uint64_t kCallsInCi = 20000;
constexpr std::size_t kThreads = 64;
constexpr std::size_t kCallsEach = 16;  // in a lap

struct Keys {
    Directory directory;
    Certificate authority = makeCertificate(directory, "authority", "", nullptr);
    Certificate server = makeCertificate(directory, "server", "IP:127.0.0.1", &authority);

    Settings settings(bool tls) const {
        Settings settings;
        settings.stackSize = 256 << 10;
        settings.callTimeout = settings.connectTimeout = settings.receiveTimeout =
            std::chrono::hours(1);
        settings.tls.enabled = tls;
        settings.tls.trusted = authority.file;
        return settings;
    }
    Settings serverSettings(bool tls) const {
        Settings served = settings(tls);
        served.tls.trusted = "";
        served.tls.certificate = server.file;
        served.tls.key = server.keyFile;
        return served;
    }
};

// Returns what was wrong.
std::string runLap(const Keys& keys, bool tls) {
    Ledger ledger(kThreads * kCallsEach + 100);
    const auto emp = std::make_shared<Emp>(
        [&](const std::string&, const std::string& number) { return ledger.execute(number); });
    const auto processor = std::make_shared<TavEmpProcessor>(emp);
    const Directory directory;
    const Server steady("127.0.0.1:0", processor, keys.serverSettings(tls));
    RemoteEmp remote(steady.address(), keys.settings(tls));
    Gate gate;
    std::atomic<std::size_t> callers{kThreads};
    Reports<std::string> failures;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            gate.wait();
            try {
                for (std::size_t call = 0; call < kCallsEach; ++call) {
                    ledger.call(remote);
                }
            } catch (const std::exception& failure) {
                failures.add(failure.what());
            }
            --callers;
        });
    }
    gate.open();
    for (int i = 0; callers > 0 && i < 50; ++i) {  // starts and stops with a call in between
        const Server passing(directory.socket(), processor, keys.serverSettings(false));
        RemoteEmp other(passing.address(), keys.settings(false));
        ledger.call(other);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> all = failures.all();
    return all.empty() ? ledger.problem(true) : all.front();
}

void prove(Report& report) {
    const uint64_t calls = report.wantedRuns() > 0 ? report.wantedRuns() : kCallsInCi;
    const Keys keys;
    std::size_t lap = 0;
    for (uint64_t done = 0; done < calls; done += kThreads * kCallsEach) {
        const std::string problem = runLap(keys, lap++ % 4 == 3);
        for (std::size_t i = 0; i < kThreads * kCallsEach; ++i) {
            report.countRun();
        }
        if (!problem.empty()) {
            report.fail("--runs=" + std::to_string(calls), problem);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    return proof::run(argc, argv, prove);
}
