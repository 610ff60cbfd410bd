#!/usr/bin/env python3
"""Keeps the pages true: runs their blocks and writes their tables.

    pages.py check PAGE...                     every block of the tree's pages is run: those PAGEs are
    pages.py tests BUILD                       every ctest command of the pages selects a test
    pages.py run PAGE DIRECTORY                pastes the page, block by block, in DIRECTORY
    pages.py run PAGE DIRECTORY BUILD          the same in a copy of the source tree, built in BUILD
    pages.py files PAGE DIRECTORY              writes the page's files to DIRECTORY
    pages.py results PAGE NAME COMMAND...      puts what the command prints into the page
    pages.py same-results PAGE NAME COMMAND... tells whether it stands there

A PAGE is a path in the source tree. What a block is, its first line or its language says:

- `// NAME`, `# NAME`: the file of that name.
- sh: commands, run one block after the other in one shell.
- text: what the commands before it print, all of it.

Results stand between <!-- results: NAME --> and <!-- end of results -->.
"""

import contextlib
import difflib
import os
import re
import shutil
import signal
import subprocess
import sys
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]

# The blocks that are not run, by their page and how they begin, and why. All others are run.
NOT_RUN = {
    ("CONTRIBUTING.md", "script/test dev"): "runs all tests, this one among them",
    ("CONTRIBUTING.md", "apt-get install -y gcovr"): "the same, and installs a package",
    ("CONTRIBUTING.md", "cmake --build --preset release --target pages"):
        "writes to the source tree: the tests look whether it would change anything",
    ("doc/languages.md", "cmake --preset release"): "the same",
    ("doc/platforms.md", "TAVIDL_SYSROOT=/path/to/sysroot cmake -S . -B build/mine"):
        "needs a sysroot: script/test armhf does the same with one that it makes",
    ("doc/troubleshooting.md", ""): "the commands are for servers and processes of the reader's",
}

BLOCK = re.compile(
    r"^(?P<indent> *)```(?P<language>\w*)\n(?P<text>.*?)^(?P=indent)```$", re.DOTALL | re.MULTILINE
)
FILE = re.compile(r"^(?://|#) ([\w./-]+\.\w+)$")


LINK = re.compile(r"\]\(([^)#:]*)(?:#([^)]*))?\)")

# What people ask. The front page names the place of each answer, whose heading has the same words.
QUESTIONS = ["My EMP hangs", "TLS", "Unix sockets", "Another machine", "How to stop a server",
             "What a time-out covers", "Yocto"]


