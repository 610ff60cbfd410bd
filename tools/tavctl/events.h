#ifndef TAVCTL_EVENTS_H
#define TAVCTL_EVENTS_H

#include <memory>

#include "connection.h"

// A callback service that prints each event: for people a line, with --json an object.
std::unique_ptr<Server> serveEvents(const Address& address, const Settings& settings);

#endif
