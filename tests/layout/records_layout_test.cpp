#include <TavIDL/TavIDL.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>

#include "layout.h"

namespace {

// The pointer to the table of virtual functions comes first, then the fields, and
// nothing after them.
template <typename... Fields, typename Record>
bool holds(Fields Record::*... fields) {
    std::size_t end = sizeof(void*);
    return inARow<Fields...>(end, fields...) && aligned(end, alignof(Record)) == sizeof(Record);
}

// As above, with the group of flags after the fields.
template <typename... Fields, typename Record>
bool holdsBeforeFlags(Fields Record::*... fields) {
    std::size_t end = sizeof(void*);
    return inARow<Fields...>(end, fields...) && inARow(end, &Record::__isset) &&
           aligned(end, alignof(Record)) == sizeof(Record);
}

template <typename... Bools, typename Flags>
bool flagsAre(Bools Flags::*... flags) {
    std::size_t end = 0;
    return (std::is_same<Bools, bool>::value && ...) && inARow(end, flags...) &&
           end == sizeof(Flags);
}

template <typename Record>
void expectPlainRecord() {
    SCOPED_TRACE(typeid(Record).name());
    EXPECT_TRUE(hasNoBase<Record>());
    EXPECT_TRUE(std::has_virtual_destructor<Record>::value);
    EXPECT_EQ(slotsOf<Record>(), 2U);
}

template <typename... Records>
void expectPlainRecords() {
    (expectPlainRecord<Records>(), ...);
}

}  // namespace

TEST(RecordLayoutTest, RecordsHaveNoBaseAndNoVirtualFunctionButTheirDestructor) {
    expectPlainRecords<
        ConnectionInfo, ParamList, TavBroker_OpenEmp_args, TavBroker_OpenEmp_pargs,
        TavBroker_OpenEmp_result, TavBroker_OpenEmp_presult, TavBroker_Execute_args,
        TavBroker_Execute_pargs, TavBroker_Execute_result, TavBroker_Execute_presult,
        TavBroker_CloseEmp_args, TavBroker_CloseEmp_pargs, TavBroker_CloseEmp_result,
        TavBroker_CloseEmp_presult, TavEmp_Open_args, TavEmp_Open_pargs, TavEmp_Open_result,
        TavEmp_Open_presult, TavEmp_Close_args, TavEmp_Close_pargs, TavEmp_Close_result,
        TavEmp_Close_presult, TavEmp_Execute_args, TavEmp_Execute_pargs, TavEmp_Execute_result,
        TavEmp_Execute_presult, TavEmp_ExecuteWithParamList_args, TavEmp_ExecuteWithParamList_pargs,
        TavEmp_ExecuteWithParamList_result, TavEmp_ExecuteWithParamList_presult,
        TavEmpEvent_Callback_args, TavEmpEvent_Callback_pargs>();
}

TEST(RecordLayoutTest, SharedRecordsHaveTheirFieldsInOrderBeforeTheirFlags) {
    EXPECT_TRUE((holdsBeforeFlags<int32_t, int32_t, std::string>(
        &ConnectionInfo::callbackServicePort, &ConnectionInfo::empServicePort,
        &ConnectionInfo::empID)));
    EXPECT_TRUE((holdsBeforeFlags<std::string, std::string, std::string, std::string, std::string,
                                  std::string, std::string, std::string, std::string, std::string>(
        &ParamList::param1, &ParamList::param2, &ParamList::param3, &ParamList::param4,
        &ParamList::param5, &ParamList::param6, &ParamList::param7, &ParamList::param8,
        &ParamList::param9, &ParamList::param10)));
}

