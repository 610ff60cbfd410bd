#ifndef TESTS_HOST_CALLER_H
#define TESTS_HOST_CALLER_H

#include <TavIDL/TavIDL.h>
#include <TavIDL/host/Settings.h>

#include <cstddef>
#include <memory>
#include <string>

// A client that a test controls byte by byte, without time-outs.
class Caller {
public:
    // Connects to a server's address.
    explicit Caller(const std::string& address);
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    int descriptor() const { return descriptor_; }

    // Sends everything, or as much as the server accepts before it closes the connection.
    void send(const std::string& bytes);

    // The next bytes; fewer at the end of the connection.
    std::string receive(std::size_t count);

    // Waits until the server has closed the connection, and drops what it sends until then.
    void waitForEnd();

    // Whether the server closes the connection, or sends something, within this time. It only sets
    // the pace of a test's bytes: no result depends on it.
    bool hearsWithin(int ms);

    // The result of the oldest Execute that has no answer yet. Throws what recv_Execute throws.
    std::string result(const TavIDL::Settings& settings = TavIDL::Settings());

    void closeOutput();
    void close();
    // Closes so that the server gets ECONNRESET.
    void reset();

private:
    int descriptor_;
};

// What a client sends for Execute(7, cmd, param1, "", "", "").
std::string requestFor(const std::string& cmd, const std::string& param1 = "",
                       const TavIDL::Settings& settings = TavIDL::Settings());

// For ExecuteWithParamList(7, "read", list).
std::string requestFor(const ParamList& list, const TavIDL::Settings& settings);

// For an event of type 1, with another operation name, for a multiplexed service.
std::string eventFor(const std::string& operation, const TavIDL::Settings& settings);

#endif
