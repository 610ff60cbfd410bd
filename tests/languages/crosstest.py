#!/usr/bin/env python3
"""Runs calls between libTavIDL and peers in other languages, in both directions.

    crosstest.py run BUILD LANGUAGE         runs all cells of a language
    crosstest.py page BUILD PAGE            puts the results of all into the page
    crosstest.py page BUILD PAGE --check    or checks that they are there

BUILD is the directory in which the peers were built. A cell is one language, one
direction, one protocol and one transport: two processes, and the outcome of every
case, which must be the expected outcome in this file.
"""

import concurrent.futures
import difflib
import json
import os
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "docs"))
import pages  # noqa: E402
WIRES = [(p, t) for p in ("binary", "compact", "json") for t in ("buffered", "framed")]
TIMEOUT = 60  # seconds, for one process

LANGUAGES = {
    "library": "C++, libTavIDL",
    "cpp": "C++, generated",
    "c_glib": "C with GLib",
    "python": "Python",
    "javascript": "JavaScript",
}

# --- Expected outcomes

# Of libTavIDL on both sides, in the order in which the peers report it.
EXPECTED = {
    "OpenEmp": "49801|-49802|camera|2.1|key",
    "OpenEmp fails": "exception 0: no such EMP: none",
    "Execute at the broker": '-2147483648|echo|one||Gr\u00fc\u00dfe \u20ac|"four"\\',
    "Execute at the broker fails": "exception 0: the broker cannot: fail",
    "Execute fails with an application exception": "exception 0: the broker cannot: failwell",
    "CloseEmp": "true",
    "CloseEmp, false": "false",
    "CloseEmp fails": "exception 0: no such EMP: none",
    "100000 bytes sent": "100000",
    "100000 bytes received": "100000",
    "NUL sent": "3",
    "NUL received": "3",
    "Open": "true",
    "Open, false": "false",
    "Open fails": "exception 0: no client -1",
    "Close": "-7",
    "Close, zero": "0",
    "Close fails": "exception 0: no client -1",
    "Execute at the EMP": "2147483647|echo|eins|zwei|drei|vier",
    "Execute at the EMP fails": "exception 0: the EMP cannot: fail",
    "ExecuteWithParamList": "5|echo|a|b|c|d||f|g|h|i|j",
    "ExecuteWithParamList fails": "exception 0: the EMP cannot: fail",
    "Callback, then an unknown operation": "exception 1: Invalid method name: 'Close'",
    "Callback": "3/started/Gr\u00fc\u00dfe|-1//|4/still/here",
    "Callback fails, then an unknown operation": "exception 1: Invalid method name: 'Close'",
    "Callback fails": "3/started/Gr\u00fc\u00dfe|-1//|4/still/here|0/fail/",
    "Unknown operation at the broker": "exception 1: Invalid method name: 'Close'",
    "Unknown operation at the broker, then": "49801|-49802|camera|2.1|key",
    "Unknown operation at the EMP": "exception 1: Invalid method name: 'OpenEmp'",
    "Unknown operation at the EMP, then": "-7",
    "T_ONEWAY request at the broker": "49801|-49802|camera|2.1|key",
    "T_ONEWAY request at the broker, then": "49801|-49802|camera|2.1|key",
    "T_ONEWAY request at the EMP": "-7",
    "T_ONEWAY request at the EMP, then": "-7",
    "T_REPLY request at the broker": "exception 2",
    "T_REPLY request at the broker, then": "49801|-49802|camera|2.1|key",
    "T_REPLY request at the EMP": "exception 2",
    "T_REPLY request at the EMP, then": "-7",
    "T_REPLY request at the callback service": "exception 2",
    "No result": "",
    "No result, then": "49801|-49802|camera|2.1|key",
    "Bytes sent that are not UTF-8": "2",
    "Bytes sent that are not UTF-8, then": "49801|-49802|camera|2.1|key",
}
# How a client handles replies that libTavIDL's servers never send. (The peer with
# libTavIDL's services also sends these.)
EXPECTED_OF_ODD = {
    "Reply: otherseqid": "otherseqid",
    "Reply: otherseqid, then": "good",
    "Reply: othertype": "exception 2",
    "Reply: othertype, then": "good",
    "Reply: othername": "exception 3",
    "Reply: othername, then": "good",
    "Reply: unknownfield": "unknownfield",
    "Reply: unknownfield, then": "good",
    "Reply: nosuccess": "exception 5: Execute failed: unknown result",
    "Reply: nosuccess, then": "good",
    "Reply: othersuccess": "exception 5: Execute failed: unknown result",
    "Reply: othersuccess, then": "good",
    "Sequence ids sent": "0, 0",
    "Reply: notutf8": "2",
}

