#ifndef TAVCTL_PCAP_H
#define TAVCTL_PCAP_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "lookahead.h"

namespace tavctl {

// A TCP segment in a capture. Its addresses have the form "address:port".
struct Segment {
    std::string from;
    std::string to;
    uint32_t sequence = 0;
    bool syn = false;
    bool ack = false;
    std::size_t length = 0;    // as it was sent
    std::string_view payload;  // as far as it was captured
    bool isFragment = false;   // of an IP packet, and left out
    uint64_t packet = 0;
    double ms = 0;  // since the first packet
};

// Hands on all segments in a file of tcpdump's. Returns why the file ends too early, or nothing.
// Throws a Failure if it cannot be read.
std::string readPcap(Lookahead& input, const std::function<void(const Segment&)>& take);

// Whether a file that begins like this is one for readPcap().
bool isPcap(std::string_view begin);

}  // namespace tavctl

#endif
