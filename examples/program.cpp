// A program: has the broker open an EMP, calls it, receives its events and closes it.
//
//     TAV_CREDENTIAL=... program BROKERPORT
//
// Shows each call and its outcome. Exit status 0 only if every outcome was as expected.

#include <TavIDL/host/EmpSession.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "processes.h"
#include "say.h"

namespace {

int surprises = 0;

void expect(const std::string& expected, const std::string& outcome) {
    if (outcome != expected) {
        ++surprises;
        say("WRONG", "expected: " + expected);
    }
}

// Makes a call, shows it with its outcome and time, and compares the outcome with `expected`.
template <typename Operation>
void show(const std::string& call, const std::string& expected, Operation operation) {
    say("call", call);
    const double begin = now();
    const auto end = [&](const std::string& kind, const std::string& outcome) {
        say(kind, outcome, now() - begin);
        return kind + ": " + outcome;
    };
    try {
        expect(expected, end("reply", operation()));
    } catch (const apache::thrift::TApplicationException& failure) {
        // The peer answered that the call failed, and why.
        expect(expected, end("refused", failure.what()));
    } catch (const TavIDL::CallFailed& failure) {
        // There was no answer. The next call connects again.
        end("broken", failure.what());
        expect(expected, "broken");
    }
}

std::string text(bool value) {
    return value ? "true" : "false";
}

// The received events. The session's threads add them.
class Events {
public:
    void add(const std::string& event) {
        say("event", event);
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(event);
        changed_.notify_one();
    }

    std::string next() {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, std::chrono::seconds(5), [&] { return !events_.empty(); })) {
            return "no event";
        }
        std::string event = events_.front();
        events_.pop_front();
        return event;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> events_;
};

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        throw std::invalid_argument("usage: program BROKERPORT");
    }
    sayAs("program");
    const std::string key = credentialFromEnvironment();
    TavIDL::RemoteBroker broker(std::string(":") + argv[1]);

    Events events;
    std::optional<TavIDL::EmpSession> session;
    show("OpenEmp thermometer 1.0", "reply: opened", [&] {
        session.emplace(broker, "thermometer", "1.0", key,
                        [&](int32_t type, const std::string& what, const std::string& reading) {
                            events.add(std::to_string(type) + " " + what + " " + reading);
                        });
        return "opened";
    });
    if (!session) {
        throw std::runtime_error("cannot go on without an EMP");
    }
    const ConnectionInfo info = session->info();

    show("Execute name, at the broker", "reply: " + info.empID + " is a thermometer", [&] {
        std::string result;
        broker.Execute(result, info.callbackServicePort, "name", "", "", "", "");
        return result;
    });

    constexpr int32_t kClient = 7;
    TavIDL::RemoteEmp& emp = **session;
    const auto execute = [&](const char* cmd, const char* param1 = "") {
        std::string result;
        emp.Execute(result, kClient, cmd, param1, "", "", "");
        return result;
    };
    show("Open", "reply: true", [&] { return text(emp.Open(kClient, "thermometer", "1.0", key)); });
    show("Execute read", "reply: 21.5 C", [&] { return execute("read"); });
    show("ExecuteWithParamList label", "reply: kitchen/window/north", [&] {
        ParamList list;
        list.param1 = "kitchen";
        list.param2 = "window";
        list.param10 = "north";
        std::string result;
        emp.ExecuteWithParamList(result, kClient, "label", list);
        return result;
    });
    show("Execute watch kitchen", "reply: watched kitchen",
         [&] { return execute("watch", "kitchen"); });
    for (const char* event : {"1 kitchen 21.5", "1 kitchen 21.7", "1 kitchen 21.6"}) {
        expect(event, events.next());
    }
    show("Execute fly", "refused: the thermometer has no command 'fly'",
         [&] { return execute("fly"); });
    show("Execute jam, which breaks the connection", "broken", [&] { return execute("jam"); });
    show("Execute read, on a new one", "reply: 21.5 C", [&] { return execute("read"); });
    show("Close", "reply: 6", [&] { return std::to_string(emp.Close(kClient)); });
    show("Execute read, after Close", "refused: client 7 has not called Open",
         [&] { return execute("read"); });
    show("CloseEmp", "reply: true", [&] { return text(session->close()); });

    show("CloseEmp once more", "reply: false", [&] { return text(broker.CloseEmp(info)); });
    show("Execute read, at an EMP that is closed", "broken", [&] { return execute("read"); });
    const auto openEmp = [&](const char* name, const char* version, const std::string& credential) {
        const TavIDL::EmpSession another(broker, name, version, credential);
        return "opened";
    };
    show("OpenEmp of a name that the broker does not know", "refused: there is no EMP 'barometer'",
         [&] { return openEmp("barometer", "1.0", key); });
    show("OpenEmp with another version", "refused: 'thermometer' has version 1.0, not '9.9'",
         [&] { return openEmp("thermometer", "9.9", key); });
    show("OpenEmp with a wrong credential", "refused: wrong credential for 'thermometer'",
         [&] { return openEmp("thermometer", "1.0", "guessed"); });
    say("ends", surprises == 0 ? "all as expected" : std::to_string(surprises) + " surprises");
    return surprises == 0 ? 0 : 1;
} catch (const std::exception& failure) {
    std::cerr << "program: " << failure.what() << '\n';
    return 1;
}
