#!/usr/bin/env python3
"""Attacks every server of this tree, as hostile and broken peers do.

    hostile.py TAVCTL EXAMPLES [--all] [--only=TEXT] [--seed=N]

TAVCTL is the tool, EXAMPLES the directory of the examples. After sending, an attacker closes the
connection, resets it, or waits: with --all, it sends all bytes in each of these three ways, otherwise
only in one of them. After each attack, a good call must succeed; after all of them, the server must
have no more descriptors and threads than before. Prints
"proof: R runs, F failures" as its last line.
"""

import contextlib
import os
import random
import re
import resource
import select
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import time

TAVCTL = ""
PATIENCE = 60  # for what must happen
MEMORY_KB = 128 * 1024  # more than all that the limits allow 64 connections to take
SILENT = 1000

EXECUTE = {
    ("binary", "buffered"): bytes.fromhex("80010001") + struct.pack(">i", 7) + b"Execute" + bytes(4),
    ("compact", "buffered"): b"\x82\x21\x00\x07Execute",
    ("json", "buffered"): b'[1,"Execute",1,0,',
}
for (name, _), begin in list(EXECUTE.items()):
    EXECUTE[name, "framed"] = struct.pack(">i", 200) + begin


def payloads(seed):
    """What is known to do harm, or might: names and bytes."""
    message = EXECUTE["binary", "buffered"]
    compact = EXECUTE["compact", "buffered"]
    json = EXECUTE["json", "buffered"].decode()
    huge = struct.pack(">i", 0x7FFFFFFF)
    yield "nothing", b""
    yield "binary name of 2 GiB", bytes.fromhex("80010001") + huge
    yield "binary name of -1 bytes", bytes.fromhex("80010001ffffffff")
    yield "binary text of 2 GiB", message + b"\x0b\x00\x02" + huge
    yield "binary list of 2^31 records", message + b"\x0f\x00\x09\x0c" + huge
    yield "binary map of 2^31 texts", message + b"\x0d\x00\x09\x0b\x0b" + huge
    yield "binary records in 100,000 levels", message + b"\x0c\x00\x09" * 100000
    yield "binary of the old form, 2 GiB", huge
    yield "compact name of 4 GiB", b"\x82\x21\x00\xff\xff\xff\xff\x0f"
    yield "compact number without end", b"\x82\x21" + b"\xff" * 70000
    yield "compact text of 4 GiB", compact + b"\x28\xff\xff\xff\xff\x0f"
    yield "compact list of 2^31 records", compact + b"\x99\xfc\xff\xff\xff\xff\x07"
    yield "compact map of 2^31 texts", compact + b"\x9b\xff\xff\xff\xff\x07\x88"
    yield "compact records in 100,000 levels", compact + b"\x9c" * 100000
    yield "a frame of 2 GiB", huge
    yield "a frame of -1 bytes", b"\xff\xff\xff\xff"
    yield "10,000 empty frames", bytes(40000)
    yield "a frame that ends in its message", struct.pack(">i", 9) + message
    yield "JSON byte of 300", (json + '{"9":{"i8":300}}]').encode()
    yield "JSON without a number", (json + '{"1":{"i32":}}]').encode()
    yield "JSON text ==", (json + '{"9":{"str":"=="}}]').encode()
    yield "JSON list of 2^31 numbers", (json + '{"9":{"lst":["i32",2147483647').encode()
    yield "JSON in 100,000 levels", (json + '{"9":{"rec":' * 100000).encode()
    yield "JSON arrays in 100,000 levels", b"[" * 100000
    yield "JSON text without end", (json + '{"2":{"str":"' + "a" * 3000000).encode()
    yield "JSON that is cut in an escape", (json + '{"2":{"str":"\\u00').encode()
    yield "HTTP", b"GET / HTTP/1.1\r\nHost: a\r\n\r\n"
    yield "TLS hello", bytes.fromhex("160301020001") + bytes(508)
    yield "TLS record of 64 KiB", b"\x16\x03\x03\xff\xff" + bytes(65535)
    yield "TLS alert", b"\x15\x03\x03\x00\x02\x02\x28"
    yield "1 MiB of zeros", bytes(1 << 20)
    yield "1 MiB of ones", b"\xff" * (1 << 20)
    dice = random.Random(seed)
    for i in range(4):
        yield f"random bytes {i}", dice.randbytes(dice.randrange(1, 5000))


TLS = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
TLS.check_hostname = False
TLS.verify_mode = ssl.CERT_NONE