# How libTavIDLHost handles a server's replies to batches of calls. (It has no JSON.)
BATCH_PROTOCOLS = ["binary", "compact"]
EXPECTED_OF_BATCHES = {
    "Batch of 1000 calls": "in order",
    "Batch of three operations": "true, 7|echo|a|||, -7",
    "Batch with a call that is refused": "7|echo|before|||, refused, 7|echo|after|||",
    "Batch of 50 long results": "5000000 bytes",
    "Batch whose first call is answered last": "in order",
}

# Where a language's generated code differs, as a server and as a client.
FAILURES = [
    "OpenEmp fails",
    "Execute at the broker fails",
    "CloseEmp fails",
    "Open fails",
    "Close fails",
    "Execute at the EMP fails",
    "ExecuteWithParamList fails",
]
UNKNOWN_OPERATIONS = {
    "Callback, then an unknown operation": "Close",
    "Callback fails, then an unknown operation": "Close",
    "Unknown operation at the broker": "Close",
    "Unknown operation at the EMP": "OpenEmp",
}
TAKES_A_REPLY_FOR_A_CALL = {
    "T_REPLY request at the broker": "49801|-49802|camera|2.1|key",
    "T_REPLY request at the EMP": "-7",
}
CLOSES_AFTER_A_REPLY = {
    "T_REPLY request at the broker": "connection closed",
    "T_REPLY request at the broker, then": "connection closed",
    "T_REPLY request at the EMP": "connection closed",
    "T_REPLY request at the EMP, then": "connection closed",
    "T_REPLY request at the callback service": "connection closed",
}
TEXTS_END_AT_NUL = {"NUL sent": "1", "NUL received": "1"}
CAN_TELL_OF_NO_RESULT = {"No result": "exception 5: Execute failed: unknown result"}

OWN_AS_SERVER = {
    "cpp": CLOSES_AFTER_A_REPLY,
    "c_glib": {
        **CLOSES_AFTER_A_REPLY,
        **TEXTS_END_AT_NUL,
        "Execute fails with an application exception": "exception 5: the broker cannot: failwell",
        "Callback fails, then an unknown operation": "exception 0: nobody hears this",
    },
    "python": {
        **{case: "exception 6: Internal error" for case in FAILURES},
        "Execute fails with an application exception": "exception 5: the broker cannot: failwell",
        **{
            case: f"exception 1: Unknown function {operation}"
            for case, operation in UNKNOWN_OPERATIONS.items()
        },
        **TAKES_A_REPLY_FOR_A_CALL,
        "T_REPLY request at the callback service": "exception 1: Unknown function OpenEmp",
        **CAN_TELL_OF_NO_RESULT,
        "Bytes sent that are not UTF-8": "connection closed",
        "Bytes sent that are not UTF-8, then": "connection closed",
    },
    "javascript": {
        **{
            case: f"exception 0: Unknown function {operation}"
            for case, operation in UNKNOWN_OPERATIONS.items()
        },
        "Callback fails, then an unknown operation": "connection closed",
        **TAKES_A_REPLY_FOR_A_CALL,
        "T_REPLY request at the callback service": "exception 0: Unknown function OpenEmp",
        **CAN_TELL_OF_NO_RESULT,
        "Bytes sent that are not UTF-8": "6",
    },
}
OWN_WITH_BATCHES = {
    "javascript": {
        "Batch with a call that is refused": "7|echo|before|||, 7|echo|after|||, refused",
        "Batch whose first call is answered last": "not in order",
    },
}
OWN_AS_CLIENT = {
    "cpp": {
        "Reply: othertype": "no answer",
        "Reply: othername": "no answer",
    },
    "c_glib": {
        **TEXTS_END_AT_NUL,
        "Reply: nosuccess": "NULL",
        "Reply: othersuccess": "NULL",
    },
    "python": {
        "Reply: othertype": "othertype",
        "Reply: othername": "othername",
        "Reply: notutf8": "UnicodeDecodeError",
    },
    "javascript": {
        "Reply: otherseqid": "no answer",
        "Reply: othertype": "othertype",
        "Reply: nosuccess": "string: Execute failed: unknown result",
        "Reply: othersuccess": "string: Execute failed: unknown result",
        "Sequence ids sent": "1, 2",
        "Reply: notutf8": "6",
    },
}

# Where it differs only over some protocols and transports.
LOSES_NUL = {"NUL sent": "2", "NUL received": "2"}
OWN_OVER = [
    ("library", "client", ["json buffered", "json framed"], LOSES_NUL),
    ("cpp", "client", ["json buffered", "json framed"], LOSES_NUL),
    ("cpp", "server", ["json buffered", "json framed"], LOSES_NUL),
    (
        "javascript",
        "client",
        ["json buffered", "json framed"],
        {"Bytes sent that are not UTF-8": "6"},
    ),
]

