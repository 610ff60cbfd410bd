// Requests TLS, and prints why it is not available.

#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>

#include <iostream>
#include <stdexcept>

int main() {
    TavIDL::Settings settings;
    settings.tls.enabled = true;
    settings.tls.certificate = "a certificate";
    settings.tls.key = "its key";
    try {
        const TavIDL::RemoteBroker broker("127.0.0.1:1", settings);
    } catch (const std::invalid_argument& failure) {
        std::cout << "client: " << failure.what() << '\n';
    }
    try {
        const TavIDL::Server server(
            "127.0.0.1:0", [](const std::shared_ptr<TavIDL::Connection>&) {}, settings);
    } catch (const std::invalid_argument& failure) {
        std::cout << "server: " << failure.what() << '\n';
    }
}
