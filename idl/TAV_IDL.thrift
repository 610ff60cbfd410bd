/**
 * The RPC interface of the framework: a broker opens EMPs (modules identified by
 * name, version and credential), programs call them, EMPs report events.
 */

// Separate from libTavIDL's global classes, so that a program can use both.
namespace cpp TAV_IDL

/** The ports on which an open EMP and its program's callback service listen. */
struct ConnectionInfo {
    1: i32 callbackServicePort,
    2: i32 empServicePort,
    3: string empID
}

/** Up to ten string parameters of one command. */
struct ParamList {
    1: string param1,
    2: string param2,
    3: string param3,
    4: string param4,
    5: string param5,
    6: string param6,
    7: string param7,
    8: string param8,
    9: string param9,
    10: string param10
}

/** Served by the broker. */
service TavBroker {
    ConnectionInfo OpenEmp(1: string name, 2: string version, 3: string credential),
    string Execute(1: i32 fromPort, 2: string cmd, 3: string param1, 4: string param2,
                   5: string param3, 6: string param4),
    bool CloseEmp(1: ConnectionInfo connectionInfo)
}

/** Served by each EMP. */
service TavEmp {
    bool Open(1: i32 clientID, 2: string name, 3: string version, 4: string credential),
    i32 Close(1: i32 clientID),
    string Execute(1: i32 clientID, 2: string cmd, 3: string param1, 4: string param2,
                   5: string param3, 6: string param4),
    string ExecuteWithParamList(1: i32 clientID, 2: string cmd, 3: ParamList paramList)
}

/** Served by each callback service. */
service TavEmpEvent {
    /** Has no reply. libTavIDL sends it as T_CALL: recognize it by its name, and do not answer. */
    oneway void Callback(1: i32 eventType, 2: string param1, 3: string param2)
}
