// A program: opens an EMP at the broker, has its events reported, uses it and closes it.
//
//     TAV_CREDENTIAL=... program BROKERPORT
//
// Shows each call and how it ended. Exit status 0 only if all of it was as expected.

#include <iostream>
#include <stdexcept>

#include "processes.h"
#include "safe_thrift.h"
#include "say.h"

namespace {

constexpr int kWaitMs = 5000;
int surprises = 0;

void expect(const std::string& expected, const std::string& outcome) {
    if (outcome != expected) {
        ++surprises;
        say("WRONG", "expected: " + expected);
    }
}

// Makes a call, shows it with its outcome and time, and compares that with what is expected.
template <typename Operation>
void show(const std::string& call, const std::string& expected, Operation operation) {
    say("call", call);
    const double begin = now();
    std::string kind = "reply";
    std::string outcome;
    try {
        outcome = operation();
    } catch (const apache::thrift::TApplicationException& failure) {
        kind = "refused";  // The peer answered with a failure; the connection goes on.
        outcome = failure.what();
    } catch (const apache::thrift::TException& failure) {
        kind = "broken";  // There was no answer; the connection has been closed.
        outcome = failure.what();
    }
    say(kind, outcome, now() - begin);
    expect(expected, kind + ": " + outcome);
}

std::string text(bool value) {
    return value ? "true" : "false";
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        throw std::invalid_argument("usage: program BROKERPORT");
    }
    sayAs("program");
    const std::string key = credentialFromEnvironment();
    SafeClient<TavBrokerClient> broker(portFrom(argv[1]));

    ConnectionInfo info;
    const auto openEmp = [&](const char* name, const char* version, const std::string& credential) {
        return broker.call([&](TavBrokerClient& client) {
            client.OpenEmp(info, name, version, credential);
            return std::string("opened");
        });
    };
    const auto closeEmp = [&] {
        return broker.call([&](TavBrokerClient& client) { return text(client.CloseEmp(info)); });
    };
    show("OpenEmp thermometer 1.0", "reply: opened",
         [&] { return openEmp("thermometer", "1.0", key); });
    if (surprises != 0) {
        throw std::runtime_error("without an EMP there is nothing to go on with");
    }

    // The EMP reports to the port that the broker has told both sides.
    ChildProcess callback({siblingProgram("callback"), std::to_string(info.callbackServicePort)});
    callback.readLine(kWaitMs);

    show("Execute name, at the broker", "reply: " + info.empID + " is a thermometer", [&] {
        return broker.call([&](TavBrokerClient& client) {
            std::string result;
            client.Execute(result, info.callbackServicePort, "name", "", "", "", "");
            return result;
        });
    });

    constexpr int32_t kClient = 7;
    SafeClient<TavEmpClient> emp(info.empServicePort);
    const auto execute = [&](const char* cmd, const char* param1 = "") {
        return emp.call([&](TavEmpClient& client) {
            std::string result;
            client.Execute(result, kClient, cmd, param1, "", "", "");
            return result;
        });
    };
    show("Open", "reply: true", [&] {
        return emp.call([&](TavEmpClient& client) {
            return text(client.Open(kClient, "thermometer", "1.0", key));
        });
    });
    show("Execute read", "reply: 21.5 C", [&] { return execute("read"); });
    show("ExecuteWithParamList label", "reply: kitchen/window/north", [&] {
        return emp.call([&](TavEmpClient& client) {
            ParamList list;
            list.param1 = "kitchen";
            list.param2 = "window";
            list.param10 = "north";
            std::string result;
            client.ExecuteWithParamList(result, kClient, "label", list);
            return result;
        });
    });
    show("Execute watch kitchen", "reply: watched kitchen",
         [&] { return execute("watch", "kitchen"); });
    for (const char* event : {"1 kitchen 21.5", "1 kitchen 21.7", "1 kitchen 21.6"}) {
        expect(event, callback.readLine(kWaitMs));
    }
    show("Execute fly", "refused: the thermometer has no command 'fly'",
         [&] { return execute("fly"); });
    show("Execute jam, which breaks the connection", "broken: No more data to read.",
         [&] { return execute("jam"); });
    show("Execute read, on a new one", "reply: 21.5 C", [&] { return execute("read"); });
    show("Close", "reply: 6", [&] {
        return std::to_string(emp.call([](TavEmpClient& client) { return client.Close(kClient); }));
    });
    show("Execute read, after Close", "refused: client 7 has not called Open",
         [&] { return execute("read"); });
    show("CloseEmp", "reply: true", closeEmp);

    show("CloseEmp once more", "reply: false", closeEmp);
    show("Execute read, at an EMP that is closed", "broken: No more data to read.",
         [&] { return execute("read"); });
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
