#ifndef TESTS_MODULES_MODULE_H
#define TESTS_MODULES_MODULE_H

#include <cstdint>
#include <string>

// What goes over the wire when a client calls Close(1), and what the client gets.
struct Exchange {
    std::string request;
    std::string reply;
    int32_t result;
};

// What a module exports, as `protocolModule`.
struct ProtocolModule {
    Exchange (*exchange)();
    int (*virtualCallsOfARecord)();
    const void* (*typeInformation)();
};

#endif
