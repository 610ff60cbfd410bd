#include <TavIDL/TavIDL.h>
#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "layout.h"

using apache::thrift::TProcessor;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TProtocol;
using apache::thrift::transport::TMemoryBuffer;

namespace {

// A program's own client and processor can use the members that they inherit.
template <typename Client>
struct OwnClient : Client {
    using Client::Client;
    using Client::iprot_;
    using Client::oprot_;
    using Client::piprot_;
    using Client::poprot_;
};

template <typename Processor>
struct OwnProcessor : Processor {
    using Processor::handler_;
    using Processor::operationMap_;
    using Processor::Processor;

    bool process_fn(TProtocol*, TProtocol*, std::string& name, int32_t seqid) override {
        names.push_back(name + " " + std::to_string(seqid));
        return false;
    }

    std::vector<std::string> names;
};

template <typename Processor>
using Operation = void (Processor::*)(int32_t, TProtocol*, TProtocol*);

// The libthrift forms of process: which of the two it declares makes no difference here.
template <typename Processor>
std::size_t slotOfProcess() {
    using Pointer = std::shared_ptr<TProtocol>;
    return slotOf(static_cast<bool (Processor::*)(Pointer, Pointer, void*)>(&Processor::process));
}

std::shared_ptr<TProtocol> makeProtocol() {
    return std::make_shared<TBinaryProtocol>(std::make_shared<TMemoryBuffer>());
}

template <typename Member>
std::size_t placeIn(const void* object, const Member& member) {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&member) -
                                    static_cast<const char*>(object));
}

template <typename Client>
void expectClientMembers() {
    using Own = OwnClient<Client>;
    EXPECT_TRUE((std::is_same<decltype(Own::piprot_), std::shared_ptr<TProtocol>>::value));
    EXPECT_TRUE((std::is_same<decltype(Own::poprot_), std::shared_ptr<TProtocol>>::value));
    EXPECT_TRUE((std::is_same<decltype(Own::iprot_), TProtocol*>::value));
    EXPECT_TRUE((std::is_same<decltype(Own::oprot_), TProtocol*>::value));

    const Own client(makeProtocol(), makeProtocol());
    constexpr std::size_t word = sizeof(void*);
    EXPECT_EQ(placeIn(&client, client.piprot_), 1 * word);
    EXPECT_EQ(placeIn(&client, client.poprot_), 3 * word);
    EXPECT_EQ(placeIn(&client, client.iprot_), 5 * word);
    EXPECT_EQ(placeIn(&client, client.oprot_), 6 * word);
    EXPECT_EQ(sizeof(Client), 7 * word);
}

template <typename Processor, typename Handler>
void expectProcessorMembers() {
    using Own = OwnProcessor<Processor>;
    EXPECT_TRUE((std::is_same<decltype(Own::handler_), std::shared_ptr<Handler>>::value));
    EXPECT_TRUE((std::is_same<decltype(Own::operationMap_),
                              std::map<std::string, Operation<Processor>>>::value));

    const Own processor(nullptr);
    constexpr std::size_t word = sizeof(void*);
    EXPECT_EQ(placeIn(&processor, processor.handler_), 1 * word);
    EXPECT_EQ(placeIn(&processor, processor.operationMap_), 3 * word);
}

// Whether the members are public.
constexpr auto takeInput = [](auto& client) -> decltype(client.iprot_, void()) {};
constexpr auto takeOutput = [](auto& client) -> decltype(client.oprot_, void()) {};
constexpr auto takeInputOwner = [](auto& client) -> decltype(client.piprot_, void()) {};
constexpr auto takeOutputOwner = [](auto& client) -> decltype(client.poprot_, void()) {};
constexpr auto takeHandler = [](auto& processor) -> decltype(processor.handler_, void()) {};
constexpr auto takeMap = [](auto& processor) -> decltype(processor.operationMap_, void()) {};

