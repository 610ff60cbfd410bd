#include <TavIDL/host/Batch.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/EmpSession.h>
#include <TavIDL/host/Remote.h>
#include <TavIDL/host/Server.h>
#include <TavIDL/host/Settings.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "layout.h"

using apache::thrift::transport::TTransport;
using apache::thrift::transport::TTransportException;
using std::chrono::milliseconds;
using TavIDL::CallFailed;
using TavIDL::Connection;
using TavIDL::RemoteBroker;
using TavIDL::RemoteCallback;
using TavIDL::RemoteEmp;
using TavIDL::ServedCall;
using TavIDL::Settings;
using TavIDL::Tls;

namespace {

constexpr std::size_t kPointer = sizeof(void*);

template <typename Remote, typename Interface>
std::size_t placeOfInterface() {
    Remote remote("127.0.0.1:1");
    const auto* whole = reinterpret_cast<const char*>(&remote);
    const auto* part = reinterpret_cast<const char*>(static_cast<Interface*>(&remote));
    return static_cast<std::size_t>(part - whole);
}

}  // namespace

TEST(HostLayoutTest, SettingsHaveTheirMembersInOrder) {
    std::size_t end = 0;
    EXPECT_TRUE(
        (inARow<Settings::Protocol,
                std::function<TavIDL::ProtocolPointer(std::shared_ptr<TTransport>)>, bool, uint32_t,
                uint32_t, Tls, milliseconds, milliseconds, std::size_t, uint32_t, std::size_t,
                milliseconds, milliseconds, milliseconds, milliseconds, std::size_t, bool, unsigned,
                std::function<void(const std::string&)>, std::function<void(const ServedCall&)>>(
            end, &Settings::protocol, &Settings::makeProtocol, &Settings::framed,
            &Settings::bufferSize, &Settings::maxMessageSize, &Settings::tls,
            &Settings::connectTimeout, &Settings::callTimeout, &Settings::maxConnections,
            &Settings::batchWindow, &Settings::maxClients, &Settings::idleTimeout,
            &Settings::receiveTimeout, &Settings::sendTimeout, &Settings::stopTimeout,
            &Settings::stackSize, &Settings::deferReplies, &Settings::unixMode,
            &Settings::onFailure, &Settings::onCall)));
    EXPECT_EQ(sizeof(Settings), aligned(end, alignof(Settings)));
}

TEST(HostLayoutTest, TlsHasItsMembersInOrder) {
    std::size_t end = 0;
    EXPECT_TRUE((inARow<bool, std::string, std::string, std::string, bool>(
        end, &Tls::enabled, &Tls::trusted, &Tls::certificate, &Tls::key, &Tls::checkHost)));
    EXPECT_EQ(sizeof(Tls), aligned(end, alignof(Tls)));
}

TEST(HostLayoutTest, AServedCallHasItsMembersInOrder) {
    std::size_t end = 0;
    EXPECT_TRUE((inARow<std::string, std::string, std::chrono::microseconds, ServedCall::Outcome>(
        end, &ServedCall::operation, &ServedCall::peer, &ServedCall::duration,
        &ServedCall::outcome)));
    EXPECT_EQ(sizeof(ServedCall), aligned(end, alignof(ServedCall)));
}

TEST(HostLayoutTest, EnumeratorsKeepTheirValues) {
    EXPECT_EQ(Settings::Binary, 0);
    EXPECT_EQ(Settings::Compact, 1);
    EXPECT_EQ(ServedCall::Done, 0);
    EXPECT_EQ(ServedCall::Refused, 1);
    EXPECT_EQ(ServedCall::Failed, 2);
    EXPECT_EQ(CallFailed::CannotConnect, 0);
    EXPECT_EQ(CallFailed::NoAnswerInTime, 1);
    EXPECT_EQ(CallFailed::ConnectionClosed, 2);
    EXPECT_EQ(CallFailed::NotOurProtocol, 3);
    EXPECT_EQ(CallFailed::Cancelled, 4);
}