def headings(text):
    """The headings of a page by the anchors that links to them have."""
    found = re.findall(r"^#+ (.*)$", BLOCK.sub("", text), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-"): heading for heading in found}


class Block:
    def __init__(self, page, found):
        self.language = found["language"]
        self.text = re.sub(f"^{found['indent']}", "", found["text"], flags=re.MULTILINE)
        first = self.text.split("\n", 1)[0]
        file = FILE.match(first)
        self.file = file[1] if file and self.language != "sh" else None
        self.left_out = [key for key in NOT_RUN if key[0] == page and first.startswith(key[1])]


def read(page):
    return (SOURCE / page).read_text(encoding="utf-8")


def blocks(page):
    return [Block(page, found) for found in BLOCK.finditer(read(page))]


def all_pages():
    paths = [path.relative_to(SOURCE) for depth in range(3) for path in SOURCE.glob("*/" * depth + "*.md")]
    return {str(path): read(path) for path in sorted(paths) if not path.parts[0].startswith("build")}


def complaints(page, text, run):
    """What is wrong with a page, block by block and command by command."""
    if len(re.findall("^ *```", text, re.MULTILINE)) != 2 * len(blocks(page)):
        yield "a block that is not understood"
    # tests/wire reads those of this one.
    if page != "doc/wire.md" and re.search(r"\n\n(?: {4}|\t)[^ \d*-]", BLOCK.sub("", text)):
        yield "an indented block, which is not run: put it between ```"
    previous = None
    for block in blocks(page):
        runnable = block.language == "sh" or (block.language == "text" and previous == "sh")
        if not (block.left_out or (page in run and (block.file or runnable))):
            yield f"nobody runs the block\n{block.text}"
        previous = block.language
    for command in re.findall(r"`((?:script|\.ci)/[\w/-]+)[ `]", text):
        if not os.access(SOURCE / command, os.X_OK):
            yield f"there is no {command}"
    for file, anchor in LINK.findall(BLOCK.sub("", text)):
        target = (SOURCE / page).parent.joinpath(file) if file else SOURCE / page
        if not target.exists():
            yield f"a link to {file}, which is not there"
        elif anchor and anchor not in headings(target.read_text(encoding="utf-8")):
            yield f"a link to {file}#{anchor}, a heading that is not there"


def unanswered():
    """The questions without a place, or whose place has another heading."""
    for question in QUESTIONS:
        place = re.search(rf"^\| {re.escape(question)} \| \[.*\]\((.*)#(.*)\) \|$",
                          read("README.md"), re.MULTILINE)
        heading = headings(read(place[1])).get(place[2], "") if place else ""
        if question.lower() not in heading.lower():
            yield f"README.md: '{question}' is not answered under a heading with these words"


def check(*run):
    """Whether no block escapes, and what the pages name is there."""
    pages = all_pages()
    wrong = [f"{page}: {what}" for page, text in pages.items() for what in complaints(page, text, run)]
    used = [key for page in pages for block in blocks(page) for key in block.left_out]
    wrong += [f"{page}: no block begins with '{first}', which is not to be run"
              for page, first in NOT_RUN if (page, first) not in used]
    wrong += unanswered()
    for what in wrong:
        print(what)
    return not wrong


def tests(build):
    """Whether the ctest commands in the text of the pages select tests."""
    good = True
    for page, text in all_pages().items():
        for selected in re.findall(r"\bctest --preset \w+ -R '?([^'`\s]+)", text):
            command = ["ctest", "--show-only", "--tests-regex", selected]
            if "Total Tests: 0" in printed(command, cwd=build):
                print(f"{page}: no test is called {selected}")
                good = False
    return good


def files(page, directory):
    for block in blocks(page):
        if block.file:
            path = Path(directory) / block.file
            path.parent.mkdir(parents=True, exist_ok=True)
            # What has not changed is not built again.
            if not path.exists() or path.read_text(encoding="utf-8") != block.text:
                path.write_text(block.text, encoding="utf-8")
    return True


def pasted(page):
    """The page as one script for bash."""
    script = [
        "set -euo pipefail",
        "out=$(mktemp)",
        # Shows what the last commands said if they failed.
        "trap '((! $?)) || cat \"$out\"; rm \"$out\"' EXIT",
    ]
    for block in blocks(page):
        if block.left_out:
            continue
        if block.file:
            script += [f"mkdir -p \"$(dirname '{block.file}')\"", f"cat >'{block.file}' <<'END OF FILE'"]
            script += [block.text + "END OF FILE"]
        elif block.language == "sh":
            script += ["{", block.text + '} >"$out" 2>&1']
        else:
            script += ["diff - \"$out\" <<'END OF TEXT'", block.text + "END OF TEXT"]
    # What a page starts, it ends: this returns only then.
    return "\n".join([*script, "wait", ""])


def copy_tree(directory, build):
    """The source tree as script/demo and script/test leave it, with git."""

    def elsewhere(folder, names):
        return [n for n in names if Path(folder) == SOURCE and (n == ".git" or n.startswith("build"))]

    shutil.copytree(SOURCE, directory, symlinks=True, ignore=elsewhere)
    (directory / "build").mkdir()
    for preset in ("demo", "release"):
        (directory / "build" / preset).symlink_to(build)
    for command in (["init", "--quiet"], ["add", "--all"]):
        subprocess.run(["git", *command], cwd=directory, check=True)


def run(page, directory, build=None):
    directory = Path(directory)
    shutil.rmtree(directory, ignore_errors=True)
    if build:
        copy_tree(directory, build)
    else:
        directory.mkdir(parents=True)
    with subprocess.Popen(["bash", "-c", pasted(page)], cwd=directory, start_new_session=True) as shell:
        try:
            return shell.wait() == 0
        finally:
            # A page that failed may have left something running.
            if shell.returncode != 0:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(shell.pid, signal.SIGKILL)


def replace(page, tables, check_only):
    """Puts each table into its place in the page, or tells whether it stands there."""
    text = read(page)
    fresh = text
    for name, table in tables.items():
        marks = re.compile(f"(<!-- results: {name} -->\n).*?(\n<!-- end of results -->)", re.DOTALL)
        if len(marks.findall(fresh)) != 1:
            sys.exit(f"{page}: no place for the results '{name}'")
        fresh = marks.sub(lambda found: found[1] + table + found[2], fresh)
    if not check_only:
        (SOURCE / page).write_text(fresh, encoding="utf-8")
        return True
    lines = [text.splitlines(), fresh.splitlines()]
    print(*difflib.unified_diff(*lines, str(page), "what came", lineterm=""), sep="\n")
    return text == fresh


def printed(command, **where):
    return subprocess.run(
        command, stdout=subprocess.PIPE, text=True, check=True, **where
    ).stdout.rstrip("\n")


def main(verb, *rest):
    if verb in ("results", "same-results"):
        page, name, *command = rest
        return replace(page, {name: printed(command)}, check_only=verb == "same-results")
    return {"check": check, "tests": tests, "run": run, "files": files}[verb](*rest)


if __name__ == "__main__":
    sys.exit(0 if main(*sys.argv[1:]) else 1)