TEST(RecordLayoutTest, ArgumentsAreInOrderBeforeTheirFlags) {
    EXPECT_TRUE((holdsBeforeFlags<std::string, std::string, std::string>(
        &TavBroker_OpenEmp_args::name, &TavBroker_OpenEmp_args::version,
        &TavBroker_OpenEmp_args::credential)));
    EXPECT_TRUE(
        (holdsBeforeFlags<int32_t, std::string, std::string, std::string, std::string, std::string>(
            &TavBroker_Execute_args::fromPort, &TavBroker_Execute_args::cmd,
            &TavBroker_Execute_args::param1, &TavBroker_Execute_args::param2,
            &TavBroker_Execute_args::param3, &TavBroker_Execute_args::param4)));
    EXPECT_TRUE((holdsBeforeFlags<ConnectionInfo>(&TavBroker_CloseEmp_args::connectionInfo)));
    EXPECT_TRUE((holdsBeforeFlags<int32_t, std::string, std::string, std::string>(
        &TavEmp_Open_args::clientID, &TavEmp_Open_args::name, &TavEmp_Open_args::version,
        &TavEmp_Open_args::credential)));
    EXPECT_TRUE((holdsBeforeFlags<int32_t>(&TavEmp_Close_args::clientID)));
    EXPECT_TRUE(
        (holdsBeforeFlags<int32_t, std::string, std::string, std::string, std::string, std::string>(
            &TavEmp_Execute_args::clientID, &TavEmp_Execute_args::cmd, &TavEmp_Execute_args::param1,
            &TavEmp_Execute_args::param2, &TavEmp_Execute_args::param3,
            &TavEmp_Execute_args::param4)));
    EXPECT_TRUE((holdsBeforeFlags<int32_t, std::string, ParamList>(
        &TavEmp_ExecuteWithParamList_args::clientID, &TavEmp_ExecuteWithParamList_args::cmd,
        &TavEmp_ExecuteWithParamList_args::paramList)));
    EXPECT_TRUE((holdsBeforeFlags<int32_t, std::string, std::string>(
        &TavEmpEvent_Callback_args::eventType, &TavEmpEvent_Callback_args::param1,
        &TavEmpEvent_Callback_args::param2)));
}

TEST(RecordLayoutTest, PointersToArgumentsAreInOrderAndHaveNoFlags) {
    EXPECT_TRUE((holds<const std::string*, const std::string*, const std::string*>(
        &TavBroker_OpenEmp_pargs::name, &TavBroker_OpenEmp_pargs::version,
        &TavBroker_OpenEmp_pargs::credential)));
    EXPECT_TRUE((holds<const int32_t*, const std::string*, const std::string*, const std::string*,
                       const std::string*, const std::string*>(
        &TavBroker_Execute_pargs::fromPort, &TavBroker_Execute_pargs::cmd,
        &TavBroker_Execute_pargs::param1, &TavBroker_Execute_pargs::param2,
        &TavBroker_Execute_pargs::param3, &TavBroker_Execute_pargs::param4)));
    EXPECT_TRUE((holds<const ConnectionInfo*>(&TavBroker_CloseEmp_pargs::connectionInfo)));
    EXPECT_TRUE((holds<const int32_t*, const std::string*, const std::string*, const std::string*>(
        &TavEmp_Open_pargs::clientID, &TavEmp_Open_pargs::name, &TavEmp_Open_pargs::version,
        &TavEmp_Open_pargs::credential)));
    EXPECT_TRUE((holds<const int32_t*>(&TavEmp_Close_pargs::clientID)));
    EXPECT_TRUE((holds<const int32_t*, const std::string*, const std::string*, const std::string*,
                       const std::string*, const std::string*>(
        &TavEmp_Execute_pargs::clientID, &TavEmp_Execute_pargs::cmd, &TavEmp_Execute_pargs::param1,
        &TavEmp_Execute_pargs::param2, &TavEmp_Execute_pargs::param3,
        &TavEmp_Execute_pargs::param4)));
    EXPECT_TRUE((holds<const int32_t*, const std::string*, const ParamList*>(
        &TavEmp_ExecuteWithParamList_pargs::clientID, &TavEmp_ExecuteWithParamList_pargs::cmd,
        &TavEmp_ExecuteWithParamList_pargs::paramList)));
    EXPECT_TRUE((holds<const int32_t*, const std::string*, const std::string*>(
        &TavEmpEvent_Callback_pargs::eventType, &TavEmpEvent_Callback_pargs::param1,
        &TavEmpEvent_Callback_pargs::param2)));
}

TEST(RecordLayoutTest, ResultsAreBeforeTheirFlag) {
    EXPECT_TRUE((holdsBeforeFlags<ConnectionInfo>(&TavBroker_OpenEmp_result::success)));
    EXPECT_TRUE((holdsBeforeFlags<std::string>(&TavBroker_Execute_result::success)));
    EXPECT_TRUE((holdsBeforeFlags<bool>(&TavBroker_CloseEmp_result::success)));
    EXPECT_TRUE((holdsBeforeFlags<bool>(&TavEmp_Open_result::success)));
    EXPECT_TRUE((holdsBeforeFlags<int32_t>(&TavEmp_Close_result::success)));
    EXPECT_TRUE((holdsBeforeFlags<std::string>(&TavEmp_Execute_result::success)));
    EXPECT_TRUE((holdsBeforeFlags<std::string>(&TavEmp_ExecuteWithParamList_result::success)));
}