# The cases that a client cannot run, and why.
ENCODES_TEXTS = "the library takes a `str` and encodes it"
LEFT_OUT = {
    "python": {
        "Bytes sent that are not UTF-8": ENCODES_TEXTS,
        "Bytes sent that are not UTF-8, then": ENCODES_TEXTS,
    },
    "javascript": {
        "Reply: othername, then": "the reply's record stays in the client's buffer, and what "
        "becomes of the next reply depends on how the bytes happen to arrive",
    },
}


def calls_in_batches(language, role, protocol):
    return (role == "server" or language == "library") and protocol in BATCH_PROTOCOLS


def expected(language, role, protocol, transport):
    """The expected outcomes of `language` in `role` with libTavIDL at the other end."""
    cases = dict(EXPECTED)
    if role == "client":
        cases.update(EXPECTED_OF_ODD)
    own = OWN_AS_SERVER if role == "server" else OWN_AS_CLIENT
    cases.update(own.get(language, {}))
    if calls_in_batches(language, role, protocol):
        cases.update({**EXPECTED_OF_BATCHES, **OWN_WITH_BATCHES.get(language, {})})
    for whose, which, wires, outcomes in OWN_OVER:
        if (whose, which) == (language, role) and f"{protocol} {transport}" in wires:
            cases.update(outcomes)
    left_out = LEFT_OUT.get(language, {}) if role == "client" else {}
    return {case: outcome for case, outcome in cases.items() if case not in left_out}


# Protocols that a language does not support, and the reason that its peer prints.
UNSUPPORTED = {("c_glib", "json"): "the library has no thrift_json_protocol.h"}


# --- Running a cell


def command(build, language):
    if language == "python":
        return [sys.executable, str(HERE / "python" / "peer.py")]
    if language == "javascript":
        return ["node", str(HERE / "javascript" / "peer.js")]
    return [str(build / f"languages_{language}_peer")]


def environment(build):
    javascript = [build / "javascript" / "node_modules", build / "gen-nodejs"]
    return {
        **os.environ,
        "PYTHONPATH": str(build / "gen-py"),
        "PYTHONIOENCODING": "utf-8",
        "NODE_PATH": ":".join(map(str, javascript)),
    }


def outcomes_in(lines):
    return dict(line.split(" = ", 1) for line in lines)


def converse(build, server, client, protocol, transport, batches):
    """The outcome of every case, or why one side does not support the protocol."""
    wire = [protocol, transport]
    env = environment(build)
    with subprocess.Popen(
        command(build, server) + ["serve", *wire],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env=env,
        text=True,
        encoding="utf-8",
        errors="replace",
    ) as serving:
        try:
            ports = serving.stdout.readline().split()
            if ports[:1] == ["unsupported:"]:
                return {"unsupported": " ".join(ports[1:])}
            if server != "library":
                ports = ports[:3]  # a generated peer in C++ has a fourth, too
            clients = [[*command(build, client), "call", *wire, *ports]]
            if batches:
                clients.append([str(build / "languages_batch"), *wire, *ports[:2]])
            called = [
                subprocess.run(
                    each,
                    capture_output=True,
                    env=env,
                    text=True,
                    encoding="utf-8",
                    timeout=TIMEOUT,
                )
                for each in clients
            ]
            _, printed = serving.communicate(timeout=TIMEOUT)
        except subprocess.TimeoutExpired as hung:
            # Its output so far shows where it hangs.
            lines = (hung.output or b"").decode(errors="replace").splitlines()
            return {"outcomes": {**outcomes_in(lines), "hangs for": f"{TIMEOUT} seconds"}}
        finally:
            serving.kill()
    if called[0].stdout.startswith("unsupported: "):
        return {"unsupported": called[0].stdout.removeprefix("unsupported: ").strip()}
    outcomes = outcomes_in(line for each in called for line in each.stdout.splitlines())
    for process, status, words in [
        *(("client", each.returncode, each.stderr) for each in called),
        ("server", serving.returncode, printed),
    ]:
        if status != 0:
            outcomes[f"exit status of the {process}"] = f"{status}\n{words}"
    return {"outcomes": outcomes}