template <typename Client>
void expectClientMembersProtected() {
    EXPECT_TRUE((std::is_invocable<decltype(takeInput), OwnClient<Client>&>::value));
    EXPECT_TRUE((std::is_invocable<decltype(takeOutput), OwnClient<Client>&>::value));
    EXPECT_TRUE((std::is_invocable<decltype(takeInputOwner), OwnClient<Client>&>::value));
    EXPECT_TRUE((std::is_invocable<decltype(takeOutputOwner), OwnClient<Client>&>::value));
    EXPECT_FALSE((std::is_invocable<decltype(takeInput), Client&>::value));
    EXPECT_FALSE((std::is_invocable<decltype(takeOutput), Client&>::value));
    EXPECT_FALSE((std::is_invocable<decltype(takeInputOwner), Client&>::value));
    EXPECT_FALSE((std::is_invocable<decltype(takeOutputOwner), Client&>::value));
}

template <typename Processor>
void expectProcessorMembersProtected() {
    EXPECT_TRUE((std::is_invocable<decltype(takeHandler), OwnProcessor<Processor>&>::value));
    EXPECT_TRUE((std::is_invocable<decltype(takeMap), OwnProcessor<Processor>&>::value));
    EXPECT_FALSE((std::is_invocable<decltype(takeHandler), Processor&>::value));
    EXPECT_FALSE((std::is_invocable<decltype(takeMap), Processor&>::value));
}

// libthrift's servers call the processor through its base class.
template <typename Processor>
void expectProcessReachesProcessFn() {
    OwnProcessor<Processor> processor(nullptr);
    const auto input = makeProtocol();
    input->writeMessageBegin("Anything", apache::thrift::protocol::T_CALL, 17);

    EXPECT_FALSE(static_cast<TProcessor&>(processor).process(input, makeProtocol(), nullptr));

    EXPECT_EQ(processor.names, std::vector<std::string>{"Anything 17"});
}

template <typename Processor>
void expectProcessorSlots() {
    EXPECT_EQ(slotOfProcess<Processor>(), 2U);
    EXPECT_EQ(slotOf(&Processor::process_fn), 3U);
    EXPECT_EQ(slotsOf<Processor>(), 4U);
}

struct BrokerOperations : TavBrokerProcessor {
    static std::map<std::string, Operation<TavBrokerProcessor>> expected() {
        return {{"OpenEmp", &BrokerOperations::process_OpenEmp},
                {"Execute", &BrokerOperations::process_Execute},
                {"CloseEmp", &BrokerOperations::process_CloseEmp}};
    }
};

struct EmpOperations : TavEmpProcessor {
    static std::map<std::string, Operation<TavEmpProcessor>> expected() {
        return {{"Open", &EmpOperations::process_Open},
                {"Close", &EmpOperations::process_Close},
                {"Execute", &EmpOperations::process_Execute},
                {"ExecuteWithParamList", &EmpOperations::process_ExecuteWithParamList}};
    }
};

struct EventOperations : TavEmpEventProcessor {
    static std::map<std::string, Operation<TavEmpEventProcessor>> expected() {
        return {{"Callback", &EventOperations::process_Callback}};
    }
};

}  // namespace

TEST(InterfaceLayoutTest, NoInterfaceHasABase) {
    EXPECT_TRUE(hasNoBase<TavBrokerIf>());
    EXPECT_TRUE(hasNoBase<TavEmpIf>());
    EXPECT_TRUE(hasNoBase<TavEmpEventIf>());
}

TEST(InterfaceLayoutTest, NoInterfaceHasData) {
    EXPECT_EQ(sizeof(TavBrokerIf), sizeof(void*));
    EXPECT_EQ(sizeof(TavEmpIf), sizeof(void*));
    EXPECT_EQ(sizeof(TavEmpEventIf), sizeof(void*));
}

TEST(InterfaceLayoutTest, TheBrokerInterfaceHasADestructorThenItsOperationsInOrder) {
    EXPECT_TRUE(std::has_virtual_destructor<TavBrokerIf>::value);
    EXPECT_EQ(slotOf(&TavBrokerIf::OpenEmp), 2U);
    EXPECT_EQ(slotOf(&TavBrokerIf::Execute), 3U);
    EXPECT_EQ(slotOf(&TavBrokerIf::CloseEmp), 4U);
    EXPECT_EQ(slotsOf<TavBrokerIf>(), 5U);
}

