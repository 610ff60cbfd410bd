#ifndef EXAMPLES_PROCESSES_H
#define EXAMPLES_PROCESSES_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

// Processes that start each other, and the ports that they are given.

// A port on this machine, chosen by the system and reserved for a server that is started later.
//
// The broker announces it before its server listens, and no other process may get it meanwhile. A
// socket that is bound to it but does not listen reserves it: the system does not choose it again,
// and connections to it are refused. With SO_REUSEADDR on both sockets, which TavIDL::Server sets,
// a server that asks for this very port still gets it, as often as it is started.
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

// A process that lives no longer than this object, nor than the process that holds it: it has to
// end when its standard input does, which happens however its parent ends. (The system can also
// signal the death of a parent, but means the thread that started the child: in a server that
// thread ends with its connection.)
//
// It inherits no other file: the sockets of TavIDL::Host are close-on-exec, as ours are.
class ChildProcess {
public:
    // Starts `command`: a path and its arguments. Throws std::system_error if it cannot.
    explicit ChildProcess(const std::vector<std::string>& command);
    // Ends its input, gives it two seconds, and kills it if it then still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }

    // The next line that it writes to its standard output. Throws std::runtime_error if none
    // has come within `ms` milliseconds, or none will.
    std::string readLine(int ms);

    // How it has ended ("exit status 0", "signal 9"), once it has.
    std::optional<std::string> ending();

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string unread_;
    std::optional<std::string> ending_;
};

// The credential that the processes of one system share. In the environment, since everybody on
// the machine can read a command line. Throws std::runtime_error if TAV_CREDENTIAL is not set.
std::string credentialFromEnvironment();

// A program of this directory of programs: `name` beside the one that runs.
std::string siblingProgram(const std::string& name);

// Tells the parent, in a line on standard output, what it waits for.
void tellParent(const std::string& line);

// Returns when standard input ends: the parent has gone, or wants this process to.
void waitForEndOfInput();

#endif
