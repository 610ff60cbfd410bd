#include <TavIDL/event/TavEmpEventClient.h>
#include <TavIDL/event/TavEmpEventTables.h>
#include <TavIDL/records/envelope.h>

using namespace std::string_view_literals;
using TavIDL::wire::sendCall;

void TavEmpEventClient::Callback(int32_t eventType, const std::string& param1,
                                 const std::string& param2) {
    send_Callback(eventType, param1, param2);
}

void TavEmpEventClient::send_Callback(int32_t eventType, const std::string& param1,
                                      const std::string& param2) {
    TavEmpEvent_Callback_pargs args;
    args.eventType = &eventType;
    args.param1 = &param1;
    args.param2 = &param2;
    sendCall(oprot_, "Callback"sv, args);
}
