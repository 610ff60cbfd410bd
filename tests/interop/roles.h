#ifndef TAVIDL_TESTS_INTEROP_ROLES_H
#define TAVIDL_TESTS_INTEROP_ROLES_H

#include <TavIDL/TavIDL.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

// Both ends of every operation, for either implementation of the three services:
// the library, or the classes that the Thrift compiler generates. Handlers log each
// call as a line and callers return each outcome as one, so that a test compares
// texts and a mismatch explains itself.

using ProtocolPtr = std::shared_ptr<apache::thrift::protocol::TProtocol>;
using TransportPtr = std::shared_ptr<apache::thrift::transport::TTransport>;
using ProcessorPtr = std::shared_ptr<apache::thrift::TProcessor>;

// The library's classes.
struct Library {
    using ConnectionInfo = ::ConnectionInfo;
    using ParamList = ::ParamList;
    using BrokerIf = ::TavBrokerIf;
    using BrokerClient = ::TavBrokerClient;
    using BrokerProcessor = ::TavBrokerProcessor;
    using EmpIf = ::TavEmpIf;
    using EmpClient = ::TavEmpClient;
    using EmpProcessor = ::TavEmpProcessor;
    using EventIf = ::TavEmpEventIf;
    using EventClient = ::TavEmpEventClient;
    using EventProcessor = ::TavEmpEventProcessor;
};

inline ProtocolPtr makeProtocol(const std::string& encoding, const TransportPtr& transport) {
    using namespace apache::thrift::protocol;
    if (encoding == "binary") {
        return std::make_shared<TBinaryProtocol>(transport);
    }
    if (encoding == "compact") {
        return std::make_shared<TCompactProtocol>(transport);
    }
    if (encoding == "json") {
        return std::make_shared<TJSONProtocol>(transport);
    }
    throw std::invalid_argument("no encoding is called " + encoding);
}

// The calls that handlers received, one per line. Thread-safe.
class Journal {
public:
    void note(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
    }

