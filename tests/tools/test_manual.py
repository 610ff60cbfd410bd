"""That what is written about tavctl is true: help, manual, completions, definition."""

import os
import pty
import shlex

from support import *

SOURCE = os.environ["SOURCE"]
MANUAL = os.path.join(SOURCE, "tools/tavctl/tavctl.1")
VERBS = ["describe", "call", "open", "listen", "probe", "spy", "decode", "serve", "bench",
         "encode"]


def manual():
    with open(MANUAL) as file:
        return file.read()


def output_of(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, timeout=PATIENCE,
                          **options).stdout.decode()


class ManualTest(ToolTest):
    def testItIsWellFormed(self):
        output_of("mandoc", "-T", "lint", "-W", "warning", MANUAL)

    def testItShowsJsonWithItsQuotes(self):
        shown = " ".join(re.sub(".\b", "", output_of("mandoc", "-T", "ascii", MANUAL)).split())
        for text in ['("client" or "target")', 'has "broken":{"offset":24,"reason":"..."}.',
                     '"exception":{"kind":"UNKNOWN_METHOD","text":"..."}.',
                     'begins with "connection" and "from"; spy adds "time", and decode adds "ms".']:
            self.assertEqual(1, shown.count(text), text)

    def testItHasEachOptionOfEachVerbAndNoOther(self):
        helps = "".join(tavctl(verb, "--help")[1] for verb in VERBS) + tavctl("--help")[1]
        self.assertEqual(set(re.findall(r"^ +(?:-\w, *)?--([a-z-]+)", helps, re.M)),
                         set(re.findall(r"^\.It Fl (?:\w , )?-([a-z-]+)", manual(), re.M)))

    def testItHasTheExampleOfEachVerb(self):
        for verb in VERBS:
            example = re.search(r"Example:\n  (.*)\n", tavctl(verb, "--help")[1]).group(1)
            self.assertIn(".Dl " + example + "\n", manual())

    def testItsExamplesWorkAsPasted(self):
        """All of them, on ports of the test instead of those written."""
        broker = example_broker(self)
        directory = self.directory()
        examples = re.findall(r"^\.Dl tavctl (.*)$", manual(), re.M)
        self.assertEqual(VERBS, [example.split()[0] for example in examples])
        for example in examples:
            with self.subTest(example):
                words = shlex.split(example.replace("127.0.0.1:9090", broker)
                                    .replace("127.0.0.1:9091", "127.0.0.1:0")
                                    .replace("capture.json", os.path.join(directory, "c")))
                words = ["0" if before == "--port" else word
                         for before, word in zip([""] + words, words)]
                if words[0] in ("listen", "spy", "serve"):
                    process = start(self, *words)
                    self.assertRegex(process.address(), r"^127\.0\.0\.1:\d+$")
                    process.signal(signal.SIGINT)
                    self.assertEqual((0, "", ""), process.wait())
                else:
                    status, _, err = tavctl(*words, TAV_CREDENTIAL="sesame")
                    self.assertEqual((0, ""), (status, err))


class HelpTest(ToolTest):
    def testNoLineIsLongerThan80Characters(self):
        for words in [[]] + [[verb] for verb in VERBS]:
            with self.subTest(words):
                text = tavctl(*words, "--help")[1]
                self.assertEqual([], [line for line in text.splitlines() if len(line) > 80])


class DescribeTest(ToolTest):
    def typeOf(self, description, key="type"):
        return description[key]["class"] if description[key + "Id"] == "struct" \
            else description[key + "Id"]

    def fields(self, fields):
        return [{"id": f["key"], "name": f["name"], "type": self.typeOf(f)} for f in fields]

    def testItShowsWhatTheThriftCompilerReadsInTheDefinition(self):
        with open(os.path.join(os.environ["GENERATED"], "gen-json/TAV_IDL.json")) as file:
            read = json.load(file)
        expected = {
            "operations": [
                {"service": service["name"], "name": function["name"],
                 "oneway": function["oneway"], "arguments": self.fields(function["arguments"]),
                 "result": "nothing" if function["returnTypeId"] == "void"
                           else self.typeOf(function, "returnType")}
                for service in read["services"] for function in service["functions"]],
            "records": [{"name": record["name"], "fields": self.fields(record["fields"])}
                        for record in read["structs"]]}
        for operation in expected["operations"]:
            operation["result"] = {"struct": "ConnectionInfo"}.get(operation["result"],
                                                                   operation["result"])
        self.assertEqual(expected, json.loads(tavctl("describe", "--json")[1]))

    def testThriftPrintsTheDefinitionByteForByte(self):
        with open(os.path.join(SOURCE, "idl/TAV_IDL.thrift")) as file:
            self.assertEqual((0, file.read(), ""), tavctl("describe", "--thrift"))


class InstalledTest(ToolTest):
    def testTheProgramItsManualAndCompletionsAreInstalledAndRunElsewhere(self):
        prefix = self.directory()
        for component in ("Runtime", "HostRuntime", "Tools"):
            output_of("cmake", "--install", os.environ["BUILD"], "--prefix", prefix,
                      "--component", component)
        moved = os.path.join(self.directory(), "moved")
        os.rename(prefix, moved)
        os.mkdir(prefix)
        self.assertRegex(output_of(os.path.join(moved, "bin/tavctl"), "--version"),
                         r"^tavctl \d+\.\d+\.\d+\n$")
        for file in ("man/man1/tavctl.1", "bash-completion/completions/tavctl",
                     "zsh/vendor-completions/_tavctl"):
            self.assertTrue(os.path.exists(os.path.join(moved, "share", file)), file)