TEST(HostLayoutTest, AFailureHasAReasonAndAFlagAfterLibthriftsMembers) {
    struct AsAgreed : TTransportException {
        CallFailed::Reason reason;
        bool sent;
    };
    EXPECT_EQ(sizeof(CallFailed), sizeof(AsAgreed));
    EXPECT_EQ(slotsOf<CallFailed>(), slotsOf<TTransportException>());
}

TEST(HostLayoutTest, AllOtherMembersAreBehindOnePointer) {
    EXPECT_EQ(sizeof(TavIDL::Server), kPointer);
    EXPECT_EQ(sizeof(TavIDL::EmpSession), kPointer);
    EXPECT_EQ(sizeof(TavIDL::Remote), 2 * kPointer);
    EXPECT_EQ(sizeof(TavIDL::Batch), 2 * kPointer);
    EXPECT_EQ(sizeof(TavIDL::BrokerBatch), 2 * kPointer);
    EXPECT_EQ(sizeof(TavIDL::EmpBatch), 2 * kPointer);
    EXPECT_EQ(sizeof(TavIDL::CallbackBatch), 2 * kPointer);
    EXPECT_EQ(sizeof(Connection), sizeof(TTransport));
}

TEST(HostLayoutTest, ARemoteHasItsInterfaceAfterTheCommonBase) {
    EXPECT_EQ((placeOfInterface<RemoteBroker, TavBrokerIf>()), 2 * kPointer);
    EXPECT_EQ((placeOfInterface<RemoteEmp, TavEmpIf>()), 2 * kPointer);
    EXPECT_EQ((placeOfInterface<RemoteCallback, TavEmpEventIf>()), 2 * kPointer);
    EXPECT_EQ(sizeof(RemoteBroker), 3 * kPointer);
    EXPECT_EQ(sizeof(RemoteEmp), 3 * kPointer);
    EXPECT_EQ(sizeof(RemoteCallback), 3 * kPointer);
}

TEST(HostLayoutTest, ARemoteHasADestructorThenItsOperationsInOrder) {
    EXPECT_EQ(slotsOf<TavIDL::Remote>(), 2U);
    EXPECT_EQ(slotOf(&RemoteBroker::OpenEmp), 2U);
    EXPECT_EQ(slotOf(&RemoteBroker::Execute), 3U);
    EXPECT_EQ(slotOf(&RemoteBroker::CloseEmp), 4U);
    EXPECT_EQ(slotsOf<RemoteBroker>(), 5U);
    EXPECT_EQ(slotOf(&RemoteEmp::Open), 2U);
    EXPECT_EQ(slotOf(&RemoteEmp::Close), 3U);
    EXPECT_EQ(slotOf(&RemoteEmp::Execute), 4U);
    EXPECT_EQ(slotOf(&RemoteEmp::ExecuteWithParamList), 5U);
    EXPECT_EQ(slotsOf<RemoteEmp>(), 6U);
    EXPECT_EQ(slotOf(&RemoteCallback::Callback), 2U);
    EXPECT_EQ(slotsOf<RemoteCallback>(), 3U);
}

TEST(HostLayoutTest, BatchesHaveADestructorAndNoOtherVirtualFunction) {
    EXPECT_EQ(slotsOf<TavIDL::Batch>(), 2U);
    EXPECT_EQ(slotsOf<TavIDL::BrokerBatch>(), 2U);
    EXPECT_EQ(slotsOf<TavIDL::EmpBatch>(), 2U);
    EXPECT_EQ(slotsOf<TavIDL::CallbackBatch>(), 2U);
}

TEST(HostLayoutTest, AConnectionAddsTwoVirtualFunctionsToLibthriftsTransport) {
    EXPECT_EQ(slotOf(&Connection::close), slotOf(&TTransport::close));
    EXPECT_EQ(slotOf(&Connection::closeOutput), slotsOf<TTransport>());
    EXPECT_EQ(slotOf(&Connection::peer), slotsOf<TTransport>() + 1);
    EXPECT_EQ(slotsOf<Connection>(), slotsOf<TTransport>() + 2);
}
