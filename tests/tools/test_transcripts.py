"""What tavctl prints, word for word: transcripts/*.txt."""

import os

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


class TranscriptTest(ToolTest):
    def compare(self, name, normal=str):
        path = os.path.join(TRANSCRIPTS, name + ".txt")
        with open(path) as file:
            expected = file.read()
        found = [shown(command) for command in re.findall(r"^\$ (.*)$", expected, re.M)]
        if "RENEW" in os.environ:
            with open(path, "w") as file:
                file.write("".join(found))
            return
        for part, now in zip(re.split(r"^(?=\$ )", expected, flags=re.M)[1:], found, strict=True):
            self.assertEqual(normal(part), normal(now), "\nIf this is meant, repeat it with RENEW=1 "
                             "in the environment: that writes %s.txt anew" % name)

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


if __name__ == "__main__":
    unittest.main()