    // Waits for `count` lines and returns them. Returns fewer only if they do not
    // arrive within half a minute.
    std::vector<std::string> lines(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(30),
                            [&] { return lines_.size() >= count; });
        return lines_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

// "Open 7 camera 1.0 key"
inline std::string joined(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

// Logs the call; throws if its first text is "fail".
inline void obey(Journal& journal, const std::string& line, const std::string& text) {
    journal.note(line);
    if (text == "fail") {
        throw std::runtime_error("refused: " + line);
    }
}

template <typename Family>
class BrokerHandler : public Family::BrokerIf {
public:
    explicit BrokerHandler(Journal& journal) : journal_(journal) {}

    void OpenEmp(typename Family::ConnectionInfo& result, const std::string& name,
                 const std::string& version, const std::string& credential) override {
        obey(journal_, joined({"OpenEmp", name, version, credential}), name);
        result.callbackServicePort = 49152;
        result.empServicePort = -2147483647 - 1;
        result.empID = name + "/1";
    }

    void Execute(std::string& result, int32_t fromPort, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        result =
            joined({"Execute from", std::to_string(fromPort), cmd, param1, param2, param3, param4});
        obey(journal_, result, cmd);
    }

    bool CloseEmp(const typename Family::ConnectionInfo& info) override {
        obey(journal_,
             joined({"CloseEmp", std::to_string(info.callbackServicePort),
                     std::to_string(info.empServicePort), info.empID}),
             info.empID);
        return info.empID == "camera";
    }

private:
    Journal& journal_;
};

template <typename Family>
class EmpHandler : public Family::EmpIf {
public:
    explicit EmpHandler(Journal& journal) : journal_(journal) {}

    bool Open(int32_t clientID, const std::string& name, const std::string& version,
              const std::string& credential) override {
        obey(journal_, joined({"Open", std::to_string(clientID), name, version, credential}), name);
        return name == "camera";
    }

    int32_t Close(int32_t clientID) override {
        obey(journal_, joined({"Close", std::to_string(clientID)}), clientID < 0 ? "fail" : "");
        return -clientID;
    }

    void Execute(std::string& result, int32_t clientID, const std::string& cmd,
                 const std::string& param1, const std::string& param2, const std::string& param3,
                 const std::string& param4) override {
        result =
            joined({"Execute for", std::to_string(clientID), cmd, param1, param2, param3, param4});
        obey(journal_, result, cmd);
    }

    void ExecuteWithParamList(std::string& result, int32_t clientID, const std::string& cmd,
                              const typename Family::ParamList& list) override {
        result = joined({"ExecuteWithParamList", std::to_string(clientID), cmd, list.param1,
                         list.param2, list.param3, list.param4, list.param5, list.param6,
                         list.param7, list.param8, list.param9, list.param10});
        obey(journal_, result, cmd);
    }

private:
    Journal& journal_;
};

template <typename Family>
class EventHandler : public Family::EventIf {
public:
    explicit EventHandler(Journal& journal) : journal_(journal) {}

    void Callback(int32_t eventType, const std::string& param1,
                  const std::string& param2) override {
        obey(journal_, joined({"Callback", std::to_string(eventType), param1, param2}), param1);
    }

private:
    Journal& journal_;
};

// The processor of the service with this name.
template <typename Family>
ProcessorPtr makeProcessor(const std::string& service, Journal& journal) {
    if (service == "TavBroker") {
        return std::make_shared<typename Family::BrokerProcessor>(
            std::make_shared<BrokerHandler<Family>>(journal));
    }
    if (service == "TavEmp") {
        return std::make_shared<typename Family::EmpProcessor>(
            std::make_shared<EmpHandler<Family>>(journal));
    }
    if (service == "TavEmpEvent") {
        return std::make_shared<typename Family::EventProcessor>(
            std::make_shared<EventHandler<Family>>(journal));
    }
    throw std::invalid_argument("no service is called " + service);
}

// Calls an operation with `word` as its first text and returns the outcome.
template <typename Family>
std::string call(const std::string& service, const std::string& operation, const std::string& word,
                 const ProtocolPtr& in, const ProtocolPtr& out) {
    typename Family::BrokerClient broker(in, out);
    typename Family::EmpClient emp(in, out);
    typename Family::EventClient event(in, out);
    std::string result;
    try {
        if (operation == "OpenEmp") {
            typename Family::ConnectionInfo info;
            broker.OpenEmp(info, word, "1.0", "key");
            return joined({std::to_string(info.callbackServicePort),
                           std::to_string(info.empServicePort), info.empID});
        }
        if (operation == "Execute" && service == "TavBroker") {
            broker.Execute(result, 2147483647, word, "", R"("q"\)", "\xc3\xa4\xe2\x82\xac",
                           "\t\n\x01");
            return result;
        }
        if (operation == "CloseEmp") {
            typename Family::ConnectionInfo info;
            info.callbackServicePort = 49152;
            info.empServicePort = 127;
            info.empID = word;
            return broker.CloseEmp(info) ? "true" : "false";
        }
        if (operation == "Open") {
            return emp.Open(7, word, "2.1", "lock") ? "true" : "false";
        }
        if (operation == "Close") {
            return std::to_string(emp.Close(word == "fail" ? -1 : 300));
        }
        if (operation == "Execute" && service == "TavEmp") {
            emp.Execute(result, 8, word, "north", "east", "south", "west");
            return result;
        }
        if (operation == "ExecuteWithParamList") {
            typename Family::ParamList list;
            list.param1 = "one";
            list.param2 = "two";
            list.param3 = "three";
            list.param4 = "four";
            list.param5 = "five";
            list.param6 = "six";
            list.param7 = "seven";
            list.param8 = "eight";
            list.param9 = "nine";
            list.param10 = "ten";
            emp.ExecuteWithParamList(result, 9, word, list);
            return result;
        }
        if (operation == "Callback") {
            event.Callback(-3, word, "still");
            return "sent";
        }
    } catch (const apache::thrift::TApplicationException& failure) {
        return "kind " + std::to_string(failure.getType()) + ": " + failure.what();
    }
    throw std::invalid_argument("no operation is called " + operation);
}

// Every operation: what its handler and its caller get in a call with the word
// "camera", and what the caller gets in a call with the word "fail".
struct Operation {
    const char* service;
    const char* name;
    const char* seen;
    const char* result;
    const char* failure;
};

constexpr Operation kOperations[] = {
    {"TavBroker", "OpenEmp", "OpenEmp camera 1.0 key", "49152 -2147483648 camera/1",
     "kind 0: refused: OpenEmp fail 1.0 key"},
    {"TavBroker", "Execute",
     "Execute from 2147483647 camera  \"q\"\\ \xc3\xa4\xe2\x82\xac \t\n\x01",
     "Execute from 2147483647 camera  \"q\"\\ \xc3\xa4\xe2\x82\xac \t\n\x01",
     "kind 0: refused: Execute from 2147483647 fail  \"q\"\\ \xc3\xa4\xe2\x82\xac \t\n\x01"},
    {"TavBroker", "CloseEmp", "CloseEmp 49152 127 camera", "true",
     "kind 0: refused: CloseEmp 49152 127 fail"},
    {"TavEmp", "Open", "Open 7 camera 2.1 lock", "true", "kind 0: refused: Open 7 fail 2.1 lock"},
    {"TavEmp", "Close", "Close 300", "-300", "kind 0: refused: Close -1"},
    {"TavEmp", "Execute", "Execute for 8 camera north east south west",
     "Execute for 8 camera north east south west",
     "kind 0: refused: Execute for 8 fail north east south west"},
    {"TavEmp", "ExecuteWithParamList",
     "ExecuteWithParamList 9 camera one two three four five six seven eight nine ten",
     "ExecuteWithParamList 9 camera one two three four five six seven eight nine ten",
     "kind 0: refused: ExecuteWithParamList 9 fail one two three four five six seven eight nine "
     "ten"},
    // One-way: the caller does not notice a failure.
    {"TavEmpEvent", "Callback", "Callback -3 camera still", "sent", "sent"},
};

#endif
