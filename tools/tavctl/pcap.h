#ifndef TAVCTL_PCAP_H
#define TAVCTL_PCAP_H

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lookahead.h"

namespace tavctl {

// One direction of a TCP connection, put together from its segments.
struct Flow {
    // When the bytes up to `end` were complete.
    struct Mark {
        std::size_t end;
        uint64_t packet;
        double ms;  // since the first packet
    };

    std::string address;  // of the sender
    std::string bytes;    // up to the first one that is missing
    std::vector<Mark> marks;
    bool foreign = false;  // another protocol; only the first bytes are kept

    // Of the segments.
    bool begun = false;
    bool checked = false;  // that it is not foreign
    uint32_t first = 0;    // the sequence number of the first byte
    uint64_t end = 0;      // of all that was sent: behind `bytes` if some are missing
    std::map<uint64_t, std::string> waiting;  // for segments before them
};

struct Conversation {
    Flow flows[2];
    const Flow* client = nullptr;  // if its opening is in the capture
};

// What tcpdump wrote.
struct PcapFile {
    std::list<Conversation> conversations;
    uint64_t fragments = 0;  // of IP packets, which are left out
    std::string broken;      // why the file ends too early, or empty
};

// `isOurs` says whether the first bytes of a flow are worth keeping. Throws a Failure if it is
// not a capture at all, or has more than fits into the memory that is allowed for it.
PcapFile readPcap(Lookahead& input, const std::function<bool(const std::string&)>& isOurs);

// Whether a file that begins like this is for readPcap().
bool isPcap(std::string_view begin);

}  // namespace tavctl

#endif
