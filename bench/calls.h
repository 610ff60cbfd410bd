#ifndef BENCH_CALLS_H
#define BENCH_CALLS_H

#include "contestant.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/protocol/TCompactProtocol.h>
#include <thrift/protocol/TJSONProtocol.h>

#include <stdexcept>

// The calls, written once for all contestants: `Names` has the names of a contestant's
// classes. Only the templates contestant uses the protocol's type.
namespace bench {

constexpr int32_t kNumber = 123456;

template <typename Names>
class Broker : public Names::BrokerIf {
public:
    explicit Broker(std::size_t length) : text_(length, 'r') {}

    void OpenEmp(typename Names::Info& result, const std::string&, const std::string&,
                 const std::string&) override {
        result.callbackServicePort = kNumber;
        result.empServicePort = kNumber;
        result.empID = text_;
    }
    void Execute(std::string& result, int32_t, const std::string&, const std::string&,
                 const std::string&, const std::string&, const std::string&) override {
        result = text_;
    }
    bool CloseEmp(const typename Names::Info&) override { return true; }

private:
    const std::string text_;
};

template <typename Names>
class Emp : public Names::EmpIf {
public:
    explicit Emp(std::size_t length) : text_(length, 'r') {}

    bool Open(int32_t, const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    int32_t Close(int32_t) override { return kNumber; }
    void Execute(std::string& result, int32_t, const std::string&, const std::string&,
                 const std::string&, const std::string&, const std::string&) override {
        result = text_;
    }
    void ExecuteWithParamList(std::string& result, int32_t, const std::string&,
                              const typename Names::List&) override {
        result = text_;
    }

private:
    const std::string text_;
};

template <typename Names>
class Event : public Names::EventIf {
public:
    void Callback(int32_t, const std::string&, const std::string&) override {}
};

template <typename Names, typename Protocol>
class ContestantCaller : public Caller {
    using Pointer = std::shared_ptr<typename Names::template ClientProtocol<Protocol>>;

public:
    ContestantCaller(std::size_t length, const Pointer& input, const Pointer& output)
        : broker_(input, output), emp_(input, output), event_(input, output), text_(length, 'a') {
        info_.callbackServicePort = kNumber;
        info_.empServicePort = kNumber;
        for (std::string* member : {&info_.empID, &list_.param1, &list_.param2, &list_.param3,
                                    &list_.param4, &list_.param5, &list_.param6, &list_.param7,
                                    &list_.param8, &list_.param9, &list_.param10}) {
            *member = text_;
        }
    }

    void send(Operation operation) override {
        switch (operation) {
            case Operation::brokerOpenEmp:
                return broker_.send_OpenEmp(text_, text_, text_);
            case Operation::brokerExecute:
                return broker_.send_Execute(kNumber, text_, text_, text_, text_, text_);
            case Operation::brokerCloseEmp:
                return broker_.send_CloseEmp(info_);
            case Operation::empOpen:
                return emp_.send_Open(kNumber, text_, text_, text_);
            case Operation::empClose:
                return emp_.send_Close(kNumber);
            case Operation::empExecute:
                return emp_.send_Execute(kNumber, text_, text_, text_, text_, text_);
            case Operation::empExecuteWithParamList:
                return emp_.send_ExecuteWithParamList(kNumber, text_, list_);
            case Operation::eventCallback:
                return event_.send_Callback(kNumber, text_, text_);
        }
    }

    void receive(Operation operation) override {
        std::string result;
        typename Names::Info info;
        switch (operation) {
            case Operation::brokerOpenEmp:
                broker_.recv_OpenEmp(info);
                return expect(info.empID.size() == text_.size());
            case Operation::brokerExecute:
                broker_.recv_Execute(result);
                return expect(result.size() == text_.size());
            case Operation::brokerCloseEmp:
                return expect(broker_.recv_CloseEmp());
            case Operation::empOpen:
                return expect(emp_.recv_Open());
            case Operation::empClose:
                return expect(emp_.recv_Close() == kNumber);
            case Operation::empExecute:
                emp_.recv_Execute(result);
                return expect(result.size() == text_.size());
            case Operation::empExecuteWithParamList:
                emp_.recv_ExecuteWithParamList(result);
                return expect(result.size() == text_.size());
            case Operation::eventCallback:
                return;
        }
    }

private:
    static void expect(bool right) {
        if (!right) {
            throw std::logic_error("a call came back with the wrong result");
        }
    }

    typename Names::template BrokerClient<Protocol> broker_;
    typename Names::template EmpClient<Protocol> emp_;
    typename Names::template EventClient<Protocol> event_;
    const std::string text_;
    typename Names::Info info_;
    typename Names::List list_;
};

class DerivedProtocol : public apache::thrift::protocol::TBinaryProtocol {
public:
    using TBinaryProtocolT::TBinaryProtocolT;
};

// Calls `make` with a null pointer of the encoding's protocol type.
template <typename Make>
auto withProtocolType(Encoding encoding, Make make) {
    using namespace apache::thrift::protocol;
    using apache::thrift::transport::TBufferBase;
    switch (encoding) {
        case Encoding::binary:
            return make(static_cast<TBinaryProtocol*>(nullptr));
        case Encoding::compact:
            return make(static_cast<TCompactProtocol*>(nullptr));
        case Encoding::staticBinary:
            return make(static_cast<TBinaryProtocolT<TBufferBase>*>(nullptr));
        case Encoding::staticCompact:
            return make(static_cast<TCompactProtocolT<TBufferBase>*>(nullptr));
        case Encoding::json:
            return make(static_cast<TJSONProtocol*>(nullptr));
        default:
            return make(static_cast<DerivedProtocol*>(nullptr));
    }
}

template <typename Names>
std::unique_ptr<Caller> makeCaller(Encoding encoding, std::size_t length,
                                   std::shared_ptr<TProtocol> input,
                                   std::shared_ptr<TProtocol> output) {
    return withProtocolType(encoding, [&](auto* type) -> std::unique_ptr<Caller> {
        using Protocol = std::remove_pointer_t<decltype(type)>;
        using Pointer = typename Names::template ClientProtocol<Protocol>;
        return std::make_unique<ContestantCaller<Names, Protocol>>(
            length, std::static_pointer_cast<Pointer>(input),
            std::static_pointer_cast<Pointer>(output));
    });
}

template <typename Names>
std::shared_ptr<TProcessor> makeProcessor(Service service, Encoding encoding, std::size_t length) {
    return withProtocolType(encoding, [&](auto* type) -> std::shared_ptr<TProcessor> {
        using Protocol = std::remove_pointer_t<decltype(type)>;
        switch (service) {
            case Service::broker:
                return std::make_shared<typename Names::template BrokerProcessor<Protocol>>(
                    std::make_shared<Broker<Names>>(length));
            case Service::emp:
                return std::make_shared<typename Names::template EmpProcessor<Protocol>>(
                    std::make_shared<Emp<Names>>(length));
            default:
                return std::make_shared<typename Names::template EventProcessor<Protocol>>(
                    std::make_shared<Event<Names>>());
        }
    });
}

}  // namespace bench

#endif
