"""What tavctl prints, word for word: transcripts/*.txt."""

import os
import pty

from support import *

TRANSCRIPTS = os.path.join(os.environ["SOURCE"], "tests/tools/transcripts")
# The commands call the program that is tested.
SHELL = 'tavctl() { "$TAVCTL" "$@"; }\n'


def shown(command):
    """A command as in a transcript, with its output, its errors, and its status if it is not 0."""
    ended = subprocess.run(["bash", "-c", SHELL + command], env=environment(TAVCTL=TAVCTL),
                           stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, timeout=PATIENCE)
    status = "[%d]\n" % ended.returncode if ended.returncode else ""
    return "$ %s\n%s%s" % (command, ended.stdout.decode(), status)


def read_terminal(controller):
    """What was written to a terminal that nobody has open any more."""
    text = b""
    try:
        while part := os.read(controller, 4096):
            text += part
    except OSError:
        pass
    os.close(controller)
    return untimed(text.decode().replace("\r\n", "\n").replace("\x1b", "^["))


def shown_on_terminal(command):
    controller, terminal = pty.openpty()
    subprocess.run(["bash", "-c", SHELL + command], env=environment(TAVCTL=TAVCTL),
                   stdin=subprocess.DEVNULL, stdout=terminal, stderr=subprocess.DEVNULL,
                   timeout=PATIENCE)
    os.close(terminal)
    return "$ %s\n%s" % (command, read_terminal(controller))


class TranscriptTest(ToolTest):
    def compare(self, name, normal=str, shown=shown):
        path = os.path.join(TRANSCRIPTS, name + ".txt")
        with open(path, encoding="utf-8") as file:
            expected = file.read()
        found = [shown(command) for command in re.findall(r"^\$ (.*)$", expected, re.M)]
        if "RENEW" in os.environ:
            with open(path, "w", encoding="utf-8") as file:
                file.write("".join(found))
            return
        for part, now in zip(re.split(r"^(?=\$ )", expected, flags=re.M)[1:], found):
            self.assertEqual(normal(part), normal(now), "\nIf this is meant, repeat it with RENEW=1 "
                             "in the environment: that writes %s.txt again" % name)

    def testHelp(self):
        """Releases of CLI11 differ in empty lines, and in how they write headings."""
        self.compare("help", lambda text: [line if line[:1] == " " else line.lower()
                                           for line in text.splitlines() if line])

    def testUsage(self):
        self.compare("usage")

    def testOptions(self):
        """How an option is refused CLI11 says, and not always in the same words."""
        self.compare("options")

    def testDescribe(self):
        self.compare("describe")

    def testDecode(self):
        self.compare("decode")

    def testEncode(self):
        self.compare("encode")

    def testTerminal(self):
        self.compare("terminal", shown=shown_on_terminal)


class TerminalTest(ToolTest):
    def start(self, *words):
        """Returns the terminal that it writes to, and the process."""
        controller, terminal = pty.openpty()
        process = start(self, *words, stdout=terminal, TAV_CREDENTIAL="sesame")
        os.close(terminal)
        return controller, process

    def ended(self, controller, process):
        self.assertEqual(0, process.wait()[0])
        return read_terminal(controller)

    def testWhatIsServedCalledProbedAndSpiedOnIsColored(self):
        emp = self.start("serve", "emp", "--reply", "Close=3")
        address = emp[1].address()
        spy = self.start("spy", "127.0.0.1:0", address)
        self.assertEqual("^[[1m3^[[0m\n", self.ended(*self.start(
            "call", spy[1].address(), "Close", "clientID=7")))
        self.assertRegex(self.ended(*self.start("probe", address)),
                         r"^\^\[\[32malive\^\[\[0m: %s speaks " % address)
        for _, process in (emp, spy):
            process.signal(signal.SIGTERM)
        self.assertEqual("^[[1mTavEmp.Close^[[0m ^[[36mclientID^[[0m=7\n", self.ended(*emp))
        self.assertEqual(
            "^[[2m[1] client  TIME^[[0m\n"
            "  ^[[1mClose call^[[0m^[[2m seqid 0^[[0m^[[2m, 25 bytes at 0^[[0m\n"
            "    1  ^[[36mclientID^[[0m  ^[[2mi32   ^[[0m 7^[[2m^[[0m\n"
            "^[[2m[1] target  TIME^[[0m\n"
            "  ^[[1mClose reply^[[0m^[[2m seqid 0^[[0m^[[2m, 25 bytes at 0^[[0m\n"
            "    0  ^[[36msuccess^[[0m  ^[[2mi32   ^[[0m 3^[[2m^[[0m\n", self.ended(*spy))

    def testWhatIsOpenedIsColored(self):
        emp = start(self, "serve", "emp", "--reply", "Close=3").address().split(":")[1]
        broker = start(self, "serve", "broker", "--reply", 'OpenEmp={"empServicePort": %s}' % emp,
                       "--reply", "CloseEmp=true").address()
        self.assertEqual("^[[32mTavBroker.OpenEmp^[[0m\n"
                         "^[[36mcallbackServicePort^[[0m  ^[[1m0^[[0m\n"
                         "^[[36mempServicePort     ^[[0m  ^[[1m%s^[[0m\n"
                         "^[[36mempID              ^[[0m  ^[[1m\"\"^[[0m\n"
                         "^[[32mTavEmp.Close^[[0m  ^[[1m3^[[0m\n"
                         "^[[32mTavBroker.CloseEmp^[[0m  ^[[1mtrue^[[0m\n" % emp,
                         self.ended(*self.start("open", broker, "x", "1", "--run", "Close")))


if __name__ == "__main__":
    unittest.main()
