#ifndef EXAMPLES_PROCESSES_H
#define EXAMPLES_PROCESSES_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

// Processes that start each other, and their ports.

// A port on this machine, chosen by the system and reserved for a server that is started later.
//
// The broker announces the port before its server listens, and no other process may get it
// meanwhile. A socket that is bound to it but does not listen reserves it: the system does not
// choose it again, and connections to it are refused. With SO_REUSEADDR on both sockets, which
// TavIDL::Server sets, a server can still listen on exactly this port, and be restarted.
class ReservedPort {
public:
    ReservedPort();
    ~ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;

    int number() const { return number_; }

private:
    int socket_;
    int number_;
};

// A process that ends with this object, and also with its parent: it must end at the end of its
// standard input, which happens however the parent ends. (The system can also send a signal when a
// parent dies, but it means the thread that started the child, and in a server that thread ends
// with its connection.)
//
// It inherits no other files: the sockets of TavIDL::Host are close-on-exec, and so are ours.
class ChildProcess {
public:
    // Starts `command`: a path and its arguments. Throws std::system_error if it cannot.
    explicit ChildProcess(const std::vector<std::string>& command);
    // Ends its input, and kills it if it still runs after two seconds.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }

    // The next line of its standard output. Throws std::runtime_error if there is none within `ms`
    // milliseconds, or at the end of the output.
    std::string readLine(int ms);

    // How it has ended ("exit status 0", "signal 9"); empty while it runs.
    std::optional<std::string> ending();

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string unread_;
    std::optional<std::string> ending_;
};

// The credential shared by the processes of one system. It is in the environment, because every
// user of the machine can read command lines. Throws std::runtime_error if TAV_CREDENTIAL is not
// set.
std::string credentialFromEnvironment();

// The path of the program `name` in the directory of the running program.
std::string siblingProgram(const std::string& name);

// Prints the line that the parent waits for to standard output.
void tellParent(const std::string& line);

// Returns at the end of standard input: the parent has ended, or wants this process to end.
void waitForEndOfInput();

#endif
