#ifndef TESTS_PROOF_HOST_FAULTS_H
#define TESTS_PROOF_HOST_FAULTS_H

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "../Side.h"

// In a program that links this, system calls fail on request, for all of its libraries.
namespace proof::faults {

// Those that Host makes.
enum Function {
    kSocket,
    kConnect,
    kBind,
    kListen,
    kAccept,
    kGetsockname,
    kGetpeername,
    kGetsockopt,
    kSetsockopt,
    kPoll,
    kEventfd,
    kRead,
    kWrite,
    kRecv,
    kSend,
    kShutdown,
    kClose,
    kFcntl,
    kOpen,
    kFlock,
    kLstat,
    kUnlink,
    kChmod,
    kGetaddrinfo,
    kGetnameinfo,
    kPthreadCreate,
    kFunctions
};

struct Manual {
    const char* name;
    std::vector<int> errors;  // that its manual lists; kShort for one byte instead of all
};
constexpr int kShort = 0;

const std::array<Manual, kFunctions>& manuals();
std::string nameOf(Function function, int error);

struct Fault {
    Function function = kFunctions;
    Side side = Side::any;
    std::size_t number = 0;  // of the first call that fails, from 1 on
    std::size_t calls = 0;   // how many fail
    int error = 0;
};

// From here on, calls are counted, and may fail.
void arm(const Fault& fault);
// From here on, calls neither fail nor are counted.
void disarm();
// Whether a call has failed since arm().
bool fired();
// The number of calls between arm() and disarm().
std::size_t count(Function function, Side side);

}  // namespace proof::faults

#endif