def run(build, language):
    """Runs all cells of a language and returns whether all have the expected outcome."""
    cells = []
    for role in ["client", "server"] if language != "library" else ["client"]:
        for protocol, transport in WIRES:
            cells.append({"role": role, "protocol": protocol, "transport": transport})

    def fill(cell):
        sides = ("library", language) if cell["role"] == "client" else (language, "library")
        batches = calls_in_batches(language, cell["role"], cell["protocol"])
        cell.update(converse(build, *sides, cell["protocol"], cell["transport"], batches))

    with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as executor:
        list(executor.map(fill, cells))

    failed = 0
    for cell in cells:
        name = f"{LANGUAGES[language]} as {cell['role']}, {cell['protocol']}, {cell['transport']}"
        reason = cell.get("unsupported")
        if reason is not None:
            right = reason == UNSUPPORTED.get((language, cell["protocol"]))
            print(f"{'ok    ' if right else 'FAILED'} {name}: {reason}")
        else:
            wanted = expected(language, cell["role"], cell["protocol"], cell["transport"])
            right = cell["outcomes"] == wanted
            print(f"{'ok    ' if right else 'FAILED'} {name}: {len(cell['outcomes'])} cases")
            if not right:
                lines = [
                    sorted(f"{case} = {outcome}" for case, outcome in side.items())
                    for side in (wanted, cell["outcomes"])
                ]
                print(*difflib.unified_diff(*lines, "expected", "came", lineterm="", n=0), sep="\n")
        failed += not right
    (build / f"results-{language}.json").write_text(json.dumps(cells), encoding="utf-8")
    return failed == 0


# --- The page


def results(build):
    """Every cell that was run, by language and role."""
    cells = {}
    for language in LANGUAGES:
        for cell in json.loads((build / f"results-{language}.json").read_text(encoding="utf-8")):
            cells.setdefault((language, cell["role"]), []).append(cell)
    return cells


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def code(outcome):
    return "`" + outcome.replace("|", "\\|") + "`" if outcome else "an empty text"


def table_of_cells(cells):
    reasons = []
    rows = []
    for (language, role), own in cells.items():
        row = [LANGUAGES[language], role if language != "library" else "both"]
        for cell in own:
            if "unsupported" in cell:
                if cell["unsupported"] not in reasons:
                    reasons.append(cell["unsupported"])
                row.append(f"no [{reasons.index(cell['unsupported']) + 1}]")
                continue
            usual = {**EXPECTED, **EXPECTED_OF_ODD, **EXPECTED_OF_BATCHES}
            differ = sum(usual[case] != outcome for case, outcome in cell["outcomes"].items())
            row.append(f"{len(cell['outcomes'])}" + (f", {differ} its own way" if differ else ""))
        rows.append(row)
    header = ["Peer", "as", *(f"{protocol}, {transport}" for protocol, transport in WIRES)]
    notes = [f"[{i + 1}] {reason[0].upper()}{reason[1:]}." for i, reason in enumerate(reasons)]
    missing = "\n".join(
        f"- {LANGUAGES[language]} as client, \"{case}\": {reason}."
        for language, cases in LEFT_OUT.items()
        for case, reason in cases.items()
    )
    return "\n\n".join([table(header, rows), *notes, "Cases that a peer cannot run:", missing])


def table_of_own_ways(cells, role, cases):
    """The cases in which any language differs, with its outcome."""
    rows = []
    for case, usual in cases.items():
        row = [case, code(usual)]
        for language in LANGUAGES:
            if language == "library":
                continue
            over = {}
            for cell in cells[language, role]:
                if case in cell.get("outcomes", {}):
                    over.setdefault(cell["outcomes"][case], []).append(cell["protocol"])
            if list(over) == [usual]:
                row.append("the same")
            elif not over:
                row.append("not tried")
            elif len(over) == 1:
                row.append(code(next(iter(over))))
            else:
                row.append(
                    "; ".join(f"{code(o)} ({', '.join(dict.fromkeys(p))})" for o, p in over.items())
                )
        if set(row[2:]) - {"the same", "not tried"}:
            rows.append(row)
    names = [name for language, name in LANGUAGES.items() if language != "library"]
    return table(["Case", LANGUAGES["library"], *names], rows)


def page(build, path, check=None):
    """Puts the tables between their marks in the page, or checks that they are there."""
    cells = results(build)
    tables = {
        "cells": table_of_cells(cells),
        "servers": table_of_own_ways(cells, "server", {**EXPECTED, **EXPECTED_OF_BATCHES}),
        "clients": table_of_own_ways(cells, "client", {**EXPECTED, **EXPECTED_OF_ODD}),
    }
    return pages.replace(path, tables, check_only=check is not None)


def main(verb, build, *rest):
    return {"run": run, "page": page}[verb](Path(build), *rest)


if __name__ == "__main__":
    sys.exit(0 if main(*sys.argv[1:]) else 1)
