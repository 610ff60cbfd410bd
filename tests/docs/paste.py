#!/usr/bin/env python3
"""Pastes a page into a terminal, block by block, as a reader does.

    paste.py PAGE SHELL DIRECTORY

The whole page is pasted twice in a row into the same interactive SHELL (bash or zsh), whose home is
DIRECTORY. No command of a block may fail, and the terminal must show what the page shows after it.
"""

import os
import re
import shutil
import sys
from pathlib import Path

import pexpect

from pages import blocks

FAILED = "a command has failed"
# As terminals do it: the shell takes the text as it is, and runs it when Enter is pressed. A shell
# tells the terminal when it reads, and so can be pasted into, and when it does not.
PASTE, END_OF_PASTE = "\x1b[200~", "\x1b[201~"
READS, READS_NO_MORE = "\x1b[?2004h", "\x1b[?2004l"
SHELLS = {"bash": ["--noprofile", "--norc", "-i"], "zsh": ["--no-rcs", "-i"]}


class Terminal:
    def __init__(self, shell, home):
        self.child = pexpect.spawn(
            shell, SHELLS[shell], cwd=home, encoding="utf-8", timeout=None, dimensions=(50, 120),
            env={**os.environ, "HOME": str(home), "TERM": "xterm"})
        self.child.expect_exact(READS)
        # The quotes keep the word out of the echo of this line.
        self.run(f"trap 'echo {FAILED[0]}''{FAILED[1:]}' {'ERR' if shell == 'bash' else 'ZERR'}")

    def run(self, text):
        """What the terminal shows of the commands in a text."""
        self.child.send(PASTE + text.rstrip("\n") + END_OF_PASTE + "\r")
        self.child.expect_exact(READS_NO_MORE)
        self.child.expect_exact(READS)
        colored = self.child.before.replace("\r", "")
        return re.sub(r"\x1b\[[\d;]*m", "", colored)

    def close(self):
        self.child.close(force=True)


def main(page, shell, directory):
    home = Path(directory).resolve()
    shutil.rmtree(home, ignore_errors=True)
    home.mkdir(parents=True)
    terminal = Terminal(shell, home)
    try:
        for block in [block for _ in range(2) for block in blocks(page)]:
            if block.language == "sh":
                shown = terminal.run(block.text)
                # The shell itself complains of what it cannot expand, and goes on.
                if FAILED in shown or re.search(rf"^\S*\b{shell}: ", shown, re.MULTILINE):
                    print(f"{page}, in {shell}: a command of this block fails\n{block.text}\n{shown}")
                    return False
            elif block.text not in shown:
                print(f"{page}, in {shell}: this is not shown\n{block.text}\nbut this:\n{shown}")
                return False
        return True
    finally:
        terminal.close()


if __name__ == "__main__":
    sys.exit(0 if main(*sys.argv[1:]) else 1)
