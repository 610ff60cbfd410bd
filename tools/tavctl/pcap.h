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

// One direction of a TCP connection, reassembled from its segments.
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

    // For reassembly.
    bool begun = false;
    bool checked = false;  // that it is not foreign
    uint32_t first = 0;    // the sequence number of the first byte
    uint64_t end = 0;      // of all that was sent: past `bytes` if some are missing
    std::map<uint64_t, std::string> waiting;  // segments after missing bytes
};

struct Conversation {
    Flow flows[2];
    const Flow* client = nullptr;  // if its opening is in the capture
};

// What tcpdump wrote.
struct PcapFile {
    std::list<Conversation> conversations;
    uint64_t fragments = 0;  // IP fragments, which are left out
    std::string broken;      // why the file ends too early, or empty
};

// `isOurs` decides by a flow's first bytes whether to keep it. Throws a Failure if the input is
// not a capture, or needs more memory than is allowed.
PcapFile readPcap(Lookahead& input, const std::function<bool(const std::string&)>& isOurs);

// Whether a file that begins like this is one for readPcap().
bool isPcap(std::string_view begin);

}  // namespace tavctl

#endif
