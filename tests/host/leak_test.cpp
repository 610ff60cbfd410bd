#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "Calls.h"
#include "Substitutes.h"
#include "Support.h"

using calls::CallFailed;
using calls::Messages;

namespace {

struct Usage {
    std::size_t descriptors = countDescriptors();
    long objects = substitutes::liveObjects();
};

// TAVIDL_TEST_CALLS=1000000 for a long run.
int numberOfCalls() {
    const char* const wanted = std::getenv("TAVIDL_TEST_CALLS");
    return wanted != nullptr ? static_cast<int>(std::strtol(wanted, nullptr, 10)) : 20000;
}

class LeakTest : public calls::EachWay {
protected:
    // Calls a peer that resets about every tenth connection at a random point of a call.
    void callWithResets(int count) {
        peers::Listener listener(where());
        const Messages messages(settings());
        const std::string request = messages.request("read");
        const std::string reply = messages.reply("21.5");
        std::atomic<bool> done{false};
        std::thread peer([&] {
            std::mt19937 random(4711);
            while (!done) {
                peers::Peer connection = listener.accept();
                std::size_t fate = 0;
                do {
                    fate = random() % (10 * (request.size() + reply.size()));
                    if (connection.receive(std::min(fate, request.size())).empty()) {
                        break;
                    }
                    if (fate > request.size()) {
                        connection.send(reply.substr(0, fate - request.size()));
                    }
                } while (fate >= request.size() + reply.size());
                connection.reset();
            }
        });
        {
            TavIDL::RemoteEmp emp(listener.address(), settings());
            for (int i = 0; i < count; ++i) {
                try {
                    EXPECT_EQ(execute(emp, "read"), "21.5");
                } catch (const CallFailed& failure) {
                    failed_ += failure.reason() == CallFailed::ConnectionClosed ||
                                       failure.reason() == CallFailed::CannotConnect
                                   ? 1
                                   : count;
                }
            }
        }
        done = true;
        try {
            TavIDL::Connection::open(listener.address());  // wakes the peer
        } catch (const CallFailed&) {
            // It may have reset the connection already.
        }
        peer.join();
    }

    int failed_ = 0;
};

ON_EACH_WAY(LeakTest);

TEST_P(LeakTest, ManyCallsWithRandomResetsLeaveNothingBehind) {
    const std::size_t threads = countThreads();
    callWithResets(100);  // creates what is kept permanently
    failed_ = 0;
    const int count = numberOfCalls();
    const Usage before;
    callWithResets(count);
    const Usage after;
    EXPECT_GT(failed_, count / 100);
    EXPECT_LT(failed_, count / 2);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.objects, before.objects);
    waitUntil([=] { return countThreads() <= threads; });
}

}  // namespace
