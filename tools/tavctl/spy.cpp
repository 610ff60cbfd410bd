#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <thrift/transport/TVirtualTransport.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include "capture.h"
#include "message.h"
#include "print.h"
#include "stop.h"
#include "verbs.h"

namespace tavctl {

using apache::thrift::transport::TTransportException;
using ConnectionPointer = std::shared_ptr<TavIDL::Connection>;

namespace {

struct Options {
    Settings settings;
    std::string listen;
    std::string target;
    std::string file;
};

// One direction of a connection. What was read is passed on when more is asked for: by then all
// that is complete in it has been printed, so a request always stands before its reply. Nothing
// is held back meanwhile, since a reader that waits for the rest of a message asks for more.
class Passage : public apache::thrift::transport::TVirtualTransport<Passage> {
public:
    Passage(ConnectionPointer from, ConnectionPointer to)
        : from_(std::move(from)), to_(std::move(to)) {}

    bool isOpen() const override { return true; }

    uint32_t read(uint8_t* bytes, uint32_t count) {
        uint32_t got = 0;
        try {
            to_->write(reinterpret_cast<const uint8_t*>(waiting_.data()),
                       static_cast<uint32_t>(waiting_.size()));
            got = from_->read(bytes, count);
        } catch (const TTransportException&) {
            // One of the two is gone: so is the connection.
            from_->close();
            to_->close();
        }
        waiting_.assign(reinterpret_cast<const char*>(bytes), got);
        if (got == 0) {
            to_->closeOutput();  // nothing more comes this way; answers still may
        }
        return got;
    }

private:
    const ConnectionPointer from_;
    const ConnectionPointer to_;
    std::string waiting_;
};

std::string hintLine(const std::string& mismatch) {
    return mismatch.empty() ? "" : "  " + mismatch + "\n";
}

class Spy {
public:
    explicit Spy(const Options& options)
        : options_(options), settings_(serverSettings(options.settings)) {
        // Neither end is hurried.
        settings_.callTimeout = kNoLimit;
        settings_.sendTimeout = kNoLimit;
        settings_.stopTimeout = std::chrono::milliseconds(0);
        settings_.onFailure = nullptr;  // it says more itself
        // It checks the address.
        (void)TavIDL::RemoteEmp(options.target, settings_);
        if (options.file == "-") {
            throw Failure(Exit::Usage, "--write takes the name of a file",
                          "--json prints the messages to standard output");
        }
        if (!options.file.empty()) {
            file_.open(options.file, std::ios::binary);
            file_ << captureHead(options.settings).dump() << std::endl;
            if (!file_) {
                throw cannotWrite();
            }
        }
    }

    // Whether everything was written to the file.
    bool complete() const { return !incomplete_; }

    const TavIDL::Settings& settings() const { return settings_; }

    // Serves one connection.
    void pass(const ConnectionPointer& client) {
        const int number = ++connections_;
        const std::string name = "connection " + std::to_string(number);
        ConnectionPointer target;
        try {
            target = TavIDL::Connection::open(options_.target, settings_);
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
        note(name + " made");
        std::thread answers([&] { watch(number, "target", target, client); });
        watch(number, "client", client, target);
        answers.join();
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            targets_.erase(number);
        }
        note(name + " ended");
    }

    // Ends all that wait for a target. The server ends what waits for a client.
    void interrupt() {
        const std::lock_guard<std::mutex> lock(mutex_);
        interrupted_ = true;
        for (const auto& target : targets_) {
            target.second->close();
        }
    }

private:
    void watch(int connection, const char* from, const ConnectionPointer& source,
               const ConnectionPointer& sink) {
        MessageReader reader(std::make_shared<Passage>(source, sink), options_.settings);
        bool broken = false;
        Json message;
        while (!broken && reader.next(message)) {
            broken = message.contains("broken");
            Json shownMessage = {{"connection", connection}, {"from", from}, {"time", utcTime()}};
            shownMessage.update(message);
            show(shownMessage, tinted(Tint::Dim, "[" + std::to_string(connection) + "] " + from +
                                                     "  " + localTime()) +
                                   "\n" + described(message, "  ") + hintLine(reader.mismatch()));
            write(connection, from, reader.bytes());
        }
        // It is passed on all the same. But it is not kept: it may hold a credential.
        uint64_t undecoded = 0;
        while (const std::size_t size = reader.skipRest()) {
            undecoded += size;
        }
        if (undecoded > 0) {
            note("connection " + std::to_string(connection) + ": " + std::to_string(undecoded) +
                 " more bytes from the " + from + " could not be decoded");
        }
    }

    void write(int connection, const char* from, const std::string& bytes) {
        const std::chrono::duration<double, std::milli> time =
            std::chrono::steady_clock::now() - begin_;
        const Json line = {{"connection", connection},
                           {"from", from},
                           {"ms", std::round(time.count() * 10) / 10},
                           {"hex", toHex(bytes)}};
        const std::lock_guard<std::mutex> lock(mutex_);
        if (file_.is_open() && !(file_ << line.dump() << std::endl)) {
            // The two processes must not be affected.
            printError(cannotWrite());
            incomplete_ = true;
            file_.close();
        }
    }

    Failure cannotWrite() const {
        return {Exit::Broken, "cannot write to '" + options_.file + "'",
                "check the path, and that there is room"};
    }

    const Options& options_;
    TavIDL::Settings settings_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::atomic<int> connections_{0};
    std::mutex mutex_;  // of what follows
    std::map<int, ConnectionPointer> targets_;
    bool interrupted_ = false;
    std::ofstream file_;
    bool incomplete_ = false;
};

int spy(const Options& options) {
    Spy spy(options);
    stop::watch();
    TavIDL::Server server(
        options.listen, [&](const ConnectionPointer& client) { spy.pass(client); }, spy.settings());
    note("spying on " + server.address() + ", for " + options.target);
    stop::wait();
    spy.interrupt();
    server.stop();
    return spy.complete() ? 0 : static_cast<int>(Exit::Broken);
}

}  // namespace

void addSpy(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, spy, "spy", "Stand between two processes and print their messages",
                "tavctl spy 127.0.0.1:9091 127.0.0.1:9090 --write capture.json");
    addOption(verb, "listen", options->listen, "LISTEN",
              "Where clients connect; port 0 is any free one")
        ->required();
    addOption(verb, "target", options->target, "TARGET", "Where the server is")->required();
    addOption(verb, "--write", options->file, "FILE", "Keep the bytes of all messages, for decode");
    addProtocolOptions(verb, options->settings);
}

}  // namespace tavctl