TEST(InterfaceLayoutTest, TheEmpInterfaceHasADestructorThenItsOperationsInOrder) {
    EXPECT_TRUE(std::has_virtual_destructor<TavEmpIf>::value);
    EXPECT_EQ(slotOf(&TavEmpIf::Open), 2U);
    EXPECT_EQ(slotOf(&TavEmpIf::Close), 3U);
    EXPECT_EQ(slotOf(&TavEmpIf::Execute), 4U);
    EXPECT_EQ(slotOf(&TavEmpIf::ExecuteWithParamList), 5U);
    EXPECT_EQ(slotsOf<TavEmpIf>(), 6U);
}

TEST(InterfaceLayoutTest, TheEventInterfaceHasADestructorThenItsOperationsInOrder) {
    EXPECT_TRUE(std::has_virtual_destructor<TavEmpEventIf>::value);
    EXPECT_EQ(slotOf(&TavEmpEventIf::Callback), 2U);
    EXPECT_EQ(slotsOf<TavEmpEventIf>(), 3U);
}

TEST(ClientLayoutTest, TheBrokerClientHasADestructorThenItsOperationsInOrder) {
    EXPECT_TRUE(std::has_virtual_destructor<TavBrokerClient>::value);
    EXPECT_EQ(slotOf(&TavBrokerClient::OpenEmp), 2U);
    EXPECT_EQ(slotOf(&TavBrokerClient::Execute), 3U);
    EXPECT_EQ(slotOf(&TavBrokerClient::CloseEmp), 4U);
    EXPECT_EQ(slotsOf<TavBrokerClient>(), 5U);
}

TEST(ClientLayoutTest, TheEmpClientHasADestructorThenItsOperationsInOrder) {
    EXPECT_TRUE(std::has_virtual_destructor<TavEmpClient>::value);
    EXPECT_EQ(slotOf(&TavEmpClient::Open), 2U);
    EXPECT_EQ(slotOf(&TavEmpClient::Close), 3U);
    EXPECT_EQ(slotOf(&TavEmpClient::Execute), 4U);
    EXPECT_EQ(slotOf(&TavEmpClient::ExecuteWithParamList), 5U);
    EXPECT_EQ(slotsOf<TavEmpClient>(), 6U);
}

TEST(ClientLayoutTest, TheEventClientHasADestructorThenItsOperationsInOrder) {
    EXPECT_TRUE(std::has_virtual_destructor<TavEmpEventClient>::value);
    EXPECT_EQ(slotOf(&TavEmpEventClient::Callback), 2U);
    EXPECT_EQ(slotsOf<TavEmpEventClient>(), 3U);
}

TEST(ClientLayoutTest, ClientsDeriveVirtuallyFromTheirInterfaceOnly) {
    EXPECT_TRUE((derivesVirtuallyFrom<TavBrokerIf, TavBrokerClient>()));
    EXPECT_TRUE((derivesVirtuallyFrom<TavEmpIf, TavEmpClient>()));
    EXPECT_TRUE((derivesVirtuallyFrom<TavEmpEventIf, TavEmpEventClient>()));
}

TEST(ClientLayoutTest, TheHalvesOfACallAreNotVirtual) {
    EXPECT_FALSE(isVirtual(&TavBrokerClient::send_OpenEmp));
    EXPECT_FALSE(isVirtual(&TavBrokerClient::recv_OpenEmp));
    EXPECT_FALSE(isVirtual(&TavBrokerClient::send_Execute));
    EXPECT_FALSE(isVirtual(&TavBrokerClient::recv_Execute));
    EXPECT_FALSE(isVirtual(&TavBrokerClient::send_CloseEmp));
    EXPECT_FALSE(isVirtual(&TavBrokerClient::recv_CloseEmp));
    EXPECT_FALSE(isVirtual(&TavEmpClient::send_Open));
    EXPECT_FALSE(isVirtual(&TavEmpClient::recv_Open));
    EXPECT_FALSE(isVirtual(&TavEmpClient::send_Close));
    EXPECT_FALSE(isVirtual(&TavEmpClient::recv_Close));
    EXPECT_FALSE(isVirtual(&TavEmpClient::send_Execute));
    EXPECT_FALSE(isVirtual(&TavEmpClient::recv_Execute));
    EXPECT_FALSE(isVirtual(&TavEmpClient::send_ExecuteWithParamList));
    EXPECT_FALSE(isVirtual(&TavEmpClient::recv_ExecuteWithParamList));
    EXPECT_FALSE(isVirtual(&TavEmpEventClient::send_Callback));
}

