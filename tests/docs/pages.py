#!/usr/bin/env python3
"""Keeps the pages true: runs their blocks and writes their tables.

    pages.py check PAGE...                     every block is run, or says where it is
    pages.py run PAGE DIRECTORY                pastes the page, block by block, in DIRECTORY
    pages.py files PAGE DIRECTORY              writes the page's files to DIRECTORY
    pages.py results PAGE NAME COMMAND...      puts what the command prints into the page
    pages.py same-results PAGE NAME COMMAND... tells whether it stands there

What a block is, its first line or its language says:

- `// NAME`, `# NAME`: the file of that name.
- sh: commands, run one block after the other in one shell.
- text: what the commands before it print, all of it.

A block that is run in another way has a comment above it: <!-- run by: ... -->.
Results stand between <!-- results: NAME --> and <!-- end of results -->.
"""

import difflib
import re
import subprocess
import sys
from pathlib import Path

BLOCK = re.compile(
    r"^(?:<!-- run by: (?P<elsewhere>[^\n]*) -->\n)?```(?P<language>\w*)\n(?P<text>.*?)^```$",
    re.DOTALL | re.MULTILINE,
)
FILE = re.compile(r"^(?://|#) ([\w./-]+\.\w+)$")


class Block:
    def __init__(self, found):
        self.elsewhere = found["elsewhere"]
        self.language = found["language"]
        self.text = found["text"]
        first = FILE.match(self.text.split("\n", 1)[0])
        self.file = first[1] if first and self.language != "sh" else None


def blocks(page):
    return [Block(found) for found in BLOCK.finditer(Path(page).read_text(encoding="utf-8"))]


def check(*pages):
    """Whether no block escapes."""
    good = True
    for page in pages:
        previous = None
        fences = len(re.findall("^ *```", Path(page).read_text(encoding="utf-8"), re.MULTILINE))
        if fences != 2 * len(blocks(page)):
            print(f"{page}: a block that is not understood")
            good = False
        for block in blocks(page):
            known = (
                block.elsewhere
                or block.file
                or block.language == "sh"
                or (block.language == "text" and previous == "sh")
            )
            if not known:
                print(f"{page}: nobody runs the block\n{block.text}")
                good = False
            previous = block.language
    return good


def files(page, directory):
    for block in blocks(page):
        if block.file:
            path = Path(directory) / block.file
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(block.text, encoding="utf-8")
    return True


def pasted(page):
    """The page as one script for bash."""
    script = [
        "set -euo pipefail",
        "out=$(mktemp)",
        # Shows what the last commands said if they failed, and leaves nothing running.
        'trap \'((! $?)) || cat "$out"; jobs -p | xargs --no-run-if-empty kill 2>/dev/null || true; rm "$out"\' EXIT',
    ]
    for block in blocks(page):
        if block.elsewhere:
            continue
        if block.file:
            script += [f"mkdir -p \"$(dirname '{block.file}')\"", f"cat >'{block.file}' <<'END OF FILE'"]
            script += [block.text + "END OF FILE"]
        elif block.language == "sh":
            script += ["{", block.text + '} >"$out" 2>&1']
        else:
            script += ["diff - \"$out\" <<'END OF TEXT'", block.text + "END OF TEXT"]
    return "\n".join([*script, ""])


def run(page, directory):
    Path(directory).mkdir(parents=True, exist_ok=True)
    return subprocess.run(["bash", "-c", pasted(page)], cwd=directory, check=False).returncode == 0


def replace(page, tables, check_only):
    """Puts each table into its place in the page, or tells whether it stands there."""
    text = Path(page).read_text(encoding="utf-8")
    fresh = text
    for name, table in tables.items():
        marks = re.compile(f"(<!-- results: {name} -->\n).*?(\n<!-- end of results -->)", re.DOTALL)
        if len(marks.findall(fresh)) != 1:
            sys.exit(f"{page}: no place for the results '{name}'")
        fresh = marks.sub(lambda found: found[1] + table + found[2], fresh)
    if not check_only:
        Path(page).write_text(fresh, encoding="utf-8")
        return True
    lines = [text.splitlines(), fresh.splitlines()]
    print(*difflib.unified_diff(*lines, str(page), "what came", lineterm=""), sep="\n")
    return text == fresh


def printed(command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout.rstrip("\n")


def main(verb, *rest):
    if verb in ("results", "same-results"):
        page, name, *command = rest
        return replace(page, {name: printed(command)}, check_only=verb == "same-results")
    return {"check": check, "run": run, "files": files}[verb](*rest)


if __name__ == "__main__":
    sys.exit(0 if main(*sys.argv[1:]) else 1)
