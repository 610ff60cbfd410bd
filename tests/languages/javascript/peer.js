// One side of a conversation between two languages, in JavaScript.
//
// Takes the same arguments and reports the same cases as cpp/peer.cpp, which says what
// they are. The thrift package and the generated modules are found through NODE_PATH.
"use strict";

const thrift = require("thrift");
const TavBroker = require("TavBroker");
const TavEmp = require("TavEmp");
const TavEmpEvent = require("TavEmpEvent");
const { ConnectionInfo, ParamList } = require("TAV_IDL_types");

const { TApplicationException, MessageType } = thrift.Thrift;

const protocols = {
  binary: thrift.TBinaryProtocol,
  compact: thrift.TCompactProtocol,
  json: thrift.TJSONProtocol,
};
const transports = { buffered: thrift.TBufferedTransport, framed: thrift.TFramedTransport };

const long = "x".repeat(100000);
const withNul = "a\0b";
const notUtf8 = Buffer.from([0xff, 0xfe]);
const byteCount = (text) => String(Buffer.byteLength(text));

// --- Serving side

const events = [];

const broker = {
  OpenEmp(name, version, credential) {
    if (name === "none") {
      throw new Error("no such EMP: none");
    }
    return new ConnectionInfo({
      callbackServicePort: 49801,
      empServicePort: -49802,
      empID: [name, version, credential].join("|"),
    });
  },
  Execute(fromPort, cmd, param1, param2, param3, param4) {
    switch (cmd) {
      case "fail":
        throw new Error("the broker cannot: fail");
      case "failwell":
        throw new TApplicationException(5, "the broker cannot: failwell");
      case "events":
        return events.join("|");
      case "length":
        return byteCount(param1);
      case "long":
        return long;
      case "nul":
        return withNul;
      case "nothing":
        return undefined;
      default:
        return [fromPort, cmd, param1, param2, param3, param4].join("|");
    }
  },
  CloseEmp(info) {
    if (info.empID === "none") {
      throw new Error("no such EMP: none");
    }
    return (
      info.callbackServicePort === 49801 &&
      info.empServicePort === -49802 &&
      info.empID === "camera|2.1|key"
    );
  },
};

let afterNext = () => {};
const emp = {
  Open(clientID, name, version, credential) {
    if (clientID === -1) {
      throw new Error("no client -1");
    }
    return (
      clientID === 2147483647 && name === "camera" && version === "2.1" && credential === "key"
    );
  },
  Close(clientID) {
    if (clientID === -1) {
      throw new Error("no client -1");
    }
    return clientID - 10;
  },
  Execute(clientID, cmd, param1, param2, param3, param4) {
    if (cmd === "fail") {
      throw new Error("the EMP cannot: fail");
    }
    const result = [clientID, cmd, param1, param2, param3, param4].join("|");
    if (cmd === "later") {
      // Only in this language can handlers answer after they have returned: here, after the next
      // call has been answered.
      return new Promise((resolve) => {
        afterNext = () => resolve(result);
      });
    }
    setImmediate(afterNext);
    afterNext = () => {};
    return result;
  },
  ExecuteWithParamList(clientID, cmd, list) {
    if (cmd === "fail") {
      throw new Error("the EMP cannot: fail");
    }
    const params = Array.from({ length: 10 }, (_, i) => list[`param${i + 1}`]);
    return [clientID, cmd, ...params].join("|");
  },
};

const callbacks = {
  Callback(eventType, param1, param2) {
    events.push(`${eventType}/${param1}/${param2}`);
    if (param1 === "fail") {
      throw new Error("nobody hears this");
    }
  },
};

async function serve(wire) {
  const ports = [];
  for (const [service, handler] of [
    [TavBroker, broker],
    [TavEmp, emp],
    [TavEmpEvent, callbacks],
  ]) {
    const server = thrift.createServer(service, handler, wire);
    server.on("error", (error) => console.error(String(error)));
    await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
    ports.push(server.address().port);
  }
  console.log(ports.join(" "));
  process.stdin.on("end", () => process.exit(0)).resume();
}

// --- Calling side

class NoAnswer extends Error {}
class ConnectionClosed extends Error {}

class Connection {
  constructor(wire, port, timeout = 10000) {
    this.fail = () => {};
    this.connection = thrift.createConnection("127.0.0.1", port, { ...wire, timeout });
    this.connection.on("error", (error) => this.fail(error));
    this.connection.on("close", () => {
      this.closed = true;
      this.fail(new ConnectionClosed());
    });
    this.connection.on("timeout", () => this.fail(new NoAnswer()));
  }

