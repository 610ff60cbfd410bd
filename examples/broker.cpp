// A broker: opens EMPs, each in its own process, for programs that know name, version and
// credential.
//
//     TAV_CREDENTIAL=... broker
//
// Prints its port to standard output when it is ready. Ends on SIGTERM or SIGINT, and ends all
// EMPs.

#include <TavIDL/host/Server.h>
#include <signal.h>

#include <iostream>
#include <map>
#include <mutex>
#include <stdexcept>

#include "processes.h"
#include "say.h"

namespace {

// Each is a process: without a limit, a caller could make the machine run out of processes.
constexpr std::size_t kMostEmps = 16;
// Less than a caller waits for the answer.
constexpr int kStartMs = 3000;

// The available EMPs: by name, the version and the program.
const std::map<std::string, std::pair<std::string, std::string>> kCatalog = {
    {"thermometer", {"1.0", "emp"}},
};

struct Emp {
    std::string name;
    ReservedPort callbackPort;
    ReservedPort servicePort;
    std::unique_ptr<ChildProcess> process;
};

// Called by several threads at once, one for each connection.
class Broker : public TavBrokerIf {
public:
    explicit Broker(std::string credential) : credential_(std::move(credential)) {}

    // What this throws reaches the caller as a TApplicationException with the same text.
    void OpenEmp(ConnectionInfo& result, const std::string& name, const std::string& version,
                 const std::string& credential) override {
        const auto known = kCatalog.find(name);
        if (known == kCatalog.end()) {
            throw std::invalid_argument("there is no EMP '" + name + "'");
        }
        const auto& [offered, program] = known->second;
        if (version != offered) {
            throw std::invalid_argument("'" + name + "' has version " + offered + ", not '" +
                                        version + "'");
        }
        if (credential != credential_) {
            throw std::invalid_argument("wrong credential for '" + name + "'");
        }

        // Locked until the EMP is ready, so that its end cannot be missed: see removeEnded.
        const std::lock_guard<std::mutex> lock(mutex_);
        if (emps_.size() == kMostEmps) {
            throw std::runtime_error("too many EMPs are open");
        }
        const std::string empID = "emp-" + std::to_string(++lastID_);
        auto emp = std::make_unique<Emp>();
        emp->name = name;
        emp->process = std::make_unique<ChildProcess>(std::vector<std::string>{
            siblingProgram(program), empID, std::to_string(emp->servicePort.number()),
            std::to_string(emp->callbackPort.number())});
        // It prints a line when it is ready. A caller that got its answer earlier could not
        // connect.
        emp->process->readLine(kStartMs);

        result.callbackServicePort = emp->callbackPort.number();
        result.empServicePort = emp->servicePort.number();
        result.empID = empID;
        say("opened", empID + ": process " + std::to_string(emp->process->pid()) + ", port " +
                          std::to_string(result.empServicePort) + ", callback port " +
                          std::to_string(result.callbackServicePort));
        emps_[empID] = std::move(emp);
    }

    // The caller is identified by the port of its callback service, which it got from OpenEmp.
    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& /*param1*/, const std::string& /*param2*/,
                 const std::string& /*param3*/, const std::string& /*param4*/) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [empID, emp] : emps_) {
            if (emp->callbackPort.number() == fromPort) {
                if (cmd != "name") {
                    throw std::invalid_argument("the broker has no command '" + cmd + "'");
                }
                result = empID + " is a " + emp->name;
                return;
            }
        }
        throw std::invalid_argument("no EMP is open for port " + std::to_string(fromPort));
    }

    bool CloseEmp(const ConnectionInfo& connectionInfo) override {
        std::unique_ptr<Emp> emp;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            const auto open = emps_.find(connectionInfo.empID);
            if (open == emps_.end()) {
                return false;
            }
            emp = std::move(open->second);
            emps_.erase(open);
        }
        emp.reset();  // Waits for its process to end. Other calls can run meanwhile.
        say("closed", connectionInfo.empID);
        return true;
    }

    // Removes EMPs whose process has ended on its own, and leaves no zombie.
    void removeEnded() {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (auto emp = emps_.begin(); emp != emps_.end();) {
            const auto ending = emp->second->process->ending();
            if (ending) {
                say("lost", emp->first + ": its process ended with " + *ending);
            }
            emp = ending ? emps_.erase(emp) : std::next(emp);
        }
    }

private:
    const std::string credential_;
    std::mutex mutex_;
    int lastID_ = 0;
    std::map<std::string, std::unique_ptr<Emp>> emps_;
};

}  // namespace

int main() try {
    sayAs("broker");
    // Blocked before the server starts its threads, which inherit the mask: the loop below handles
    // these signals. (A server that starts no processes can simply call runUntilSignal().)
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) {
        sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    const auto broker = std::make_shared<Broker>(credentialFromEnvironment());
    const TavIDL::Server server(":0", broker);
    say("serves", "TavBroker on " + server.address());
    tellParent(server.address().substr(server.address().rfind(':') + 1));

    int signal = 0;
    while (sigwait(&signals, &signal) == 0 && signal == SIGCHLD) {
        broker->removeEnded();
    }
    say("ends", "on signal " + std::to_string(signal));
} catch (const std::exception& failure) {
    std::cerr << "broker: " << failure.what() << '\n';
    return 1;
}
