#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "capture.h"
#include "decoder.h"
#include "encoder.h"
#include "follow.h"
#include "message.h"
#include "passage.h"
#include "print.h"
#include "stop.h"
#include "verbs.h"

namespace tavctl {

namespace {

std::string hintLine(const std::string& mismatch) {
    return mismatch.empty() ? "" : "  " + mismatch + "\n";
}

// Neither end has to hurry.
TavIDL::Settings unhurried(TavIDL::Settings settings) {
    settings.callTimeout = kNoLimit;
    settings.sendTimeout = kNoLimit;
    settings.stopTimeout = std::chrono::milliseconds(0);
    settings.onFailure = nullptr;  // spy says more itself
    return settings;
}

class Spy {
public:
    explicit Spy(const SpyOptions& options)
        : options_(options),
          settings_(unhurried(serverSettings(options.settings))),
          file_(options.file, options.settings) {
        // It checks the address.
        (void)TavIDL::RemoteEmp(options.target, settings_);
        if (options.follow) {
            follow_ = std::make_unique<Follow>(
                options.listen, options.target, settings_,
                [this](const ConnectionPointer& client, const std::string& target) {
                    pass(client, target, nullptr);
                });
        }
    }

    // Returns the status.
    int run() {
        TavIDL::Server server(
            options_.listen,
            [this](const ConnectionPointer& client) {
                pass(client, options_.target, follow_.get());
            },
            settings_);
        note("spying on " + server.address() + ", for " + options_.target);
        stop::wait();
        interrupt();
        server.stop();
        follow_.reset();
        return file_.complete() ? 0 : static_cast<int>(Exit::Broken);
    }

private:
    struct Link {
        int number;
        std::string address;  // of the target
        ConnectionPointer client;
        ConnectionPointer target;
        Follow* follow;  // or null
    };

    // Serves one connection.
    void pass(const ConnectionPointer& client, const std::string& address, Follow* follow) {
        const int number = ++connections_;
        const std::string name = "connection " + std::to_string(number);
        ConnectionPointer target;
        try {
            target = TavIDL::Connection::open(address, settings_);
        } catch (const TavIDL::CallFailed& failed) {
            const Failure failure = failureFrom(failed);
            printError({failure.status, name + ": " + failure.what(), failure.hint});
            return;
        }
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (interrupted_) {
                return;
            }
            targets_[number] = target;
        }
        note(name + " made" + (address == options_.target ? "" : ", for " + address));
        const Link link = {number, address, client, target, follow};
        std::thread answers([&] { watch(link, false); });
        watch(link, true);
        answers.join();
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            targets_.erase(number);
        }
        note(name + " ended");
    }

    // Ends all that wait for a target. The servers end what waits for a client.
    void interrupt() {
        const std::lock_guard<std::mutex> lock(mutex_);
        interrupted_ = true;
        for (const auto& target : targets_) {
            target.second->close();
        }
    }

    void watch(const Link& link, bool fromClient) {
        const std::string from = fromClient ? "client" : "target";
        const std::string connection = std::to_string(link.number);
        const auto passage = std::make_shared<Passage>(fromClient ? link.client : link.target,
                                                       fromClient ? link.target : link.client,
                                                       link.follow != nullptr);
        MessageReader reader(passage, options_.settings);
        bool broken = false;
        Json message;
        while (!broken && reader.next(message)) {
            broken = message.contains("broken");
            Json head = {{"connection", link.number}, {"from", from}};
            if (options_.follow) {
                head["target"] = link.address;
            }
            Json line = head;
            line["time"] = utcTime();
            line.update(message);
            show(line, tinted(Tint::Dim, "[" + connection + "] " + from + "  " + localTime()) +
                           "\n" + described(message, "  ") + hintLine(reader.mismatch()));
            file_.write(std::move(head), reader.bytes());
            if (broken || link.follow == nullptr) {
                passage->release();
                continue;
            }
            const Json changed = link.follow->rewritten(message, fromClient, link.client->peer());
            passage->pass(message["offset"].get<uint64_t>() + message["size"].get<uint64_t>(),
                          changed == message ? "" : encoded(changed, options_.settings, from));
        }
        // It is passed on all the same. But it is not kept: it may hold a credential.
        uint64_t undecoded = 0;
        while (const std::size_t size = reader.skipRest()) {
            undecoded += size;
        }
        if (undecoded > 0) {
            note("connection " + connection + ": " + std::to_string(undecoded) +
                 " more bytes from the " + from + " could not be decoded");
        }
    }

    const SpyOptions& options_;
    const TavIDL::Settings settings_;
    CaptureFile file_;
    std::atomic<int> connections_{0};
    std::mutex mutex_;  // of what follows
    std::map<int, ConnectionPointer> targets_;
    bool interrupted_ = false;
    std::unique_ptr<Follow> follow_;  // last: its servers end first
};

}  // namespace

int spy(const SpyOptions& options) {
    Spy spy(options);
    stop::watch();
    return spy.run();
}

}  // namespace tavctl
