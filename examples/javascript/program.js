#!/usr/bin/env node
// A program in JavaScript: has the broker open an EMP, calls it, receives its events and closes it.
//
//     TAV_CREDENTIAL=... program.js BROKERPORT
"use strict";

const TavBroker = require("TavBroker");
const TavEmp = require("TavEmp");
const TavEmpEvent = require("TavEmpEvent");
const { ParamList } = require("TAV_IDL_types");
const { SafeClient, serve } = require("./safe_thrift");

const me = 7;

async function use(emp, credential, threeEvents) {
  console.log("Open:", await emp.call("Open", me, "thermometer", "1.0", credential));
  console.log("read:", await emp.call("Execute", me, "read", "", "", "", ""));
  const label = new ParamList({ param1: "kitchen", param2: "window", param10: "north" });
  for (let i = 3; i < 10; ++i) {
    label[`param${i}`] = ""; // All ten are always sent.
  }
  console.log("label:", await emp.call("ExecuteWithParamList", me, "label", label));
  console.log("watch:", await emp.call("Execute", me, "watch", "kitchen", "", "", ""));
  for (const event of await threeEvents) {
    console.log("event:", ...event);
  }
  try {
    await emp.call("Execute", me, "fly", "", "", "", "");
  } catch (refused) {
    console.log("fly:", refused.message);
  }
  console.log("Close:", await emp.call("Close", me));
}

async function main() {
  const port = Number(process.argv[2]);
  if (!(port > 0)) {
    throw new Error("usage: program.js BROKERPORT");
  }
  const credential = process.env.TAV_CREDENTIAL;
  if (credential === undefined) {
    throw new Error("program.js: TAV_CREDENTIAL is not set");
  }
  const broker = new SafeClient(TavBroker, port);
  const info = await broker.call("OpenEmp", "thermometer", "1.0", credential);
  console.log("OpenEmp:", info.empID);
  try {
    const events = [];
    let complete;
    const threeEvents = new Promise((resolve, reject) => {
      complete = resolve;
      setTimeout(() => reject(new Error("program.js: no event came")), 5000).unref();
    });
    threeEvents.catch(() => {});
    const callbacks = {
      // Throws nothing: an exception would end the connection.
      Callback(...event) {
        if (events.push(event) === 3) {
          complete(events);
        }
      },
    };
    // The EMP sends events to the port that the broker has given to both sides.
    await serve(TavEmpEvent, callbacks, info.callbackServicePort);
    const emp = new SafeClient(TavEmp, info.empServicePort);
    await use(emp, credential, threeEvents);
    emp.end();
  } finally {
    console.log("CloseEmp:", await broker.call("CloseEmp", info));
  }
  process.exit(0);
}

main().catch((failure) => {
  console.error(failure.message ?? failure);
  process.exit(1);
});
