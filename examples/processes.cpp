#include "processes.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace {

constexpr int kEndMs = 2000;

int must(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

// Whether `fd` becomes readable (data, end of file or an error) within `ms` milliseconds.
bool readable(int fd, int ms) {
    pollfd wait{fd, POLLIN, 0};
    const int ready = poll(&wait, 1, ms);
    if (ready < 0 && errno == EINTR) {
        return readable(fd, ms);  // It was stopped and continued.
    }
    return ready != 0;
}

std::string describe(int status) {
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

ReservedPort::ReservedPort()
    : socket_(must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0 ||
        bind(socket_, any, size) < 0 || getsockname(socket_, any, &size) < 0) {
        const int error = errno;
        close(socket_);
        throw std::system_error(error, std::generic_category(), "no free port");
    }
    number_ = ntohs(address.sin_port);
}

ReservedPort::~ReservedPort() {
    close(socket_);
}

ChildProcess::ChildProcess(const std::vector<std::string>& command) {
    int toChild[2];
    int fromChild[2];
    must(pipe2(toChild, O_CLOEXEC), "pipe");
    if (pipe2(fromChild, O_CLOEXEC) < 0) {
        const int error = errno;
        close(toChild[0]);
        close(toChild[1]);
        throw std::system_error(error, std::generic_category(), "pipe");
    }

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, toChild[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, fromChild[1], STDOUT_FILENO);

    // The child gets the default handling of the signals that the parent handles.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const int error =
        posix_spawn(&pid_, arguments[0], &files, &attributes, arguments.data(), environ);

    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    close(toChild[0]);
    close(fromChild[1]);
    input_ = toChild[1];
    output_ = fromChild[0];
    if (error != 0) {
        close(input_);
        close(output_);
        throw std::system_error(error, std::generic_category(), "cannot start " + command[0]);
    }
}

ChildProcess::~ChildProcess() {
    close(input_);
    // Its output ends when the process ends. The rest of the output is ignored.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kEndMs);
    while (!ending() && std::chrono::steady_clock::now() < deadline) {
        char rest[512];
        if (readable(output_, kEndMs) && read(output_, rest, sizeof rest) <= 0) {
            break;
        }
    }
    if (!ending_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(output_);
}

std::string ChildProcess::readLine(int ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        const std::size_t end = unread_.find('\n');
        if (end != std::string::npos) {
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        char piece[512];
        if (left.count() < 0 || !readable(output_, static_cast<int>(left.count()))) {
            throw std::runtime_error("no line within " + std::to_string(ms) + " ms");
        }
        const ssize_t size = read(output_, piece, sizeof piece);
        if (size <= 0) {
            throw std::runtime_error("the process has ended");
        }
        unread_.append(piece, static_cast<std::size_t>(size));
    }
}

std::optional<std::string> ChildProcess::ending() {
    int status = 0;
    if (!ending_ && waitpid(pid_, &status, WNOHANG) == pid_) {
        ending_ = describe(status);
    }
    return ending_;
}

std::string credentialFromEnvironment() {
    const char* credential = std::getenv("TAV_CREDENTIAL");
    if (credential == nullptr || *credential == '\0') {
        throw std::runtime_error("TAV_CREDENTIAL is not set");
    }
    return credential;
}

std::string siblingProgram(const std::string& name) {
    char self[4096];
    const ssize_t size = readlink("/proc/self/exe", self, sizeof self);
    must(static_cast<int>(size), "readlink");
    const std::string path(self, static_cast<std::size_t>(size));
    return path.substr(0, path.rfind('/') + 1) + name;
}

void tellParent(const std::string& line) {
    const std::string whole = line + "\n";
    must(static_cast<int>(write(STDOUT_FILENO, whole.data(), whole.size())), "write");
}

void waitForEndOfInput() {
    char ignored[512];
    while (read(STDIN_FILENO, ignored, sizeof ignored) > 0) {
    }
}