def half_a_hello():
    """The first half of what opens a TLS session."""
    written = ssl.MemoryBIO()
    with contextlib.suppress(ssl.SSLWantReadError):
        TLS.wrap_bio(ssl.MemoryBIO(), written).do_handshake()
    hello = written.read()
    return hello[:len(hello) // 2]


class Target:
    """A server process, and how to call it. One that prints events also has to print that of the
    call: the call itself has no reply, so it succeeds even if nobody accepts its connection.
    `request` is the incomplete one that attackers send."""

    def __init__(self, name, command, call, request, in_tls=False, prints_events=False):
        self.name, self.call, self.request, self.in_tls = name, call, request, in_tls
        self.prints_events, self.events = prints_events, 0
        self.log = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stderr=self.log, bufsize=0,
            stdout=subprocess.PIPE if prints_events else subprocess.DEVNULL,
            env={**os.environ, "TAV_CREDENTIAL": "secret"})
        self.address = self.wait_for_address()
        self.before = None

    def wait_for_address(self):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end and self.process.poll() is None:
            self.log.seek(0)
            found = re.search(r" on (\S+?:[^,\s]+)", self.log.read().decode(errors="replace"))
            if found:
                return found[1]
            time.sleep(0.01)
        raise RuntimeError(f"{self.name} does not start")

    def connect(self):
        unix = self.address.startswith("unix:")
        made = socket.socket(socket.AF_UNIX if unix else socket.AF_INET)
        made.settimeout(PATIENCE)
        host, _, port = self.address.rpartition(":")
        made.connect(port if unix else (host, int(port)))
        return made

    def attack(self):
        """A connection to attack it with: a TLS session, if the attacks on this target come in one."""
        made = self.connect()
        return TLS.wrap_socket(made) if self.in_tls else made

    def good_call(self):
        """Makes one. Returns what is wrong; empty if nothing is."""
        self.events += 1
        text = f"event-{self.events}."
        done = subprocess.run([TAVCTL, "call", *self.call[0], self.address, *self.call[1:],
                               *([f"param1={text}"] if self.prints_events else [])],
                              capture_output=True, timeout=PATIENCE, check=False)
        if done.returncode != 0:
            return done.stderr.decode()
        if self.prints_events and not self.has_printed(text):
            return "its event is not printed"
        return ""

    def has_printed(self, text):
        end = time.monotonic() + PATIENCE
        printed = b""
        while text.encode() not in printed:
            left = max(end - time.monotonic(), 0)
            if not select.select([self.process.stdout], [], [], left)[0]:
                return False
            more = os.read(self.process.stdout.fileno(), 65536)
            if not more:
                return False
            printed += more
        return True

    def status(self, key):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as file:
            return int(re.search(rf"^{key}:\s+(\d+)", file.read(), re.M)[1])

    def usage(self):
        """Descriptors and threads."""
        return len(os.listdir(f"/proc/{self.process.pid}/fd")), self.status("Threads")

    def problem(self):
        """What is wrong after an attack; empty if nothing is."""
        try:
            wrong = self.good_call()
        except subprocess.TimeoutExpired:
            wrong = "it has no end"
        if self.process.poll() is not None:
            return f"it has ended with status {self.process.returncode}"
        if wrong:
            return f"a good call fails: {wrong}"
        if self.status("VmHWM") > self.before[2] + MEMORY_KB:
            return f"it took {self.status('VmHWM')} KiB"
        return ""

    def remember(self):
        self.good_call()
        self.before = (*self.usage(), self.status("VmHWM"))

    def what_it_keeps(self):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            now = self.usage()
            if now[0] <= self.before[0] and now[1] <= self.before[1]:
                return ""
            time.sleep(0.01)
        return f"descriptors and threads: {self.before[:2]}, then {now}"

    def close(self):
        self.process.kill()
        self.process.stdin.close()
        if self.prints_events:
            self.process.stdout.close()
        self.process.wait()
        self.log.close()


def send(connection, content):
    """Sends as much as the server accepts."""
    connection.setblocking(False)
    end = time.monotonic() + 1  # a server may stop reading
    while content and time.monotonic() < end:
        try:
            content = content[connection.send(content[:65536]):]
        except (BlockingIOError, ssl.SSLWantReadError, ssl.SSLWantWriteError):
            time.sleep(0.001)
        except OSError:
            return


def attacks(seed, all_ways):
    """Names, and functions that take a target and a stack of what they leave open."""
    for i, (name, content) in enumerate(payloads(seed)):
        def then_end(target, _, content=content):
            with target.attack() as connection:
                send(connection, content)
                with contextlib.suppress(OSError):
                    connection.shutdown(socket.SHUT_WR)

        def then_reset(target, _, content=content):
            connection = target.attack()
            send(connection, content)
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()

        def then_wait(target, stack, content=content):
            send(stack.enter_context(target.attack()), content)
        ways = (then_end, then_reset, then_wait)
        for way in ways if all_ways else (ways[(i + seed) % 3],):
            yield f"{name}, {way.__name__.replace('_', ' ')}", way

    def drip(target, stack):
        connection = stack.enter_context(target.attack())
        for byte in target.request:
            send(connection, bytes([byte]))
            time.sleep(0.01)
    yield "a request that drips", drip

    def half_open(target, stack):
        for _ in range(40):  # of the 64 that a server accepts
            send(stack.enter_context(target.attack()), target.request)
    yield "40 halves of requests", half_open

    def silent(target, _):
        connections = []  # many more than a server accepts: it would not accept that of a good call
        try:
            for _ in range(SILENT):
                connections.append(target.connect())
        finally:
            for connection in connections:
                connection.close()
    yield f"{SILENT} silent connections", silent


