#include "conversations.h"

#include <thrift/transport/TBufferTransports.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <utility>
#include <vector>

#include "decoder.h"
#include "message.h"
#include "pcap.h"
#include "print.h"

namespace tavctl {

namespace {

constexpr std::size_t kByteLimit = 64 << 20;
constexpr std::size_t kConversationLimit = 10000;
constexpr std::size_t kFirstBytes = 16;
constexpr std::size_t kPerSegment = 100;  // bytes that a segment takes in addition to its own

Failure tooMuch(const std::string& limit) {
    return {Exit::Usage, "the capture has more than " + limit,
            "take a part of it, with tcpdump -r FILE -w PART port NUMBER"};
}

// Decides by a flow's first bytes whether to keep it.
using IsOurs = std::function<bool(const std::string&)>;

// When bytes of a flow were complete.
struct Mark {
    uint64_t packet = std::numeric_limits<uint64_t>::max();
    double ms = 0;
};

// One direction of a connection, reassembled from its segments.
struct Flow {
    std::string address;                // of the sender
    std::string bytes;                  // up to the first one that is missing
    std::map<std::size_t, Mark> marks;  // by the end of the bytes
    bool begun = false;
    uint32_t first = 0;  // the sequence number of the first byte
    int64_t end = 0;     // of all that was sent: past `bytes` if some are missing
    std::map<int64_t, std::string> waiting;  // parts after missing bytes
    std::size_t memory = 0;

    void add(const Segment& segment, const IsOurs& isOurs) {
        // Sequence numbers wrap around: this takes the position closest to the last byte.
        const auto expected = first + static_cast<uint32_t>(end);
        int64_t begin = end + static_cast<int32_t>(segment.sequence - expected);
        end = std::max(end, begin + static_cast<int64_t>(segment.length));
        std::string_view part = segment.payload;
        const auto there = static_cast<int64_t>(bytes.size());
        // Sent again, or from before the capture.
        const auto size = static_cast<int64_t>(part.size());
        const int64_t old = std::clamp<int64_t>(there - begin, 0, size);
        part.remove_prefix(static_cast<std::size_t>(old));
        begin += old;
        if (part.empty()) {
            return;
        }
        std::string& place = waiting[begin];
        if (part.size() > place.size()) {
            memory += part.size() - place.size() + kPerSegment;
            place = part;
        }
        // Appends what is no longer preceded by missing bytes.
        for (auto next = waiting.begin();
             next != waiting.end() && next->first <= static_cast<int64_t>(bytes.size());
             next = waiting.erase(next)) {
            const auto known = bytes.size() - static_cast<std::size_t>(next->first);
            if (known < next->second.size()) {
                bytes.append(next->second, known);
                marks[bytes.size()] = {segment.packet, segment.ms};
            }
        }
        if (bytes.size() >= kFirstBytes && !isOurs(bytes)) {  // only these are kept
            memory = kFirstBytes;
            bytes.resize(kFirstBytes);
            bytes.shrink_to_fit();
            waiting.clear();
        }
    }
};

struct Conversation {
    int number;
    Flow flows[2];
    const Flow* client = nullptr;  // if its opening is in the capture

    Flow& from(const std::string& address) { return flows[flows[0].address == address ? 0 : 1]; }
    Flow& other(const Flow& flow) { return flows[&flow == &flows[0] ? 1 : 0]; }
};

// All conversations of a capture.
class Conversations {
public:
    explicit Conversations(const IsOurs& isOurs) : isOurs_(isOurs) {}

    std::list<Conversation> all;
    int fragments = 0;

    void add(const Segment& segment) {
        if (segment.isFragment) {
            ++fragments;
            return;
        }
        Conversation*& conversation = open_[std::minmax(segment.from, segment.to)];
        const bool opens = segment.syn && !segment.ack;
        if (conversation == nullptr ||
            (opens && conversation->from(segment.from).first != segment.sequence + 1)) {
            if (all.size() == kConversationLimit) {
                throw tooMuch(std::to_string(kConversationLimit) + " conversations");
            }
            conversation = &all.emplace_back();
            conversation->number = static_cast<int>(all.size());
            conversation->flows[0].address = segment.from;
            conversation->flows[1].address = segment.to;
        }
        Flow& flow = conversation->from(segment.from);
        if (segment.syn) {
            conversation->client = opens ? &flow : &conversation->other(flow);
        }
        if (!flow.begun) {
            flow.begun = true;
            flow.first = segment.sequence + (segment.syn ? 1 : 0);
        }
        if (segment.length > 0) {
            memory_ -= flow.memory;
            flow.add(segment, isOurs_);
            memory_ += flow.memory;
        }
        if (memory_ > kByteLimit) {
            throw tooMuch(std::to_string(kByteLimit >> 20) + " MiB of messages");
        }
    }

private:
    const IsOurs& isOurs_;
    std::map<std::pair<std::string, std::string>, Conversation*> open_;
    std::size_t memory_ = 0;
};

// Decodes one direction of a connection.
class Side {
public:
    Side(Conversation& conversation, Flow& flow, const Settings& settings)
        : conversation_(conversation),
          flow_(flow),
          reader_(std::make_shared<apache::thrift::transport::TMemoryBuffer>(
                      reinterpret_cast<uint8_t*>(flow.bytes.data()),
                      static_cast<uint32_t>(flow.bytes.size())),
                  settings) {}

