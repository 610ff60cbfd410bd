#ifndef TAVIDL_TESTS_SERVERS_SERVER_H
#define TAVIDL_TESTS_SERVERS_SERVER_H

#include <memory>
#include <ostream>
#include <string>
#include <thread>

#include "../interop/roles.h"

namespace apache::thrift::concurrency {
class ThreadManager;
}
namespace apache::thrift::server {
class TServer;
}

// The servers that libthrift brings.
enum class Kind { Simple, Threaded, ThreadPool, Nonblocking };

const char* nameOf(Kind kind);

// A server of one kind on loopback, on a port of the system's choice, that serves
// while the object lives. The nonblocking server speaks framed, the others buffered.
class Server {
public:
    // Serves once the constructor has returned.
    Server(Kind kind, const std::string& encoding, const ProcessorPtr& processor);

    // Closes what connections are still open, and waits for the server's end.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // A new connection; it is closed with the last pointer to it.
    ProtocolPtr connect() const;

private:
    Kind kind_;
    std::string encoding_;
    int port_ = 0;
    std::shared_ptr<apache::thrift::concurrency::ThreadManager> workers_;  // if it lends them
    std::shared_ptr<apache::thrift::server::TServer> server_;
    std::thread thread_;
};

#endif
