#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "../interop/exchange.h"
#include "messages.h"

namespace {

// One call of each operation, and each failure. Both messages of each are compared.
struct Call {
    const char* name;
    const char* service;
    const char* operation;
    const char* server;
    const char* word;
};

constexpr Call kCalls[] = {
    {"OpenEmp", "TavBroker", "OpenEmp", "TavBroker", "camera"},
    {"TavBroker Execute", "TavBroker", "Execute", "TavBroker", "camera"},
    {"CloseEmp", "TavBroker", "CloseEmp", "TavBroker", "camera"},
    {"Open", "TavEmp", "Open", "TavEmp", "camera"},
    {"Close", "TavEmp", "Close", "TavEmp", "camera"},
    {"TavEmp Execute", "TavEmp", "Execute", "TavEmp", "camera"},
    {"ExecuteWithParamList", "TavEmp", "ExecuteWithParamList", "TavEmp", "camera"},
    {"Callback", "TavEmpEvent", "Callback", "TavEmpEvent", "camera"},
    {"refused OpenEmp", "TavBroker", "OpenEmp", "TavBroker", "fail"},
    {"unknown OpenEmp", "TavBroker", "OpenEmp", "TavEmp", "camera"},
};

const char* const kEncodings[] = {"binary", "compact", "json"};

// Everything that a library client and a library processor write, by name.
std::map<std::string, std::string> writtenMessages() {
    std::map<std::string, std::string> messages;
    for (const Call& call : kCalls) {
        for (const std::string encoding : kEncodings) {
            Journal journal;
            Exchange exchange(encoding, "memory", makeProcessor<Library>(call.server, journal));
            exchange.call<Library>(call.service, call.operation, call.word);
            const std::string name = call.name;
            messages[name + " request, " + encoding] = exchange.request();
            if (name != "Callback") {
                messages[name + " reply, " + encoding] = exchange.reply();
            }
        }
    }
    return messages;
}

std::string encodingOf(const std::string& name) {
    return name.substr(name.rfind(' ') + 1);
}

// A message in its stored form, to compare, or to copy from a failed test.
std::string kept(const std::map<std::string, std::string>& messages, const std::string& name) {
    const auto message = messages.find(name);
    return message == messages.end() ? "not there: " + name
                                     : asText(encodingOf(name), message->second);
}

void expectAsWritten(const std::map<std::string, std::string>& messages) {
    const auto written = writtenMessages();
    for (const auto& [name, bytes] : messages) {
        EXPECT_EQ(asText(encodingOf(name), bytes), kept(written, name)) << name;
    }
}

TEST(KeptMessages, AreWhatTheLibraryWrites) {
    const auto messages = readMessages(TAVIDL_KEPT_MESSAGES);
    expectAsWritten(messages);
    for (const auto& [name, bytes] : writtenMessages()) {
        EXPECT_NE(kept(messages, name), "not there: " + name)
            << "    " << asText(encodingOf(name), bytes);
    }
}

TEST(KeptMessages, AreReadBackByProcessorsAndClients) {
    const auto messages = readMessages(TAVIDL_KEPT_MESSAGES);
    for (const Operation& operation : kOperations) {
        for (const std::string encoding : kEncodings) {
            const std::string name = operation.name;
            const std::string stem =
                name == "Execute" ? std::string(operation.service) + " Execute" : name;
            const auto request = messages.find(stem + " request, " + encoding);
            ASSERT_NE(request, messages.end()) << stem;
            const auto reply = messages.find(stem + " reply, " + encoding);

            // A processor gets the stored request, a client the stored reply.
            Journal journal;
            const auto processor = makeProcessor<Library>(operation.service, journal);
            Exchange exchange(encoding, "memory", [&](const ProtocolPtr&, const ProtocolPtr& out) {
                const auto in = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
                in->write(reinterpret_cast<const uint8_t*>(request->second.data()),
                          static_cast<uint32_t>(request->second.size()));
                const auto nowhere = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
                processor->process(makeProtocol(encoding, in), makeProtocol(encoding, nowhere),
                                   nullptr);
                if (reply != messages.end()) {
                    out->getTransport()->write(
                        reinterpret_cast<const uint8_t*>(reply->second.data()),
                        static_cast<uint32_t>(reply->second.size()));
                }
            });
            EXPECT_EQ(exchange.call<Library>(operation.service, operation.name, "camera"),
                      operation.result);
            EXPECT_EQ(journal.lines(1), std::vector<std::string>{operation.seen});
        }
    }
}

TEST(WirePage, ShowsMessagesAsTheLibraryWritesThem) {
    const auto messages = readMessages(TAVIDL_WIRE_PAGE);
    expectAsWritten(messages);

    std::set<std::string> shown;
    for (const auto& [name, bytes] : messages) {
        shown.insert(name);
    }
    EXPECT_EQ(shown,
              (std::set<std::string>{
                  "OpenEmp request, binary", "OpenEmp request, compact", "OpenEmp request, json",
                  "OpenEmp reply, binary", "OpenEmp reply, compact", "OpenEmp reply, json",
                  "refused OpenEmp reply, binary", "refused OpenEmp reply, compact",
                  "refused OpenEmp reply, json", "Callback request, binary",
                  "Callback request, compact", "Callback request, json"}));
}

}  // namespace
