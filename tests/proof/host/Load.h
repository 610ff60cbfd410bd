#ifndef TESTS_PROOF_HOST_LOAD_H
#define TESTS_PROOF_HOST_LOAD_H

#include <TavIDL/host/Server.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <utility>

#include "../../host/Support.h"
#include "Ledger.h"

namespace proof {

// What a process holds.
struct Usage {
    std::size_t descriptors = countDescriptors();
    std::size_t threads = countThreads();
    std::size_t kilobytes = resident();

    static std::size_t resident() {
        malloc_trim(0);
        std::size_t pages = 0;
        std::size_t ignored = 0;
        std::ifstream("/proc/self/statm") >> ignored >> pages;
        return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
    }
};

// What has grown; empty if nothing. Threads' stacks and the allocator's arenas vary a little.
inline std::string growth(const Usage& before) {
#ifdef PROOF_WITHOUT_MALLOC
    constexpr std::size_t kTolerance = 512 * 1024;  // the sanitizer keeps freed memory for a while
#else
    constexpr std::size_t kTolerance = 4096;
#endif
    waitUntil([&] { return countThreads() <= before.threads; });
    const Usage after;
    if (after.descriptors > before.descriptors) {
        return "descriptors: " + std::to_string(before.descriptors) + ", then " +
               std::to_string(after.descriptors);
    }
    if (after.kilobytes > before.kilobytes + kTolerance) {
        return "KiB of memory: " + std::to_string(before.kilobytes) + ", then " +
               std::to_string(after.kilobytes);
    }
    return "";
}

// A server on a path, which is stopped and started again.
class RestartingServer {
public:
    RestartingServer(std::string address, std::shared_ptr<TavEmpIf> handler,
                     TavIDL::Settings settings)
        : address_(std::move(address)),
          handler_(std::move(handler)),
          settings_(std::move(settings)) {
        restart();
    }

    const std::string& address() const { return address_; }

    void restart() {
        server_.reset();
        server_ = std::make_unique<TavIDL::Server>(address_, handler_, settings_);
    }

private:
    const std::string address_;
    const std::shared_ptr<TavEmpIf> handler_;
    const TavIDL::Settings settings_;
    std::unique_ptr<TavIDL::Server> server_;
};

}  // namespace proof

#endif