class CompletionTest(ToolTest):
    CASES = [
        (["tavctl", "pr"], "probe"),
        (["tavctl", "call", "a:1", "TavEmp.Cl"], "TavEmp.Close"),
        (["tavctl", "call", "a:1", "TavEmp.Close", "--expect"], "--expect-true"),
        (["tavctl", "open", "a:1", "n", "v", "--run", "ExecuteW"], "ExecuteWithParamList"),
        (["tavctl", "probe", "--protocol", "comp"], "compact"),
        (["tavctl", "serve", "br"], "broker"),
        (["tavctl", "call", "TavEmp.Cl"], "TavEmp.Close"),
        (["tavctl", "call", "a:1", "TavEmp.Close", "cl"], "clientID="),
        (["tavctl", "call", "a:1", "OpenEmp", "na"], "name="),
        (["tavctl", "call", "a:1", "CloseEmp", "connectionInfo.empI"], "connectionInfo.empID="),
        (["tavctl", "open", "a:1", "n", "v", "--run", "Open", "--run", "Execute", "param4"],
         "param4="),
        (["tavctl", "serve", "emp", "--reply", "Cl"], "Close="),
        (["tavctl", "serve", "broker", "--fail", "Exe"], "Execute="),
        (["tavctl", "serve", "event", "--delay", "Ca"], "Callback="),
        (["tavctl", "bench", "a:1", "TavEmp.Cl"], "TavEmp.Close"),
        (["tavctl", "bench", "a:1", "TavEmp.Close", "cl"], "clientID="),
        (["tavctl", "encode", "TavEmp.Cl"], "TavEmp.Close"),
        (["tavctl", "encode", "TavEmp.Close", "cl"], "clientID="),
        (["tavctl", "decode", "--format", "pc"], "pcap"),
        (["tavctl", "decode", "--seq"], "--sequence"),
        (["tavctl", "spy", "--fol"], "--follow"),
    ]
    ALL = [
        (["tavctl", "open", "a:1", "n", "v", "--run", ""],
         ["Open", "Close", "Execute", "ExecuteWithParamList"]),
        (["tavctl", "call", "a:1", "OpenEmp", ""], ["name=", "version="]),
        (["tavctl", "encode", "--format", ""], ["raw", "hex"]),
        (["tavctl", "serve", "emp", "--reply", ""],
         ["Open=", "Close=", "Execute=", "ExecuteWithParamList="]),
    ]

    def complete(self, shell, script, words):
        directory = os.path.dirname(TAVCTL)
        return output_of(shell, "-c", script, "complete",
                         os.path.join(SOURCE, "tools/tavctl/completion"), *words,
                         env=environment(PATH=directory + ":" + os.environ["PATH"])).split()

    def testBashCompletesVerbsOptionsOperationsAndTheirValues(self):
        script = """
            . /usr/share/bash-completion/bash_completion
            . "$1/tavctl.bash"; shift
            COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE}
            _tavctl tavctl "${@: -1}" "${@: -2:1}"
            printf '%s\\n' "${COMPREPLY[@]}" """
        for words, expected in self.CASES:
            with self.subTest(words):
                self.assertEqual([expected], self.complete("bash", script, words))
        for words, expected in self.ALL:
            with self.subTest(words):
                self.assertEqual(expected, self.complete("bash", script, words))

    def testAnInteractiveBashCompletesWhatIsTyped(self):
        controller, terminal = pty.openpty()
        self.addCleanup(os.close, controller)
        path = os.path.dirname(TAVCTL) + ":" + os.environ["PATH"]
        shell = Process(self, ["bash", "--norc", "--noprofile", "-i"], stdout=terminal,
                        stdin=terminal, PATH=path, PS1="", HISTFILE="")
        os.close(terminal)

        def typed(text, end):
            os.write(controller, text.encode())
            shown = ""
            while not shown.endswith(end):
                shown += os.read(controller, 4096).decode()
            return shown

        typed(". /usr/share/bash-completion/bash_completion; . %s/tools/tavctl/completion/"
              "tavctl.bash; bind 'set enable-bracketed-paste off'; echo rea''dy\n" % SOURCE,
              "ready\r\n")
        for text, expected in [("tavctl pro\t", "tavctl probe "),
                               ("tavctl call a:1 TavEmp.Cl\tcl\t7", "tavctl call a:1 TavEmp.Close "
                                "clientID=7"),
                               ("tavctl call :1 CloseEmp connectionInfo.empI\tx",
                                "connectionInfo.empID=x"),
                               ("tavctl open a:1 n v --run ExecuteW\tcm\t", "cmd="),
                               ("tavctl serve emp --reply Cl\t3", "--reply Close=3")]:
            with self.subTest(text):
                # Completed, it becomes the arguments of a command that shows them: Ctrl-A is the
                # start of the line.
                shown = typed(text + "; echo en''d\x01printf '<%s>' \n", "end\r\n")
                self.assertIn("".join("<%s>" % word for word in expected.split()), shown)

    def testZshIsOfferedThem(self):
        # Stands in for what zsh gives a completion function.
        script = """
            compadd() {
                local suffix=
                [[ $1 == -S ]] && { suffix=$2; shift 2 }
                local -a offered=($@)
                [[ $1 == -a ]] && offered=(${(P)2})
                print -l -- ${^offered}$suffix
            }
            file=$1/_tavctl; shift
            words=("$@") CURRENT=$# PREFIX=$words[-1]
            . $file """
        for words, expected in self.CASES:
            with self.subTest(words):
                self.assertIn(expected, self.complete("zsh", script, words))
        for words, expected in self.ALL:
            with self.subTest(words):
                self.assertEqual(expected, self.complete("zsh", script, words))


if __name__ == "__main__":
    unittest.main()
