#!/usr/bin/env node
// An EMP in JavaScript: the thermometer of examples/emp.cpp.
//
//     TAV_CREDENTIAL=... emp.js EMPID PORT CALLBACKPORT
//
// Prints a line to standard output when it is ready, and ends at the end of its standard input.
"use strict";

const TavEmp = require("TavEmp");
const TavEmpEvent = require("TavEmpEvent");
const { SafeClient, serve } = require("./safe_thrift");

const temperatureEvent = 1;

class Jam extends Error {}

class Thermometer {
  constructor(callbackPort, credential) {
    this.callbackPort = callbackPort;
    this.credential = credential;
    this.clients = new Map(); // How many commands each has run.
  }

  Open(clientID, name, version, credential) {
    if (name !== "thermometer" || version !== "1.0" || credential !== this.credential) {
      return false;
    }
    // The limit bounds the memory that callers can make this process use.
    if (!this.clients.has(clientID) && this.clients.size === 100) {
      return false;
    }
    this.clients.set(clientID, this.clients.get(clientID) ?? 0);
    return true;
  }

  Close(clientID) {
    const count = this.clients.get(clientID) ?? 0;
    this.clients.delete(clientID);
    return count;
  }

  // Takes a callback, unlike the other operations: an exception then ends the connection, while a
  // failure that is passed to the callback is sent to the caller.
  Execute(clientID, cmd, param1, param2, param3, param4, answer) {
    try {
      answer(null, this.run(clientID, cmd, param1));
    } catch (failure) {
      if (failure instanceof Jam) {
        throw failure;
      }
      answer(failure);
    }
  }

  run(clientID, cmd, param1) {
    this.count(clientID);
    switch (cmd) {
      case "read":
        return "21.5 C";
      case "watch":
        this.watch(param1);
        return `watched ${param1}`;
      case "jam":
        throw new Jam("jammed");
      default:
        throw new Error(`the thermometer has no command '${cmd}'`);
    }
  }

  ExecuteWithParamList(clientID, cmd, list) {
    this.count(clientID);
    if (cmd !== "label") {
      throw new Error(`the thermometer has no list command '${cmd}'`);
    }
    return Array.from({ length: 10 }, (_, i) => list[`param${i + 1}`])
      .filter(Boolean)
      .join("/");
  }

  count(clientID) {
    if (!this.clients.has(clientID)) {
      throw new Error(`client ${clientID} has not called Open`);
    }
    this.clients.set(clientID, this.clients.get(clientID) + 1);
  }

  // Reports three readings.
  watch(what) {
    const events = new SafeClient(TavEmpEvent, this.callbackPort);
    // Nobody receives it: the event is lost, and the command continues.
    events.broken.catch((lost) => console.error(`failed to send an event: ${lost.message}`));
    for (const reading of ["21.5", "21.7", "21.6"]) {
      events.send("Callback", temperatureEvent, what, reading);
    }
    events.end();
  }
}

async function main() {
  const [empID, port, callbackPort] = process.argv.slice(2);
  if (!(Number(port) >= 0) || !(Number(callbackPort) > 0)) {
    throw new Error("usage: emp.js EMPID PORT CALLBACKPORT");
  }
  if (process.env.TAV_CREDENTIAL === undefined) {
    throw new Error("emp.js: TAV_CREDENTIAL is not set");
  }
  const thermometer = new Thermometer(Number(callbackPort), process.env.TAV_CREDENTIAL);
  await serve(TavEmp, thermometer, Number(port));
  console.log(`${empID} serves`);
  // Until the broker closes it or has ended.
  process.stdin.on("end", () => process.exit(0)).resume();
}

main().catch((failure) => {
  console.error(failure.message);
  process.exit(1);
});