  // A client on this connection whose requests have the given message type.
  client(service, type) {
    const client = thrift.createClient(service, this.connection);
    if (type !== undefined) {
      client.pClass = class extends client.pClass {
        writeMessageBegin(name, _, seqid) {
          super.writeMessageBegin(name, type, seqid);
        }
      };
    }
    return client;
  }

  // The outcome of a call, or the failure of its connection, of which a pending call is
  // not informed.
  wait(call) {
    return new Promise((resolve, reject) => {
      if (this.closed) {
        reject(new ConnectionClosed());
      }
      this.fail = reject;
      call.then(resolve, reject);
    });
  }
}

async function report(what, connection, call) {
  let outcome;
  try {
    outcome = await connection.wait(call());
  } catch (failure) {
    if (failure instanceof TApplicationException) {
      // These two have an empty text, for which each language prints something else.
      outcome = [2, 3].includes(failure.type)
        ? `exception ${failure.type}`
        : `exception ${failure.type}: ${failure.message}`;
    } else if (failure instanceof NoAnswer) {
      outcome = "no answer";
    } else if (failure instanceof ConnectionClosed || failure.code === "ECONNRESET") {
      outcome = "connection closed";
    } else if (typeof failure === "string") {
      outcome = `string: ${failure}`;
    } else {
      outcome = String(failure);
    }
  }
  console.log(`${what} = ${outcome}`);
}

const opened = async (client, name = "camera") => {
  const info = await client.OpenEmp(name, "2.1", "key");
  return `${info.callbackServicePort}|${info.empServicePort}|${info.empID}`;
};
const closed = (client, callbackServicePort, empServicePort, empID) =>
  client.CloseEmp(new ConnectionInfo({ callbackServicePort, empServicePort, empID }));
const executed = (client, command, param1 = "") =>
  client.Execute(0, command, param1, "", "", "");
const executedAtEmp = (client, command) =>
  client.Execute(2147483647, command, "eins", "zwei", "drei", "vier");
const executedWithList = (client, command) => {
  const params = ["a", "b", "c", "d", "", "f", "g", "h", "i", "j"];
  const list = Object.fromEntries(params.map((param, i) => [`param${i + 1}`, param]));
  return client.ExecuteWithParamList(5, command, new ParamList(list));
};

async function callBroker(wire, port) {
  const connection = new Connection(wire, port);
  const client = connection.client(TavBroker);
  const tell = (what, call) => report(what, connection, call);
  await tell("OpenEmp", () => opened(client));
  await tell("OpenEmp fails", () => opened(client, "none"));
  await tell("Execute at the broker", () =>
    client.Execute(-2147483648, "echo", "one", "", "Gr\u00fc\u00dfe \u20ac", '"four"\\')
  );
  await tell("Execute at the broker fails", () => executed(client, "fail"));
  await tell("Execute fails with an application exception", () => executed(client, "failwell"));
  await tell("CloseEmp", () => closed(client, 49801, -49802, "camera|2.1|key"));
  await tell("CloseEmp, false", () => closed(client, 0, 0, ""));
  await tell("CloseEmp fails", () => closed(client, 0, 0, "none"));
  await tell("100000 bytes sent", () => executed(client, "length", long));
  await tell("100000 bytes received", async () => byteCount(await executed(client, "long")));
  await tell("NUL sent", () => executed(client, "length", withNul));
  await tell("NUL received", async () => byteCount(await executed(client, "nul")));
}

async function callEmp(wire, port) {
  const connection = new Connection(wire, port);
  const client = connection.client(TavEmp);
  const tell = (what, call) => report(what, connection, call);
  const opens = (clientID) => client.Open(clientID, "camera", "2.1", "key");
  await tell("Open", () => opens(2147483647));
  await tell("Open, false", () => opens(0));
  await tell("Open fails", () => opens(-1));
  await tell("Close", () => client.Close(3));
  await tell("Close, zero", () => client.Close(10));
  await tell("Close fails", () => client.Close(-1));
  await tell("Execute at the EMP", () => executedAtEmp(client, "echo"));
  await tell("Execute at the EMP fails", () => executedAtEmp(client, "fail"));
  await tell("ExecuteWithParamList", () => executedWithList(client, "echo"));
  await tell("ExecuteWithParamList fails", () => executedWithList(client, "fail"));
}