    // Goes on to the next message. Returns false if there is none.
    bool next() {
        const auto there = static_cast<int64_t>(flow_.bytes.size());
        if (ended_) {
            return false;
        }
        if (!reader_.next(message_)) {
            message_ = {{"offset", there}, {"size", 0}};
            ended_ = true;
        }
        ended_ = ended_ || message_.contains("broken");
        if (ended_ && flow_.end > there) {
            const int64_t end = flow_.waiting.empty() ? flow_.end : flow_.waiting.begin()->first;
            message_["broken"] = {
                {"offset", there},
                {"reason", "the capture lacks " + std::to_string(end - there) +
                               " bytes here, and what follows them cannot be decoded"}};
        }
        return message_.contains("operation") || message_.contains("broken");
    }

    // The mark of the packet that completes the message.
    Mark mark() const {
        const auto mark = flow_.marks.lower_bound(message_["offset"].get<std::size_t>() +
                                                  message_["size"].get<std::size_t>());
        return mark == flow_.marks.end() ? Mark() : mark->second;
    }

    void take(const TakeMessage& to) {
        Flow& other = conversation_.other(flow_);
        if (conversation_.client == nullptr) {
            const std::string type = message_.value("type", "");
            conversation_.client = type == "reply" || type == "exception" ? &other : &flow_;
            note("connection " + std::to_string(conversation_.number) +
                 " is older than the capture, whose first bytes of it are taken for the start of a "
                 "message");
        }
        const bool isClient = conversation_.client == &flow_;
        to({{"connection", conversation_.number},
            {"from", isClient ? "client" : "target"},
            {"client", (isClient ? flow_ : other).address},
            {"target", (isClient ? other : flow_).address},
            {"ms", std::round(mark().ms * 1000) / 1000}},
           message_, reader_.mismatch());
    }

private:
    Conversation& conversation_;
    Flow& flow_;
    MessageReader reader_;
    Json message_;
    bool ended_ = false;
};

}  // namespace

void decodePcap(Lookahead& input, const Settings& settings, const TakeMessage& take) {
    const std::string wire = settings.protocol + " over " + settings.transport;
    const IsOurs isOurs = [&](const std::string& begin) { return guess(begin) == wire; };
    Conversations conversations(isOurs);
    const std::string cut =
        readPcap(input, [&](const Segment& segment) { conversations.add(segment); });
    std::list<Side> sides;
    // Sorted by the packet that completes their next message, and then by their number.
    std::map<std::pair<uint64_t, std::size_t>, Side*> waiting;
    int foreign = 0;
    std::string looks;
    for (Conversation& conversation : conversations.all) {
        for (Flow& flow : conversation.flows) {
            if (!flow.bytes.empty() && !isOurs(flow.bytes)) {
                ++foreign;
                looks = looks.empty() ? guess(flow.bytes) : looks;
                continue;
            }
            Side& side = sides.emplace_back(conversation, flow, settings);
            if (side.next()) {
                waiting[{side.mark().packet, sides.size()}] = &side;
            }
        }
    }
    const std::string hint = looks.empty() ? "" : "; some look like " + looks;
    if (foreign > 0 && waiting.empty()) {
        throw Failure(Exit::Broken, "no TCP connection in it carries " + wire + hint,
                      "check --protocol and --transport");
    }
    if (foreign > 0) {
        note(std::to_string(foreign) +
             " directions of TCP connections are left out: they do not carry " + wire + hint);
    }
    if (conversations.fragments > 0) {
        note(std::to_string(conversations.fragments) + " fragments of IP packets are left out");
    }
    while (!waiting.empty()) {
        const auto [key, side] = *waiting.begin();
        waiting.erase(waiting.begin());
        side->take(take);
        if (side->next()) {
            waiting[{side->mark().packet, key.second}] = side;
        }
    }
    if (!cut.empty()) {
        throw Failure(Exit::Broken, "the capture breaks off: " + cut);
    }
}

}  // namespace tavctl
