// Serves and makes calls, for system_calls.sh, which counts what they cost.
//
//   host_calls serve ADDRESS LAYER          prints where it listens; ends with its input
//   host_calls call ADDRESS LAYER COUNT     one call after the other
//   host_calls batch ADDRESS LAYER COUNT    so many batches of 16 calls
//
// LAYER is "framed", "buffered" or "tls". With TLS the server also prints its certificate's file,
// which a client gets as its last argument.

#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>

#include <iostream>
#include <memory>
#include <string>

#include "Certificates.h"
#include "Emp.h"
#include "Support.h"

int main(int argc, char** argv) {
    const std::string role = argc > 3 ? argv[1] : "";
    const std::string address = argc > 3 ? argv[2] : "";
    const std::string layer = argc > 3 ? argv[3] : "";
    TavIDL::Settings settings;
    settings.framed = layer == "framed";
    settings.tls.enabled = layer == "tls";
    if (role == "serve") {
        // A server must not be busy while it waits for clients, nor while it has as many as it may.
        settings.maxClients = settings.framed ? 1 : settings.maxClients;
        const Directory directory;
        if (settings.tls.enabled) {
            const Certificate own = makeCertificate(directory, "server", "IP:127.0.0.1", nullptr);
            settings.tls.certificate = own.file;
            settings.tls.key = own.keyFile;
        }
        const TavIDL::Server server(address, std::make_shared<Emp>(), settings);
        std::cout << server.address() << " " << settings.tls.certificate << std::endl;
        std::cin.get();
        return 0;
    }
    if (argc < 5) {
        return 2;
    }
    settings.tls.trusted = argc > 5 ? argv[5] : "";
    // Nor after a connection has ended.
    TavIDL::Connection::open(address, settings)->close();
    TavIDL::RemoteEmp emp(address, settings);
    for (int left = std::stoi(argv[4]); left > 0; --left) {
        if (role == "call") {
            execute(emp, "read");
        } else {
            TavIDL::EmpBatch batch(emp);
            for (int i = 0; i < 16; ++i) {
                batch.Execute(7, "read", "", "", "", "");
            }
            batch.run();
        }
    }
}