async function callEvent(wire, brokerPort, eventPort) {
  const atBroker = new Connection(wire, brokerPort);
  const brokerClient = atBroker.client(TavBroker);
  for (const [what, sent] of [
    [
      "Callback",
      [
        [3, "started", "Gr\u00fc\u00dfe"],
        [-1, "", ""],
        [4, "still", "here"],
      ],
    ],
    ["Callback fails", [[0, "fail", ""]]],
  ]) {
    const connection = new Connection(wire, eventPort);
    const client = connection.client(TavEmpEvent);
    for (const event of sent) {
      client.Callback(...event);
    }
    const misled = connection.client(TavEmp);
    await report(`${what}, then an unknown operation`, connection, () => misled.Close(3));
    await report(what, atBroker, () => executed(brokerClient, "events"));
  }
}

const good = {
  broker: [TavBroker, (client) => opened(client)],
  emp: [TavEmp, (client) => client.Close(3)],
};

async function reportApart(what, wire, port, [service, goodCall], call) {
  const connection = new Connection(wire, port);
  await report(what, connection, () => call(connection));
  await report(`${what}, then`, connection, () => goodCall(connection.client(service)));
}

async function callWrongly(wire, brokerPort, empPort, eventPort) {
  const openAs = (type) => (connection) => opened(connection.client(TavBroker, type));
  const closeAs = (type) => (connection) => connection.client(TavEmp, type).Close(3);
  const atBroker = (what, call) => reportApart(what, wire, brokerPort, good.broker, call);
  const atEmp = (what, call) => reportApart(what, wire, empPort, good.emp, call);

  await atBroker("Unknown operation at the broker", closeAs(MessageType.CALL));
  await atEmp("Unknown operation at the EMP", openAs(MessageType.CALL));
  await atBroker("T_ONEWAY request at the broker", openAs(MessageType.ONEWAY));
  await atEmp("T_ONEWAY request at the EMP", closeAs(MessageType.ONEWAY));
  await atBroker("T_REPLY request at the broker", openAs(MessageType.REPLY));
  await atEmp("T_REPLY request at the EMP", closeAs(MessageType.REPLY));
  const connection = new Connection(wire, eventPort);
  await report("T_REPLY request at the callback service", connection, () =>
    openAs(MessageType.REPLY)(connection)
  );
  await atBroker("No result", (connected) => executed(connected.client(TavBroker), "nothing"));
  await atBroker("Bytes sent that are not UTF-8", (connected) =>
    executed(connected.client(TavBroker), "length", notUtf8)
  );
}

async function callOdd(wire, port) {
  for (const command of [
    "otherseqid",
    "othertype",
    "unknownfield",
    "nosuccess",
    "othersuccess",
  ]) {
    const connection = new Connection(wire, port, 2000);
    const client = connection.client(TavBroker);
    // This client silently drops a reply to an unknown request. Replies arrive in order:
    // after the second, the first cannot arrive any more.
    let second;
    await report(`Reply: ${command}`, connection, () => {
      const first = executed(client, command);
      second = executed(client, "good");
      const missed = second.then(() => Promise.reject(new NoAnswer()));
      return Promise.race([first, missed]);
    });
    await report(`Reply: ${command}, then`, connection, () => second);
  }
  // Has no "then": the body of the reply stays in the buffer, and what happens to the
  // next reply depends on how the bytes arrive.
  let connection = new Connection(wire, port, 2000);
  const misnamed = connection.client(TavBroker);
  await report("Reply: othername", connection, () => executed(misnamed, "othername"));

  connection = new Connection(wire, port);
  const client = connection.client(TavBroker);
  await report("Sequence ids sent", connection, async () => {
    const first = await executed(client, "tellseqid");
    return `${first}, ${await executed(client, "tellseqid")}`;
  });
  await report("Reply: notutf8", connection, async () =>
    byteCount(await executed(client, "notutf8"))
  );
}

async function call(wire, brokerPort, empPort, eventPort, oddPort) {
  await callBroker(wire, brokerPort);
  await callEmp(wire, empPort);
  await callEvent(wire, brokerPort, eventPort);
  await callWrongly(wire, brokerPort, empPort, eventPort);
  if (oddPort !== undefined) {
    await callOdd(wire, oddPort);
  }
  process.exit(0);
}

const [role, protocol, transport, ...ports] = process.argv.slice(2);
const wire = { protocol: protocols[protocol], transport: transports[transport] };
({ serve, call })[role](wire, ...ports.map(Number));
