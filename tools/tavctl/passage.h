#ifndef TAVCTL_PASSAGE_H
#define TAVCTL_PASSAGE_H

#include <TavIDL/host/Connection.h>
#include <thrift/transport/TTransportException.h>
#include <thrift/transport/TVirtualTransport.h>

#include <memory>
#include <string>
#include <utility>

namespace tavctl {

using ConnectionPointer = std::shared_ptr<TavIDL::Connection>;

// One direction of a connection. Bytes that were read are passed on when the reader asks for more.
// By then every message that they complete has been printed, so a request is always printed before
// its reply. This holds nothing back: a reader that waits for the rest of a message asks for more.
//
// If `holds` is set, only pass() passes bytes on, so that whole messages can be replaced.
class Passage : public apache::thrift::transport::TVirtualTransport<Passage> {
public:
    Passage(ConnectionPointer from, ConnectionPointer to, bool holds)
        : from_(std::move(from)), to_(std::move(to)), holds_(holds) {}

    uint32_t read(uint8_t* bytes, uint32_t count) {
        if (!holds_) {
            passAll();
        }
        uint32_t got = 0;
        try {
            got = from_->read(bytes, count);
        } catch (const TTransportException&) {
            disconnect();
        }
        waiting_.append(reinterpret_cast<const char*>(bytes), got);
        if (got == 0) {
            passAll();
            to_->closeOutput();  // nothing more comes this way, but answers may
        }
        return got;
    }

    // Passes on what came before byte `end` of the stream, or `instead` if it is not empty.
    void pass(uint64_t end, const std::string& instead = "") {
        const std::string came = waiting_.substr(0, static_cast<std::size_t>(end - passed_));
        const std::string& bytes = instead.empty() ? came : instead;
        waiting_.erase(0, came.size());
        passed_ = end;
        try {
            to_->write(reinterpret_cast<const uint8_t*>(bytes.data()),
                       static_cast<uint32_t>(bytes.size()));
        } catch (const TTransportException&) {
            disconnect();
        }
    }

    void release() { holds_ = false; }

private:
    using TTransportException = apache::thrift::transport::TTransportException;

    void passAll() { pass(passed_ + waiting_.size()); }

    // One side is gone, so the connection ends.
    void disconnect() {
        from_->close();
        to_->close();
    }

    const ConnectionPointer from_;
    const ConnectionPointer to_;
    bool holds_;
    std::string waiting_;
    uint64_t passed_ = 0;
};

}  // namespace tavctl

#endif