def certificate(directory):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                    "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", f"{directory}/key",
                    "-out", f"{directory}/certificate"], check=True, capture_output=True)
    return [f"--cert={directory}/certificate", f"--key={directory}/key"]


def free_port(stack):
    """A port that the system gives to no other process. A server may listen on it."""
    bound = stack.enter_context(socket.socket())
    bound.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    bound.bind(("127.0.0.1", 0))
    return bound.getsockname()[1]


def targets(examples, directory):
    """Names, and functions that start them; a stack that they take ends them."""
    execute = ("TavEmp.Execute", "clientID=7", "cmd=read")
    event = ("TavEmpEvent.Callback", "eventType=1")

    def starter(name, command, call, options=(), request=EXECUTE["binary", "buffered"],
                in_tls=False):
        return name, lambda stack: stack.enter_context(contextlib.closing(
            Target(name, command, (list(options), *call), request, in_tls, call is event)))

    def spy(name, options, key):
        def start(stack):
            behind = starter(name, [TAVCTL, "serve", "emp", *options], execute)[1](stack)
            command = [TAVCTL, "spy", *options, "127.0.0.1:0", behind.address]
            return starter(name, command, execute, options, EXECUTE[key])[1](stack)
        return name, start

    for key in EXECUTE:
        options = [f"--protocol={key[0]}", f"--transport={key[1]}"]
        way = " ".join(key)
        yield starter(f"serve {way}", [TAVCTL, "serve", "emp", *options], execute, options, EXECUTE[key])
        yield starter(f"listen {way}", [TAVCTL, "listen", *options], event, options, EXECUTE[key])
        yield spy(f"spy {way}", options, key)
    yield starter("serve unix", [TAVCTL, "serve", "emp", f"--listen=unix:{directory}/s"], execute)
    serve = [TAVCTL, "serve", "emp", "--tls", *certificate(directory)]
    options = ["--tls", f"--ca={directory}/certificate"]
    yield starter("serve TLS", serve, execute, options, half_a_hello())
    yield starter("serve in TLS sessions", serve, execute, options, in_tls=True)
    yield starter("broker", [f"{examples}/broker"], ("TavBroker.CloseEmp",))
    with contextlib.ExitStack() as reserved:
        port, events = str(free_port(reserved)), str(free_port(reserved))
        yield starter("emp", [f"{examples}/emp", "7", port, events], ("TavEmp.Close", "clientID=7"))
        yield starter("callback", [f"{examples}/callback", events], event)


def run(name, target, attack, again):
    """Returns whether it failed."""
    with contextlib.ExitStack() as left_open:
        try:
            attack(target, left_open)
            problem = target.problem()
        except OSError as failure:
            problem = str(failure)
    if problem:
        print(f"FAILED: {name}: {problem}\n  {again} '--only={name}'", flush=True)
    return bool(problem)


def main():
    options = [word for word in sys.argv[1:] if word.startswith("--")]
    words = [word for word in sys.argv[1:] if not word.startswith("--")]
    values = dict(option.partition("=")[::2] for option in options)
    if len(words) != 2 or set(values) - {"--all", "--only", "--seed"}:
        sys.exit(__doc__)
    global TAVCTL
    TAVCTL, examples = words
    seed = int(values.get("--seed", 1))
    again = f"{sys.argv[0]} {TAVCTL} {examples} --all --seed={seed}"
    print(f"seed {seed}")
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
    runs = failures = 0
    with tempfile.TemporaryDirectory() as directory:
        for name, start in targets(examples, directory):
            chosen = [(f"{name}: {what}", attack) for what, attack in attacks(seed, "--all" in values)]
            chosen = [each for each in chosen if values.get("--only", "") in each[0]]
            if not chosen:
                continue
            with contextlib.ExitStack() as stack:
                target = start(stack)
                target.remember()
                for attack in chosen:
                    runs += 1
                    failures += run(attack[0], target, attack[1], again)
                    if target.process.poll() is not None:
                        target = start(stack)
                        target.remember()
                kept = target.what_it_keeps()
                if kept:
                    failures += 1
                    print(f"FAILED: {name} keeps {kept}\n  {again} '--only={name}: '")
    print(f"proof: {runs} runs, {failures} failures")
    sys.exit(1 if failures or not runs else 0)


if __name__ == "__main__":
    main()