TEST(RecordLayoutTest, PointersToResultsAreBeforeTheirFlag) {
    EXPECT_TRUE((holdsBeforeFlags<ConnectionInfo*>(&TavBroker_OpenEmp_presult::success)));
    EXPECT_TRUE((holdsBeforeFlags<std::string*>(&TavBroker_Execute_presult::success)));
    EXPECT_TRUE((holdsBeforeFlags<bool*>(&TavBroker_CloseEmp_presult::success)));
    EXPECT_TRUE((holdsBeforeFlags<bool*>(&TavEmp_Open_presult::success)));
    EXPECT_TRUE((holdsBeforeFlags<int32_t*>(&TavEmp_Close_presult::success)));
    EXPECT_TRUE((holdsBeforeFlags<std::string*>(&TavEmp_Execute_presult::success)));
    EXPECT_TRUE((holdsBeforeFlags<std::string*>(&TavEmp_ExecuteWithParamList_presult::success)));
}

TEST(RecordLayoutTest, FlagsAreOneBoolPerFieldInTheSameOrder) {
    EXPECT_TRUE(flagsAre(&decltype(ConnectionInfo::__isset)::callbackServicePort,
                         &decltype(ConnectionInfo::__isset)::empServicePort,
                         &decltype(ConnectionInfo::__isset)::empID));
    EXPECT_TRUE(
        flagsAre(&decltype(ParamList::__isset)::param1, &decltype(ParamList::__isset)::param2,
                 &decltype(ParamList::__isset)::param3, &decltype(ParamList::__isset)::param4,
                 &decltype(ParamList::__isset)::param5, &decltype(ParamList::__isset)::param6,
                 &decltype(ParamList::__isset)::param7, &decltype(ParamList::__isset)::param8,
                 &decltype(ParamList::__isset)::param9, &decltype(ParamList::__isset)::param10));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_OpenEmp_args::__isset)::name,
                         &decltype(TavBroker_OpenEmp_args::__isset)::version,
                         &decltype(TavBroker_OpenEmp_args::__isset)::credential));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_OpenEmp_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_OpenEmp_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_Execute_args::__isset)::fromPort,
                         &decltype(TavBroker_Execute_args::__isset)::cmd,
                         &decltype(TavBroker_Execute_args::__isset)::param1,
                         &decltype(TavBroker_Execute_args::__isset)::param2,
                         &decltype(TavBroker_Execute_args::__isset)::param3,
                         &decltype(TavBroker_Execute_args::__isset)::param4));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_Execute_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_Execute_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_CloseEmp_args::__isset)::connectionInfo));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_CloseEmp_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavBroker_CloseEmp_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Open_args::__isset)::clientID,
                         &decltype(TavEmp_Open_args::__isset)::name,
                         &decltype(TavEmp_Open_args::__isset)::version,
                         &decltype(TavEmp_Open_args::__isset)::credential));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Open_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Open_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Close_args::__isset)::clientID));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Close_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Close_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Execute_args::__isset)::clientID,
                         &decltype(TavEmp_Execute_args::__isset)::cmd,
                         &decltype(TavEmp_Execute_args::__isset)::param1,
                         &decltype(TavEmp_Execute_args::__isset)::param2,
                         &decltype(TavEmp_Execute_args::__isset)::param3,
                         &decltype(TavEmp_Execute_args::__isset)::param4));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Execute_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_Execute_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_ExecuteWithParamList_args::__isset)::clientID,
                         &decltype(TavEmp_ExecuteWithParamList_args::__isset)::cmd,
                         &decltype(TavEmp_ExecuteWithParamList_args::__isset)::paramList));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_ExecuteWithParamList_result::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmp_ExecuteWithParamList_presult::__isset)::success));
    EXPECT_TRUE(flagsAre(&decltype(TavEmpEvent_Callback_args::__isset)::eventType,
                         &decltype(TavEmpEvent_Callback_args::__isset)::param1,
                         &decltype(TavEmpEvent_Callback_args::__isset)::param2));
}

TEST(RecordLayoutTest, FingerprintsAreTextAndSixteenBytes) {
    EXPECT_TRUE(
        (std::is_same<decltype(ConnectionInfo::ascii_fingerprint), const char* const>::value));
    EXPECT_TRUE(
        (std::is_same<decltype(ConnectionInfo::binary_fingerprint), const uint8_t[16]>::value));
    EXPECT_TRUE((std::is_same<decltype(ParamList::ascii_fingerprint), const char* const>::value));
    EXPECT_TRUE((std::is_same<decltype(ParamList::binary_fingerprint), const uint8_t[16]>::value));
}
