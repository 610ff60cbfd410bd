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

// libthrift's servers.
enum class Kind { Simple, Threaded, ThreadPool, Nonblocking };

const char* nameOf(Kind kind);

// A server of one kind on the loopback address, on a port that the system chooses. It
// serves while the object exists. The nonblocking server is framed, the others buffered.
class Server {
public:
    // Ready when the constructor returns.
    Server(Kind kind, const std::string& encoding, const ProcessorPtr& processor);

    // Closes open connections and waits for the end of the server.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // A new connection, closed when the last pointer to it is destroyed.
    ProtocolPtr connect() const;

private:
    Kind kind_;
    std::string encoding_;
    int port_ = 0;
    std::shared_ptr<apache::thrift::concurrency::ThreadManager> workers_;  // if the kind uses them
    std::shared_ptr<apache::thrift::server::TServer> server_;
    std::thread thread_;
};

#endif