TEST(ClientLayoutTest, ClientsHaveTheirTwoProtocolsAndAPointerToEachInOrder) {
    expectClientMembers<TavBrokerClient>();
    expectClientMembers<TavEmpClient>();
    expectClientMembers<TavEmpEventClient>();
}

TEST(ClientLayoutTest, OnlyDerivedClassesReachTheProtocols) {
    expectClientMembersProtected<TavBrokerClient>();
    expectClientMembersProtected<TavEmpClient>();
    expectClientMembersProtected<TavEmpEventClient>();
}

TEST(ProcessorLayoutTest, ProcessorsDeriveVirtuallyFromLibthriftsOnly) {
    EXPECT_TRUE((derivesVirtuallyFrom<TProcessor, TavBrokerProcessor>()));
    EXPECT_TRUE((derivesVirtuallyFrom<TProcessor, TavEmpProcessor>()));
    EXPECT_TRUE((derivesVirtuallyFrom<TProcessor, TavEmpEventProcessor>()));
}

TEST(ProcessorLayoutTest, ProcessorsHaveADestructorThenProcessAndProcessFn) {
    expectProcessorSlots<TavBrokerProcessor>();
    expectProcessorSlots<TavEmpProcessor>();
    expectProcessorSlots<TavEmpEventProcessor>();
}

TEST(ProcessorLayoutTest, ProcessorsHaveTheirHandlerThenTheMapOfOperations) {
    expectProcessorMembers<TavBrokerProcessor, TavBrokerIf>();
    expectProcessorMembers<TavEmpProcessor, TavEmpIf>();
    expectProcessorMembers<TavEmpEventProcessor, TavEmpEventIf>();
}

TEST(ProcessorLayoutTest, OnlyDerivedClassesReachTheHandlerAndTheMap) {
    expectProcessorMembersProtected<TavBrokerProcessor>();
    expectProcessorMembersProtected<TavEmpProcessor>();
    expectProcessorMembersProtected<TavEmpEventProcessor>();
}

TEST(ProcessorLayoutTest, TheBrokerProcessorMapsItsOperationsAndNothingElse) {
    EXPECT_EQ(OwnProcessor<TavBrokerProcessor>(nullptr).operationMap_,
              BrokerOperations::expected());
}

TEST(ProcessorLayoutTest, TheEmpProcessorMapsItsOperationsAndNothingElse) {
    EXPECT_EQ(OwnProcessor<TavEmpProcessor>(nullptr).operationMap_, EmpOperations::expected());
}

TEST(ProcessorLayoutTest, TheEventProcessorMapsItsOperationsAndNothingElse) {
    EXPECT_EQ(OwnProcessor<TavEmpEventProcessor>(nullptr).operationMap_,
              EventOperations::expected());
}

TEST(ProcessorLayoutTest, TheFunctionsOfTheOperationsAreNotVirtual) {
    for (const auto& [name, function] : BrokerOperations::expected()) {
        EXPECT_FALSE(isVirtual(function)) << name;
    }
    for (const auto& [name, function] : EmpOperations::expected()) {
        EXPECT_FALSE(isVirtual(function)) << name;
    }
    for (const auto& [name, function] : EventOperations::expected()) {
        EXPECT_FALSE(isVirtual(function)) << name;
    }
}

TEST(ProcessorLayoutTest, ProcessCallsTheProcessFnOfADerivedClass) {
    expectProcessReachesProcessFn<TavBrokerProcessor>();
    expectProcessReachesProcessFn<TavEmpProcessor>();
    expectProcessReachesProcessFn<TavEmpEventProcessor>();
}
