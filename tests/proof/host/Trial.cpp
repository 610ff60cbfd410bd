#include "Trial.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <new>
#include <string_view>

#include "../../host/Certificates.h"
#include "../Memory.h"

namespace proof {

using TavIDL::RemoteEmp;
using TavIDL::Server;
using TavIDL::Settings;

namespace {

// The time-outs for what may never come after a failure.
constexpr std::chrono::milliseconds kShortTime(100);

struct Certificates {
    Directory directory;
    Certificate authority = makeCertificate(directory, "authority", "", nullptr);
    Certificate server = makeCertificate(directory, "server", "IP:127.0.0.1", &authority);
};

const Certificates& certificates() {
    static const Certificates made;
    return made;
}

Settings settingsFor(const Way& way) {
    static Reports<std::string> ignored;
    Settings settings = patient(ignored);
    settings.onFailure = [](const std::string&) {};
    settings.framed = way.framed;
    settings.protocol = way.framed ? Settings::Compact : Settings::Binary;
    settings.tls.enabled = way.tls;
    return settings;
}

char watched[512];

extern "C" void onEnd(int signal) {
    char text[640];
    const int size =
        std::snprintf(text, sizeof text, "FAILED: %s in %s\nproof: 1 runs, 1 failures\n",
                      signal == SIGALRM ? "no end" : "a crash", watched);
    (void)!::write(STDOUT_FILENO, text, static_cast<std::size_t>(size));
    ::_exit(1);
}

// From here on, a crash, or more than a minute, ends the process, which then names this option.
void watch(const std::string& option) {
    (void)std::snprintf(watched, sizeof watched, "--only=%s", option.c_str());
    for (const int signal : {SIGSEGV, SIGABRT, SIGALRM, SIGPIPE}) {
        (void)::signal(signal, onEnd);
    }
    ::alarm(60);
}

}  // namespace

Trial::Trial(const Way& way, Disturbance& disturbance)
    : way_(way),
      disturbance_(disturbance),
      emp_(std::make_shared<Emp>([this](const std::string&, const std::string& number) {
          // Long enough to be allocated, so that handlers fail, too.
          const std::string text = number + std::string(100, ' ');
          return ledger_.execute(text).substr(0, number.size());
      })) {
}

std::string Trial::where() const {
    return way_.isUnix ? directory_.socket() : "127.0.0.1:0";
}

Settings Trial::clientSettings(Time time) const {
    Settings settings = settingsFor(way_);
    settings.tls.trusted = certificates().authority.file;
    if (time == Time::asNeeded && !disturbance_.isHarmless()) {
        settings.connectTimeout = settings.callTimeout = kShortTime;
    }
    return settings;
}

Settings Trial::serverSettings(Time time) const {
    Settings settings = settingsFor(way_);
    settings.tls.certificate = certificates().server.file;
    settings.tls.key = certificates().server.keyFile;
    if (time == Time::asNeeded && !disturbance_.isHarmless()) {
        settings.idleTimeout = settings.receiveTimeout = settings.stopTimeout = kShortTime;
    }
    settings.onCall = [](const TavIDL::ServedCall&) {};
    return settings;
}

// Thrown here, or by the peer's handler, whose processor answers with its text.
bool Trial::isOfMemory(const std::exception& failure) const {
    const auto* const answer = dynamic_cast<const apache::thrift::TApplicationException*>(&failure);
    return disturbance_.isOfMemory() &&
           (dynamic_cast<const std::bad_alloc*>(&failure) != nullptr ||
            (answer != nullptr &&
             answer->getType() == apache::thrift::TApplicationException::UNKNOWN &&
             answer->what() == std::string_view(std::bad_alloc().what())));
}

// On a busy machine, short time-outs may run out: the server's, and those of a client with them.
void Trial::mustAnswer(const char* who, RemoteEmp& emp) {
    std::string why;
    for (int tries = 20; tries > 0;) {
        try {
            ledger_.call(emp);
            return;
        } catch (const TavIDL::CallFailed& failure) {
            why = failure.what();
            tries -= failure.reason() == TavIDL::CallFailed::NoAnswerInTime ? 0 : 1;
        } catch (const std::exception& failure) {
            why = failure.what();
            break;
        }
    }
    problem(std::string("afterwards, ") + who + " fails: " + why);
}

void Trial::goOn(RemoteEmp& same, const std::string& address) {
    if (!disturbance_.happened()) {
        return;  // the failure comes later
    }
    end();
    mustAnswer("the same client", same);
    RemoteEmp other(address, clientSettings(Time::any));
    mustAnswer("another client", other);
}

void Trial::goOnWithNewServer() {
    end();
    const Server server(where(), emp_, serverSettings(Time::any));
    RemoteEmp emp(server.address(), clientSettings(Time::any));
    mustAnswer("a client of a new server", emp);
}

// Without memory the file stays. The next server replaces it.
void Trial::mustLeaveNoFile() {
    if (!disturbance_.isOfMemory() && std::filesystem::exists(directory_.file("socket"))) {
        problem("a server that could not start leaves its file");
    }
}

std::string Trial::problems() {
    const std::string wrong = ledger_.problem(disturbance_.isHarmless());
    if (!wrong.empty()) {
        problem(wrong);
    }
    std::string all;
    for (const std::string& each : problems_) {
        all += (all.empty() ? "" : "; ") + each;
    }
    return all;
}

std::string outcomeOf(const Scenario& scenario, const Way& way, Disturbance& disturbance) {
    // Threads that have ended leave memory that the next ones use: what grows each time is lost.
    constexpr int kTries = 4;
    std::size_t lost = 0;
    for (int tries = 0; tries < kTries; ++tries) {
        const std::size_t blocks = memory::blocks();
        const std::size_t descriptors = countDescriptors();
        const std::size_t threads = countThreads();
        std::string problems;
        {
            Trial trial(way, disturbance);
            try {
                scenario.run(trial);
            } catch (const std::bad_alloc&) {
                trial.end();
                if (!disturbance.isOfMemory()) {
                    throw;
                }
                trial.goOnWithNewServer();
            }
            trial.end();
            problems = trial.problems();
        }
        if (!problems.empty()) {
            return problems;
        }
        waitUntil([=] { return countThreads() <= threads; });
        if (countDescriptors() != descriptors) {
            return "it leaves descriptors";
        }
        if (memory::blocks() <= blocks) {
            return "";
        }
        lost = memory::blocks() - blocks;
    }
    return "it leaves " + std::to_string(lost) + " blocks of memory each time";
}

void prove(Report& report, const std::string& name, const Scenario& scenario, const Way& way,
           Disturbance& disturbance) {
    if (!report.selected(name)) {
        return;
    }
    watch(name);
    const std::string problems = outcomeOf(scenario, way, disturbance);
    report.countRun();
    if (!problems.empty()) {
        report.fail("--only=" + name, name + ": " + problems);
    }
}

}  // namespace proof
