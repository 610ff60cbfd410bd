#ifndef TESTS_SUPPORT_SAMPLES_H
#define TESTS_SUPPORT_SAMPLES_H

#include <TavIDL/records/ConnectionInfo.h>
#include <TavIDL/records/ParamList.h>

// Records whose fields are all different.
namespace recording {

inline ConnectionInfo someConnectionInfo() {
    ConnectionInfo info;
    info.callbackServicePort = 4711;
    info.empServicePort = 4712;
    info.empID = "emp-7";
    return info;
}

inline ParamList someParamList() {
    ParamList list;
    list.param1 = "p1";
    list.param2 = "p2";
    list.param3 = "p3";
    list.param4 = "p4";
    list.param5 = "p5";
    list.param6 = "p6";
    list.param7 = "p7";
    list.param8 = "p8";
    list.param9 = "p9";
    list.param10 = "p10";
    return list;
}

}  // namespace recording

#endif
