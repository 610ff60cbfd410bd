#include "conversations.h"

#include <thrift/transport/TBufferTransports.h>

#include <cmath>
#include <limits>

#include "message.h"
#include "pcap.h"
#include "print.h"

namespace tavctl {

namespace {

// Decodes one direction of a connection.
class Side {
public:
    Side(int number, Conversation& conversation, Flow& flow, const Settings& settings)
        : number_(number),
          conversation_(conversation),
          flow_(flow),
          reader_(std::make_shared<apache::thrift::transport::TMemoryBuffer>(
                      reinterpret_cast<uint8_t*>(flow.bytes.data()),
                      static_cast<uint32_t>(flow.bytes.size())),
                  settings) {}

    // Goes on to the next message. Returns false if there is none.
    bool next() {
        const std::size_t there = flow_.bytes.size();
        if (ended_) {
            return false;
        }
        if (!reader_.next(message_)) {
            message_ = {{"offset", there}, {"size", 0}};
            ended_ = true;
        }
        ended_ = ended_ || message_.contains("broken");
        if (ended_ && flow_.end > there) {
            const uint64_t end = flow_.waiting.empty() ? flow_.end : flow_.waiting.begin()->first;
            message_["broken"] = {
                {"offset", there},
                {"reason", "the capture lacks " + std::to_string(end - there) +
                               " bytes here, and what follows them cannot be decoded"}};
        }
        return message_.contains("operation") || message_.contains("broken");
    }

    // The mark of the packet that completes the message.
    Flow::Mark mark() const {
        const std::size_t end =
            message_["offset"].get<std::size_t>() + message_["size"].get<std::size_t>();
        for (; mark_ + 1 < flow_.marks.size() && flow_.marks[mark_].end < end; ++mark_) {
        }
        return flow_.marks.empty() ? Flow::Mark{0, std::numeric_limits<uint64_t>::max(), 0}
                                   : flow_.marks[mark_];
    }

    void take(const TakeMessage& to) {
        Flow& other = conversation_.flows[&flow_ == &conversation_.flows[0] ? 1 : 0];
        if (conversation_.client == nullptr) {
            const std::string type = message_.value("type", "");
            conversation_.client = type == "reply" || type == "exception" ? &other : &flow_;
            note("connection " + std::to_string(number_) +
                 " is older than the capture, whose first bytes of it are taken for the start of a "
                 "message");
        }
        const bool isClient = conversation_.client == &flow_;
        to({{"connection", number_},
            {"from", isClient ? "client" : "target"},
            {"client", (isClient ? flow_ : other).address},
            {"target", (isClient ? other : flow_).address},
            {"ms", std::round(mark().ms * 1000) / 1000}},
           message_, reader_.mismatch());
    }

private:
    const int number_;
    Conversation& conversation_;
    Flow& flow_;
    MessageReader reader_;
    Json message_;
    mutable std::size_t mark_ = 0;
    bool ended_ = false;
};

}  // namespace

void decodePcap(Lookahead& input, const Settings& settings, const TakeMessage& take) {
    const std::string wire = settings.protocol + " over " + settings.transport;
    PcapFile file = readPcap(input, [&](const std::string& begin) { return guess(begin) == wire; });
    std::list<Side> sides;
    // Sorted by the packet that completes their next message, and then by their number.
    std::map<std::pair<uint64_t, std::size_t>, Side*> waiting;
    int number = 0;
    int foreign = 0;
    std::string looks;
    for (Conversation& conversation : file.conversations) {
        ++number;
        for (Flow& flow : conversation.flows) {
            if (flow.foreign) {
                ++foreign;
                looks = looks.empty() ? guess(flow.bytes) : looks;
                continue;
            }
            Side& side = sides.emplace_back(number, conversation, flow, settings);
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
    if (file.fragments > 0) {
        note(std::to_string(file.fragments) + " fragments of IP packets are left out");
    }
    while (!waiting.empty()) {
        const auto [key, side] = *waiting.begin();
        waiting.erase(waiting.begin());
        side->take(take);
        if (side->next()) {
            waiting[{side->mark().packet, key.second}] = side;
        }
    }
    if (!file.broken.empty()) {
        throw Failure(Exit::Broken, "the capture breaks off: " + file.broken);
    }
}

}  // namespace tavctl
