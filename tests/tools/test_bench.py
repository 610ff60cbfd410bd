"""The verb that measures: bench."""

import pty

from support import *

from TAV_IDL import TavBroker, TavEmp


class Emp:
    """Counts calls, and does what a test wants at each of them."""

    def __init__(self, at_call=lambda: None):
        self.at_call = at_call
        self.calls = []

    def Close(self, clientID):
        self.calls.append(clientID)
        self.at_call()
        return 0

    def Open(self, *arguments):
        self.calls.append(arguments)
        return True


class BenchTest(ToolTest):
    def peer(self, emp):
        return generated_peer(self, TavEmp.Processor(emp)).address

    def bench(self, address, *words, status=0):
        """Returns its figures, and the error."""
        ended, out, err = tavctl("bench", address, "TavEmp.Close", "clientID=7", "--json", *words)
        self.assertEqual(status, ended, err)
        return json.loads(out), err

    def testItCountsTheCallsAndSaysHowLongTheyTook(self):
        emp = Emp()
        figures, err = self.bench(self.peer(emp), "--seconds", "0.2")
        self.assertEqual("", err)
        self.assertEqual(["calls", "failures", "seconds", "callsPerSecond", "p50", "p99", "max"],
                         list(figures))
        self.assertEqual({7}, set(emp.calls))
        self.assertEqual((len(emp.calls), 0), (figures["calls"], figures["failures"]))
        self.assertGreaterEqual(figures["seconds"], 0.2)
        self.assertAlmostEqual(figures["calls"] / figures["seconds"], figures["callsPerSecond"],
                               delta=figures["callsPerSecond"] / 100)
        self.assertLess(0, figures["p50"])
        self.assertLessEqual(figures["p50"], figures["p99"])
        self.assertLessEqual(figures["p99"], figures["max"])

    def testTheTimesAreMilliseconds(self):
        never = threading.Event()
        figures = self.bench(self.peer(Emp(lambda: never.wait(0.08))), "--seconds", "0.01")[0]
        self.assertGreaterEqual(figures["max"], 80)
        self.assertLessEqual(figures["max"], 1000 * figures["seconds"] + 1)  # seconds are rounded

    def testTheMedianOfAFastAndASlowCallIsTheFastOnes(self):
        never = threading.Event()
        # Each takes longer than the time for which calls are made, so there are no others.
        emp = Emp(lambda: never.wait(1 if len(emp.calls) == 1 else 0.002))
        figures = self.bench(self.peer(emp), "--connections", "2", "--seconds", "0.001")[0]
        self.assertEqual(2, figures["calls"])
        self.assertLess(figures["p50"], figures["p99"])

    def testPeopleGetTextWithUnits(self):
        status, out, err = tavctl("bench", self.peer(Emp()), "TavEmp.Close", "--seconds", "0.05")
        self.assertEqual((0, ""), (status, err))
        number = r"\d+(?:\.\d{1,3})?"
        self.assertRegex(out, r"^%s calls in %s s: %s per second\n"
                              r"p50 %s ms, p99 %s ms, maximum %s ms\n0 failures\n$"
                         % tuple(6 * [number]))

    def testABatchIsSentBeforeItsRepliesAreRead(self):
        whole = len(CLOSE["binary"])

        def serve(connection):
            while True:
                requests = connection.recv(5 * whole, socket.MSG_WAITALL)
                if len(requests) < 5 * whole:
                    return
                connection.sendall(5 * CLOSE["binary"].replace(b"\x80\1\0\1", b"\x80\1\0\2")
                                   .replace(b"\x08\0\1", b"\x08\0\0"))

        figures = self.bench(Peer(self, serve).address, "--batch", "5", "--seconds", "0.05")[0]
        self.assertGreater(figures["calls"], 0)
        self.assertEqual(0, figures["calls"] % 5)

    def testAllConnectionsCallAtTheSameTime(self):
        together = threading.Barrier(3)
        emp = Emp(lambda: len(emp.calls) > 3 or together.wait(PATIENCE))
        figures = self.bench(self.peer(emp), "--connections", "3", "--seconds", "0.05")[0]
        self.assertEqual(0, figures["failures"])
        self.assertFalse(together.broken)

    def testCallsThatFailAreCountedApartAndGiveTheStatus(self):
        def refuse():
            if len(emp.calls) % 2 == 1:
                raise ValueError("every other one, from the first on")

        emp = Emp(refuse)
        figures, err = self.bench(self.peer(emp), "--seconds", "0.1", status=5)
        self.assertEqual(len(emp.calls), figures["calls"] + figures["failures"])
        self.assertEqual((len(emp.calls) + 1) // 2, figures["failures"])
        self.assertRegex(err, r'^{"error":"%d failed, the first: TavEmp.Close at \S+: the peer answered '
                         'INTERNAL_ERROR: .*; the connection is fine, check what the call asks for",'
                         '"status":5}\n$' % figures["failures"])

    def testTheErrorIsThatOfTheFirstCallThatFailed(self):
        def refuse():
            raise TavEmp.TApplicationException(6, "number %d" % len(emp.calls))

        emp = Emp(refuse)
        figures, err = self.bench(self.peer(emp), "--batch", "2", "--seconds", "0.01", status=5)
        self.assertGreaterEqual(figures["failures"], 2)
        self.assertIn("number 1;", err)

    def testAPeerThatIsGoneIsAskedOnlyOnce(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            address = "127.0.0.1:%d" % closed.getsockname()[1]
        figures, err = self.bench(address, "--seconds", str(PATIENCE), status=3)
        self.assertEqual((0, 1, None, None),
                         tuple(figures[key] for key in ("calls", "failures", "p50", "max")))
        self.assertIn("cannot connect", err)
        self.assertRegex(tavctl("bench", address, "TavEmp.Close")[1],
                         r"^0 calls in [\d.]+ s\n1 failure\n$")

    def testEventsOfABatchThatCannotBeSentHaveFailed(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            address = "127.0.0.1:%d" % closed.getsockname()[1]
        status, out, err = tavctl("bench", address, "TavEmpEvent.Callback", "--batch", "4", "--json")
        self.assertEqual((3, 4), (status, json.loads(out)["failures"]))

    def testASignalEndsItWithTheFiguresSoFar(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                some = threading.Event()
                emp = Emp(lambda: len(emp.calls) < 10 or some.set())
                process = start(self, "bench", self.peer(emp), "TavEmp.Close", "--json",
                                "--seconds", str(10 * PATIENCE))
                self.assertTrue(some.wait(PATIENCE))
                process.signal(number)
                status, out, err = process.wait()
                self.assertEqual((0, ""), (status, err))
                self.assertGreaterEqual(json.loads(out)["calls"], 9)
                self.assertEqual(0, json.loads(out)["failures"])

    def testASignalEndsACallThatIsNotAnswered(self):
        asked, never = threading.Event(), threading.Event()
        self.addCleanup(never.set)
        peer = self.peer(Emp(lambda: asked.set() or never.wait(PATIENCE)))
        process = start(self, "bench", peer, "TavEmp.Close", "--json", "--timeout", "86400")
        self.assertTrue(asked.wait(PATIENCE))
        process.signal(signal.SIGINT)
        status, out, err = process.wait()
        self.assertEqual((0, "", 0, 0), (status, err, json.loads(out)["calls"],
                                         json.loads(out)["failures"]))

    def testProgressIsForTerminalsOnly(self):
        seen = threading.Event()
        peer = self.peer(Emp(lambda: seen.wait(PATIENCE)))

        def on_terminal(*words):
            terminal, theirs = pty.openpty()
            self.addCleanup(os.close, terminal)
            shown = bytearray()

            def watch():
                while not shown.endswith(b"end"):
                    shown.extend(os.read(terminal, 65536))
                    if b"calls" in shown:
                        seen.set()  # only now the first call is answered

            watching = threading.Thread(target=watch, daemon=True)
            watching.start()
            subprocess.run([TAVCTL, "bench", peer, "TavEmp.Close", "--seconds", "0.5", *words],
                           stdout=subprocess.PIPE, stderr=theirs, env=environment(), check=True)
            os.write(theirs, b"end")
            watching.join()
            os.close(theirs)
            return bytes(shown)

        self.assertRegex(on_terminal(), rb"^\r\d+ calls.*\r\x1b\[Kend$")
        self.assertEqual(b"end", on_terminal("--quiet"))
        self.assertEqual("", self.bench(peer, "--seconds", "0.5")[1])

    def testTheCredentialIsTakenFromWhereTheOtherVerbsTakeIt(self):
        emp = Emp()
        words = ["bench", self.peer(emp), "TavEmp.Open", "name=n", "--seconds", "0.01"]
        self.assertErrorHas(2, "needs a credential", tavctl(*words))
        self.assertErrorHas(2, "a credential cannot be given on the command line",
                            tavctl(*words, "credential=sesame"))
        self.assertEqual([], emp.calls)
        self.assertEqual(0, tavctl(*words, TAV_CREDENTIAL="sesame")[0])
        self.assertEqual({(0, "n", "", "sesame")}, set(emp.calls))

    def testTheAddressMayComeFromTheEnvironmentAndTheServiceBeOmitted(self):
        status, _, err = tavctl("bench", "Close", "--seconds", "0.01",
                                TAVCTL_ADDRESS=self.peer(Emp()))
        self.assertEqual((0, ""), (status, err))

    def testBadUsageIsReportedWithoutCalling(self):
        for words, error in [(("127.0.0.1:1",), "an OPERATION is missing"),
                             (("127.0.0.1:1", "TavEmp.Close", "--connections", "0"), "0"),
                             (("127.0.0.1:1", "TavEmp.Close", "--seconds", "nan"), "nan"),
                             (("127.0.0.1:1", "TavEmp.Close", "--batch", "100000"), "100000")]:
            with self.subTest(words):
                self.assertErrorHas(2, error, tavctl("bench", *words))


if __name__ == "__main__":
    unittest.main()
