#include "pcap.h"

#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <utility>

#include "failure.h"

namespace tavctl {

namespace {

using Bytes = std::string_view;

// 0 behind the end.
uint32_t number(Bytes bytes, std::size_t at, std::size_t size) {
    uint32_t value = 0;
    for (const char byte : bytes.substr(std::min(at, bytes.size()), size)) {
        value = value << 8 | static_cast<uint8_t>(byte);
    }
    return value;
}

std::string addressOf(int family, Bytes address, uint32_t port) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, address.data(), text, sizeof text);
    return (family == AF_INET6 ? "[" + std::string(text) + "]" : text) + ":" + std::to_string(port);
}

// The IP packet inside a packet of the link, or nothing.
Bytes ipPacket(int link, Bytes packet) {
    std::size_t type = 12;  // where its type is: in a packet of Ethernet
    switch (link) {
        case DLT_RAW:
        case DLT_IPV4:
        case DLT_IPV6:
            return packet;
        case DLT_NULL:
        case DLT_LOOP:
            return packet.substr(std::min<std::size_t>(4, packet.size()));
        case DLT_LINUX_SLL:
            type = 14;
            break;
        case DLT_LINUX_SLL2:
            type = 0;
            break;
        default:
            break;
    }
    std::size_t begin = link == DLT_LINUX_SLL2 ? 20 : type + 2;
    while (number(packet, type, 2) == 0x8100 || number(packet, type, 2) == 0x88A8) {
        type = begin + 2;  // a VLAN tag comes first
        begin += 4;
    }
    const bool isIp = number(packet, type, 2) == 0x0800 || number(packet, type, 2) == 0x86DD;
    return isIp ? packet.substr(std::min(begin, packet.size())) : Bytes();
}

// Reads the headers. Returns false if it is not a whole TCP segment.
bool parse(Bytes ip, std::size_t sentSize, Segment& segment) {
    const uint32_t version = number(ip, 0, 1) >> 4;
    const bool v6 = version == 6;
    if (!v6 && version != 4) {
        return false;
    }
    std::size_t begin = v6 ? 40 : std::size_t{4} * (number(ip, 0, 1) & 0xF);
    uint32_t protocol = number(ip, v6 ? 6 : 9, 1);
    const std::size_t said = v6 ? number(ip, 4, 2) + 40 : number(ip, 2, 2);
    const std::size_t whole = said <= (v6 ? 40 : 0) ? sentSize : said;  // offloading omits it
    // Extension headers for hops, routing and destinations.
    while (v6 && (protocol == 0 || protocol == 43 || protocol == 60) && ip.size() >= begin + 8) {
        protocol = number(ip, begin, 1);
        begin += std::size_t{8} * (number(ip, begin + 1, 1) + 1);
    }
    const bool fragment = !v6 && (number(ip, 6, 2) & 0x3FFF) != 0;
    segment.isFragment = fragment || (v6 && protocol == 44);
    if (segment.isFragment || protocol != IPPROTO_TCP || ip.size() < begin + 20) {
        return false;
    }
    const Bytes tcp = ip.substr(begin);
    const std::size_t data = begin + std::size_t{4} * (number(tcp, 12, 1) >> 4);
    if (data < begin + 20 || data > whole) {
        return false;
    }
    const int family = v6 ? AF_INET6 : AF_INET;
    segment.from = addressOf(family, ip.substr(v6 ? 8 : 12), number(tcp, 0, 2));
    segment.to = addressOf(family, ip.substr(v6 ? 24 : 16), number(tcp, 2, 2));
    segment.sequence = number(tcp, 4, 4);
    segment.syn = (number(tcp, 13, 1) & 2) != 0;
    segment.ack = (number(tcp, 13, 1) & 16) != 0;
    segment.length = whole - data;
    segment.payload = ip.substr(std::min(data, ip.size())).substr(0, segment.length);
    return true;
}

ssize_t readInput(void* input, char* bytes, std::size_t count) try {
    return static_cast<ssize_t>(static_cast<Lookahead*>(input)->read(
        reinterpret_cast<uint8_t*>(bytes), static_cast<uint32_t>(count)));
} catch (const std::exception&) {
    return -1;
}

}  // namespace

std::string readPcap(Lookahead& input, const std::function<void(const Segment&)>& take) {
    char error[PCAP_ERRBUF_SIZE] = "";
    std::FILE* stream = fopencookie(&input, "r", {readInput, nullptr, nullptr, nullptr});
    pcap_t* opened = stream == nullptr ? nullptr : pcap_fopen_offline(stream, error);
    if (opened == nullptr) {
        if (stream != nullptr) {
            (void)std::fclose(stream);
        }
        throw Failure(Exit::Broken,
                      std::string("this is not a capture that can be read: ") + error);
    }
    const std::unique_ptr<pcap_t, decltype(&pcap_close)> file(opened, pcap_close);
    const int link = pcap_datalink(opened);
    const int known[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                         DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};
    if (std::find(std::begin(known), std::end(known), link) == std::end(known)) {
        const char* name = pcap_datalink_val_to_name(link);
        throw Failure(Exit::Usage,
                      std::string("packets of link type ") +
                          (name == nullptr ? std::to_string(link) : name) + " cannot be read",
                      "capture on another interface, tcpdump -i any for instance");
    }
    pcap_pkthdr* head = nullptr;
    const u_char* bytes = nullptr;
    double first = 0;
    int status = 0;
    for (uint64_t packet = 1; (status = pcap_next_ex(opened, &head, &bytes)) == 1; ++packet) {
        const double ms = static_cast<double>(head->ts.tv_sec) * 1e3 +
                          static_cast<double>(head->ts.tv_usec) / 1e3;
        first = packet == 1 ? ms : first;
        const Bytes whole(reinterpret_cast<const char*>(bytes), head->caplen);
        const Bytes ip = ipPacket(link, whole);
        Segment segment;
        segment.packet = packet;
        segment.ms = ms - first;
        if (parse(ip, head->len - (whole.size() - ip.size()), segment) || segment.isFragment) {
            take(segment);
        }
    }
    return status == PCAP_ERROR ? pcap_geterr(opened) : "";
}

bool isPcap(std::string_view begin) {
    constexpr const char* kMagics[] = {"\xa1\xb2\xc3\xd4", "\xd4\xc3\xb2\xa1", "\xa1\xb2\x3c\x4d",
                                       "\x4d\x3c\xb2\xa1", "\x0a\x0d\x0d\x0a"};
    return std::find(std::begin(kMagics), std::end(kMagics), begin.substr(0, 4)) !=
           std::end(kMagics);
}

}  // namespace tavctl
