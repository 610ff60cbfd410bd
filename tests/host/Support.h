#ifndef TESTS_HOST_SUPPORT_H
#define TESTS_HOST_SUPPORT_H

#include <TavIDL/host/Settings.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Shared by several tests of servers.

// A temporary directory, removed with its contents.
class Directory {
public:
    Directory() {
        std::string name = (std::filesystem::temp_directory_path() / "tavXXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a directory like " + name);
        }
        path_ = name;
    }
    ~Directory() { std::filesystem::remove_all(path_); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string file(const std::string& name) const { return path_ / name; }
    std::string socket(const std::string& name = "socket") const { return "unix:" + file(name); }

private:
    std::filesystem::path path_;
};

// Threads wait at a gate until another thread opens it.
class Gate {
public:
    void open() {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

// Collects reports from several threads.
template <typename T>
class Reports {
public:
    void add(T report) {
        const std::lock_guard<std::mutex> lock(mutex_);
        all_.push_back(std::move(report));
        changed_.notify_all();
    }
    std::vector<T> all() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return all_;
    }
    void clear() {
        const std::lock_guard<std::mutex> lock(mutex_);
        all_.clear();
    }
    // Waits until there are `count` reports.
    std::vector<T> waitFor(std::size_t count) const {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return all_.size() >= count; });
        return all_;
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<T> all_;
};

// Settings that report failures to `reports`, with time-outs so long that a test that waits for one
// exceeds the limit for tests.
inline TavIDL::Settings patient(Reports<std::string>& reports) {
    TavIDL::Settings settings;
    for (auto* timeout : {&settings.connectTimeout, &settings.callTimeout, &settings.idleTimeout,
                          &settings.receiveTimeout, &settings.sendTimeout, &settings.stopTimeout}) {
        *timeout = std::chrono::hours(1);
    }
    settings.onFailure = [&reports](const std::string& failure) { reports.add(failure); };
    return settings;
}

// For effects that the system completes after a call has returned. For example, a joined thread may
// still be listed for a moment.
inline void waitUntil(const std::function<bool()>& condition) {
    while (!condition()) {
        std::this_thread::yield();
    }
}

inline std::size_t countDescriptors() {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}
// The ids of this process's threads.
inline std::set<int> threads() {
    // The thread sanitizer starts its own thread together with a program's first one.
    [[maybe_unused]] static const bool hasStarted = (std::thread([] {}).join(), true);
    std::set<int> all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        all.insert(std::stoi(entry.path().filename().string()));
    }
    return all;
}
inline std::size_t countThreads() {
    return threads().size();
}
// The ids of those that have started since.
inline std::set<int> threadsSince(const std::set<int>& before) {
    std::set<int> all = threads();
    for (const int thread : before) {
        all.erase(thread);
    }
    return all;
}
// The id of the only thread that `work` starts and leaves running.
inline int threadStartedBy(const std::function<void()>& work) {
    const std::set<int> before = threads();
    work();
    const std::set<int> added = threadsSince(before);
    if (added.size() != 1) {
        throw std::logic_error("it started " + std::to_string(added.size()) + " threads");
    }
    return *added.begin();
}

#endif
