#ifndef BENCH_PEERS_PEER_H
#define BENCH_PEERS_PEER_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// TavBroker.Execute through alternative RPC libraries. Each has its own program, so that its
// processor time, its memory and the libraries that it loads can be measured separately: main.cpp
// and one source file that defines serve() and connect().
namespace peers {

using Strings = std::array<std::string_view, 5>;

struct Arguments {
    std::int32_t caller;
    Strings strings;
};

// The strings have 8 bytes: std::string does not allocate memory for them.
constexpr Arguments kArguments = {4711,
                                  {"command0", "first--1", "second-2", "third--3", "fourth-4"}};
constexpr std::string_view kAnswer = "answer-5";

// Called by every server. Throws std::invalid_argument unless the arguments are kArguments.
std::string_view execute(std::int32_t caller, const Strings& strings);

// Prints the server's address: `address`, with `port` instead of a port 0.
void announce(const std::string& address, unsigned port = 0);

// Announces an address and serves there until the process is killed.
void serve(const std::string& address);

// Makes a call over its own connection to an announced address, in one thread.
using Call = std::function<std::string(const Arguments& arguments)>;
Call connect(const std::string& address);

}  // namespace peers

#endif
