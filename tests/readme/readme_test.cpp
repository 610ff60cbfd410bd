// The programs of the front page, run against each other.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>

#include "processes.h"

namespace {

constexpr int kWaitMs = 20000;

std::string endingOf(ChildProcess& process) {
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(process.pid()), &info, WEXITED | WNOWAIT);
    return process.ending().value_or("still running");
}

TEST(ReadmeTest, TheClientCallsTheServerWhichEndsOnASignal) {
    ChildProcess greeter({GREETER});
    ChildProcess client({CLIENT, greeter.readLine(kWaitMs)});

    EXPECT_EQ(client.readLine(kWaitMs), "Hello, world");
    EXPECT_EQ(endingOf(client), "exit status 0");
    kill(greeter.pid(), SIGTERM);
    EXPECT_EQ(endingOf(greeter), "exit status 0");
}

TEST(ReadmeTest, TheClientFailsWithStatusOneWhenNobodyServes) {
    const ReservedPort port;
    ChildProcess client({CLIENT, ":" + std::to_string(port.number())});
    EXPECT_EQ(endingOf(client), "exit status 1");
}

TEST(ReadmeTest, TheProgramGetsTheEventsOfTheEmpThatTheBrokerOpensForIt) {
    setenv("TAV_CREDENTIAL", "swordfish", 1);
    ChildProcess broker({BROKER});
    ChildProcess program({PROGRAM, ":" + broker.readLine(kWaitMs)});

    EXPECT_EQ(program.readLine(kWaitMs), "kitchen 21.5");
    EXPECT_EQ(program.readLine(kWaitMs), "kitchen 21.7");
    EXPECT_EQ(program.readLine(kWaitMs), "kitchen 21.6");
    EXPECT_EQ(endingOf(program), "exit status 0");
    kill(broker.pid(), SIGTERM);
    EXPECT_EQ(endingOf(broker), "exit status 0");
}

}  // namespace
