// The programs of the front page, run against each other.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include "processes.h"

namespace {

bool listens(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return connected;
}

TEST(ReadmeTest, TheClientOpensAndClosesAnEmpAndIsRefusedAnother) {
    const ReservedPort port;
    ChildProcess server({SERVER, std::to_string(port.number())});
    while (!listens(port.number()) && !server.ending()) {
    }

    ChildProcess client({CLIENT, std::to_string(port.number())});

    EXPECT_EQ(client.readLine(20000), "emp-1 serves on port 4001");
    EXPECT_EQ(client.readLine(20000), "closed: 1");
    EXPECT_EQ(client.readLine(20000), "there is no EMP 'barometer'");
    kill(server.pid(), SIGKILL);  // It knows no end of its own.
}

}  // namespace
